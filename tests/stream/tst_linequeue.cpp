// The hand-over of lines to the GUI thread (the memory bound, the room the
// receive thread asks for and the call that resumes it, order, drain events,
// bounded texts), the line pool, and one thread pushing while the GUI thread
// drains (also run under ThreadSanitizer).
#include "models/streamdatamodel.h"
#include "stream/linepool.h"
#include "stream/linequeue.h"

#include <QtTest>
#include <atomic>
#include <condition_variable>
#include <mutex>
#include <thread>

using namespace vxlindral;

namespace {

// A line of kLineBytes payload (its footprint a little more), known by its
// pixel count.
constexpr std::size_t kLineBytes = 10000;

LineType makeLine(int id, std::size_t payload = kLineBytes)
{
    auto line = std::make_shared<MyLine>();
    line->pixel = id;
    line->data.reserve(payload);
    return line;
}

struct DrainCounter : QObject
{
    int drains = 0;
    bool eventFilter(QObject*, QEvent* e) override
    {
        drains += e->type() == QEvent::MetaCall;
        return false;
    }
};

} // namespace

class TestLineQueue : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase() { registerLineType(); }

    // Each row: its name, then a script of steps separated by blanks: L<id>
    // pushes a line, B<id> one ten times as large, L<id>^<k> pushes while
    // line k is being taken in, t<n> posts the text "t<n>", W asks for room
    // (waitForRoom), D lets the pending drain run (one runs at the end);
    // then the memory bound (this many lines and a half), the room and
    // resume bounds (likewise) and the texts that may be on their way; then
    // what the model emits, in order (R: the resume callback); then the
    // lines dropped by memory, the texts dropped, the lines waiting before
    // the end, the drains that ran and what the W steps answered.
    void handover_data()
    {
        QTest::addColumn<QString>("script");
        QTest::addColumn<QList<int>>("bounds");
        QTest::addColumn<QString>("seen");
        QTest::addColumn<QString>("counts");
        const char* const rows[] = {
            "memory drops the oldest: L1 L2 L3 L4; 2 9 9 9; L3 L4; 2 0 2 1 -",
            "the newest gets through alone: L1 L2 B3; 2 9 9 9; L3; 2 0 1 1 -",
            "room below the bound, none at it: L1 W L2 L3 W; 9 2 1 9; L1 L2 R L3; 0 0 3 1 yn",
            "resumed once, at the resume bound: L1 L2 L3 W W; 9 2 1 9; L1 L2 R L3; 0 0 3 1 nn",
            "no resume unasked: L1 L2 L3; 9 2 1 9; L1 L2 L3; 0 0 3 1 -",
            "arrivals wait for the next drain: L1 L2 L3^1 L4^1 D; 9 9 9 9; L1 L2 L3 L4; 0 0 2 2 -",
            "texts under the cap at once: t1 L1 t2 L2; 9 9 9 4; t1 t2 L1 L2; 0 0 2 1 -",
            "a held text keeps its place: t1 L1 t2 L2; 9 9 9 1; t1 L1 t2 L2; 0 0 2 1 -",
            "the newest held text replaces: t1 t2 t3 L1 t4; 9 9 9 1; t1 L1 t4; 0 2 1 1 -",
            "a drain confirms the texts before it: t1 L1 D t2 t3; 9 9 9 1; t1 L1 t2 t3; 0 0 0 2 -",
            // The pending drain was posted before t1 and t2: the held text
            // waits for a drain behind them, so that the newest text is last.
            "held behind texts after the drain: L1 t1 t2 t3 t4; 9 9 9 2; t1 t2 L1 t4; 0 1 1 2 -",
        };
        for (const char* row : rows) {
            const QStringList f = QString(row).split(QRegularExpression("[:;] "));
            QList<int> bounds;
            for (const QString& b : f[2].split(' '))
                bounds << b.toInt();
            QTest::newRow(qPrintable(f[0])) << f[1] << bounds << f[3] << f[4];
        }
    }
    void handover()
    {
        QFETCH(QString, script);
        QFETCH(QList<int>, bounds);
        QFETCH(QString, seen);
        QFETCH(QString, counts);
        const auto lines = [](int n) { return (2 * n + 1) * makeLine(0)->footprint() / 2; };
        LineQueue queue({lines(bounds[0]), lines(bounds[1]), lines(bounds[2]), bounds[3]});
        auto model = std::make_shared<StreamDataModel>();
        queue.setModel(model);
        DrainCounter events;
        queue.installEventFilter(&events);
        // All on this thread: the views receive in the order of emission.
        QStringList got;
        queue.setResumeCallback([&got] { got << "R"; });
        connect(model.get(), &StreamDataModel::notifyStatistic,
                [&](const QString& t) { got << t; });
        QMap<int, QList<int>> during; // line taken in -> lines pushed meanwhile
        connect(model.get(), &StreamDataModel::newLine, [&](LineType l) {
            got << QStringLiteral("L%1").arg(l->pixel);
            for (int id : during.value(l->pixel))
                queue.push(makeLine(id));
        });
        QString answers;
        for (const QString& step : script.split(' ')) {
            const QStringList n = step.mid(1).split('^');
            if (step[0] == 'L' && n.size() > 1)
                during[n[1].toInt()] << n[0].toInt();
            else if (step[0] == 'L' || step[0] == 'B')
                queue.push(makeLine(n[0].toInt(), (step[0] == 'B' ? 10 : 1) * kLineBytes));
            else if (step[0] == 't')
                queue.postText(step);
            else if (step[0] == 'W')
                answers += queue.waitForRoom() ? 'y' : 'n';
            else
                QCoreApplication::sendPostedEvents();
        }
        const LineQueue::Counters before = queue.counters();
        // Events posted while events are sent wait for the next round; every
        // script is done in two.
        for (int round = 0; round < 4; ++round)
            QCoreApplication::sendPostedEvents();
        const LineQueue::Counters c = queue.counters();
        QCOMPARE(got.join(' '), seen);
        QCOMPARE(QString::asprintf("%d %d %d %d %s", int(c.droppedMemory), int(c.textsDropped),
                                   int(before.linesWaiting), events.drains,
                                   answers.isEmpty() ? "-" : qPrintable(answers)),
                 counts);
        QCOMPARE(c.linesTaken, uint64_t(seen.count('L')));
        QVERIFY(before.bytesWaiting >= before.linesWaiting * kLineBytes);
        QCOMPARE(c.linesWaiting + c.bytesWaiting, uint64_t(0));
        QVERIFY(queue.hasRoom());
    }

    // Five lines returned in order: the first `idle` ones are kept, the last
    // of them comes out first with its storage. A line outlives the pool's
    // owner and takes the pool along.
    void pool_data()
    {
        QTest::addColumn<int>("maxLines");
        QTest::addColumn<int>("maxBytesInLines");
        QTest::addColumn<int>("idle");
        QTest::newRow("all come back") << 8 << 100 << 5;
        QTest::newRow("bounded by count") << 2 << 100 << 2;
        QTest::newRow("bounded by bytes") << 8 << 3 << 3;
    }
    void pool()
    {
        QFETCH(int, maxLines);
        QFETCH(int, maxBytesInLines);
        QFETCH(int, idle);
        const std::size_t lineBytes = makeLine(0)->footprint();
        auto pool = LinePool::create(std::size_t(maxLines), maxBytesInLines * lineBytes);
        std::vector<LineType> lines(5);
        for (LineType& l : lines) {
            l = pool->acquire();
            l->data.reserve(kLineBytes);
        }
        const MyLine* next = lines[std::size_t(idle - 1)].get();
        for (LineType& l : lines)
            l.reset();
        QCOMPARE(pool->idleLines(), std::size_t(idle));
        QCOMPARE(pool->idleBytes(), idle * lineBytes);
        LineType again = pool->acquire();
        QVERIFY(again.get() == next && again->data.capacity() >= kLineBytes);
        const std::weak_ptr<LinePool> watch = pool;
        pool.reset();
        QVERIFY(!watch.expired());
        again.reset();
        QVERIFY(watch.expired());
    }

    // One thread builds lines from a pool and pushes them with their texts
    // while this (GUI) thread drains. Without asking for room, some lines are
    // dropped by memory; asking for room first (as the receiver does, and
    // waiting for the resume call), none is. Either way every line is taken
    // in or dropped, the model sees them in order and whole, and the newest
    // line and text come last.
    void pushWhileDraining_data()
    {
        QTest::addColumn<bool>("askForRoom");
        QTest::newRow("pushing blindly") << false;
        QTest::newRow("asking for room") << true;
    }
    void pushWhileDraining()
    {
        QFETCH(bool, askForRoom);
        constexpr int kLines = 3000;
        const std::size_t line = makeLine(0)->footprint();
        LineQueue queue({40 * line, 20 * line, 10 * line, 50});
        auto model = std::make_shared<StreamDataModel>();
        queue.setModel(model);
        std::mutex m;
        std::condition_variable resumed;
        bool room = false;
        queue.setResumeCallback([&] {
            std::lock_guard<std::mutex> g(m);
            room = true;
            resumed.notify_one();
        });
        int lastLine = -1;
        bool orderedAndWhole = true;
        connect(model.get(), &StreamDataModel::newLine, [&](LineType l) {
            orderedAndWhole = orderedAndWhole && l->pixel > lastLine &&
                              l->data.size() == std::size_t(l->pixel % 97) &&
                              (l->data.empty() || l->data.back() == uint8_t(l->pixel));
            lastLine = l->pixel;
        });
        QString lastText;
        connect(model.get(), &StreamDataModel::notifyStatistic, this,
                [&](const QString& t) { lastText = t; });
        std::atomic<bool> done{false};
        std::thread receiver([&] {
            auto pool = LinePool::create();
            for (int i = 0; i < kLines; ++i) {
                if (askForRoom && !queue.hasRoom() && !queue.waitForRoom()) {
                    std::unique_lock<std::mutex> g(m);
                    resumed.wait(g, [&] { return room; });
                    room = false;
                }
                queue.postText(QStringLiteral("text %1").arg(i));
                LineType line = pool->acquire();
                line->pixel = i;
                line->data.assign(std::size_t(i % 97), uint8_t(i));
                line->data.reserve(kLineBytes);
                queue.push(std::move(line));
            }
            done = true;
        });
        QTRY_VERIFY_WITH_TIMEOUT(done && queue.counters().linesWaiting == 0, 60000);
        receiver.join();
        QCoreApplication::sendPostedEvents();
        const LineQueue::Counters c = queue.counters();
        QVERIFY(orderedAndWhole);
        QCOMPARE(lastLine, kLines - 1);
        QCOMPARE(c.linesTaken + c.droppedMemory, uint64_t(kLines));
        if (askForRoom)
            QCOMPARE(c.droppedMemory, uint64_t(0));
        QCOMPARE(lastText, QStringLiteral("text %1").arg(kLines - 1));
    }
};

QTEST_GUILESS_MAIN(TestLineQueue)
#include "tst_linequeue.moc"

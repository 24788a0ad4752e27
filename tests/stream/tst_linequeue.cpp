// The hand-over of lines to the GUI thread (bounds by memory and by age on a
// fake clock, order, drain events, bounded texts), the line pool, and one
// thread pushing while the GUI thread drains (also run under ThreadSanitizer).
#include "models/streamdatamodel.h"
#include "stream/linepool.h"
#include "stream/linequeue.h"

#include <QtTest>
#include <atomic>
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
    // pushes a line (L<id>@<ms> one that reached the socket <ms> ago), B<id>
    // one ten times as large, L<id>^<k> pushes while line k is being taken
    // in, t<n> posts the text "t<n>", +<ms> advances the clock, D lets the
    // pending drain run (one runs at the end); then the memory bound (this
    // many lines and a half) and the texts that may be on their way; then
    // what the model emits, in order; then the lines dropped by memory and by
    // age, the texts dropped, the lines waiting before the end and the drains
    // that ran.
    void handover_data()
    {
        QTest::addColumn<QString>("script");
        QTest::addColumn<int>("lines");
        QTest::addColumn<int>("cap");
        QTest::addColumn<QString>("seen");
        QTest::addColumn<QString>("counts");
        const char* const rows[] = {
            "memory drops the oldest: L1 L2 L3 L4; 2 9; L3 L4; 2 0 0 2 1",
            "the newest gets through alone: L1 L2 B3; 2 9; L3; 2 0 0 1 1",
            "age drops on arrival: L1 L2 +251 L3; 4 9; L3; 0 2 0 1 1",
            "exactly the age bound stays: L1 +250 L2; 4 9; L1 L2; 0 0 0 2 1",
            "age drops at the drain, not the newest: L1 L2 +100 L3 +300; 4 9; L3; 0 2 0 3 1",
            "age counts from the socket: L1@200 +51 L2; 4 9; L2; 0 1 0 1 1",
            "a stale newest line gets through: L1@400; 4 9; L1; 0 0 0 1 1",
            "arrivals wait for the next drain: L1 L2 L3^1 L4^1 D; 9 9; L1 L2 L3 L4; 0 0 0 2 2",
            "texts under the cap at once: t1 L1 t2 L2; 9 4; t1 t2 L1 L2; 0 0 0 2 1",
            "a held text keeps its place: t1 L1 t2 L2; 9 1; t1 L1 t2 L2; 0 0 0 2 1",
            "the newest held text replaces: t1 t2 t3 L1 t4; 9 1; t1 L1 t4; 0 0 2 1 1",
            "a drain confirms the texts before it: t1 L1 D t2 t3; 9 1; t1 L1 t2 t3; 0 0 0 0 2",
            // The pending drain was posted before t1 and t2: the held text
            // waits for a drain behind them, so that the newest text is last.
            "held behind texts after the drain: L1 t1 t2 t3 t4; 9 2; t1 t2 L1 t4; 0 0 1 1 2",
        };
        for (const char* row : rows) {
            const QStringList f = QString(row).split(QRegularExpression("[:;] "));
            const QStringList bounds = f[2].split(' ');
            QTest::newRow(qPrintable(f[0]))
                << f[1] << bounds[0].toInt() << bounds[1].toInt() << f[3] << f[4];
        }
    }
    void handover()
    {
        QFETCH(QString, script);
        QFETCH(int, lines);
        QFETCH(int, cap);
        QFETCH(QString, seen);
        QFETCH(QString, counts);
        auto now = std::chrono::steady_clock::time_point(std::chrono::hours(1));
        const std::size_t bytes = (2 * lines + 1) * makeLine(0)->footprint() / 2;
        LineQueue queue({bytes, std::chrono::milliseconds(250), cap}, [&now] { return now; });
        auto model = std::make_shared<StreamDataModel>();
        queue.setModel(model);
        DrainCounter events;
        queue.installEventFilter(&events);
        // All on this thread: the views receive in the order of emission.
        QStringList got;
        connect(model.get(), &StreamDataModel::notifyStatistic,
                [&](const QString& t) { got << t; });
        QMap<int, QList<int>> during; // line taken in -> lines pushed meanwhile
        connect(model.get(), &StreamDataModel::newLine, [&](LineType l) {
            got << QStringLiteral("L%1").arg(l->pixel);
            for (int id : during.value(l->pixel))
                queue.push(makeLine(id));
        });
        for (const QString& step : script.split(' ')) {
            const QStringList n = step.mid(1).split('^');
            const QStringList at = n[0].split('@');
            if (step[0] == 'L' && n.size() > 1)
                during[n[1].toInt()] << n[0].toInt();
            else if (step[0] == 'L' || step[0] == 'B')
                queue.push(makeLine(at[0].toInt(), (step[0] == 'B' ? 10 : 1) * kLineBytes),
                           now - std::chrono::milliseconds(at.value(1).toInt()));
            else if (step[0] == 't')
                queue.postText(step);
            else if (step[0] == '+')
                now += std::chrono::milliseconds(n[0].toInt());
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
        QCOMPARE(QString::asprintf("%d %d %d %d %d", int(c.droppedMemory), int(c.droppedAge),
                                   int(c.textsDropped), int(before.linesWaiting), events.drains),
                 counts);
        QCOMPARE(c.linesTaken, uint64_t(seen.count('L')));
        QVERIFY(before.bytesWaiting >= before.linesWaiting * kLineBytes);
        QCOMPARE(c.linesWaiting + c.bytesWaiting, uint64_t(0));
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
    // while this (GUI) thread drains: every line is taken in or dropped, the
    // model sees them in order and whole, and the newest line and text last.
    void pushWhileDraining()
    {
        constexpr int kLines = 3000;
        // Some lines are dropped by memory, some texts held.
        LineQueue queue({40 * makeLine(0)->footprint(), std::chrono::milliseconds(250), 50});
        auto model = std::make_shared<StreamDataModel>();
        queue.setModel(model);
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
        QCOMPARE(c.linesTaken + c.droppedMemory + c.droppedAge, uint64_t(kLines));
        QCOMPARE(lastText, QStringLiteral("text %1").arg(kLines - 1));
    }
};

QTEST_GUILESS_MAIN(TestLineQueue)
#include "tst_linequeue.moc"

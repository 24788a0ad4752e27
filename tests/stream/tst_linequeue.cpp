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

    // A script of steps separated by blanks: L<id> pushes a line (L<id>@<ms>
    // one that reached the socket <ms> ago), B<id> one ten times as large, L<id>^<k> pushes while
    // line k is being taken in, t<n> posts the text "t<n>", +<ms> advances the clock, D lets the
    // pending drain run (one runs at the end). `seen` is what the GUI thread
    // receives through queued connections, as the views do.
    void handover_data()
    {
        QTest::addColumn<QString>("script");
        QTest::addColumn<int>("lines"); // memory bound: this many lines and a half
        QTest::addColumn<int>("cap");   // texts on their way
        QTest::addColumn<QString>("seen");
        QTest::addColumn<QString>("counts"); // by memory, by age, texts; waiting before the end
        QTest::addColumn<int>("drains");

        QTest::newRow("within the bounds") << "L1 L2 L3" << 4 << 9 << "L1 L2 L3"
                                           << "0 0 0 3" << 1;
        QTest::newRow("memory drops the oldest") << "L1 L2 L3 L4" << 2 << 9 << "L3 L4"
                                                 << "2 0 0 2" << 1;
        QTest::newRow("the newest gets through alone") << "L1 L2 B3" << 2 << 9 << "L3"
                                                       << "2 0 0 1" << 1;
        QTest::newRow("then the bound holds again") << "B1 L2 L3" << 2 << 9 << "L2 L3"
                                                    << "1 0 0 2" << 1;
        QTest::newRow("age drops on arrival") << "L1 L2 +251 L3" << 4 << 9 << "L3"
                                              << "0 2 0 1" << 1;
        QTest::newRow("exactly the age bound stays") << "L1 +250 L2" << 4 << 9 << "L1 L2"
                                                     << "0 0 0 2" << 1;
        QTest::newRow("age drops at the drain, not the newest")
            << "L1 L2 +100 L3 +300" << 4 << 9 << "L3"
            << "0 2 0 3" << 1;
        QTest::newRow("age counts from the socket") << "L1@200 +51 L2" << 4 << 9 << "L2"
                                                    << "0 1 0 1" << 1;
        QTest::newRow("a stale newest line gets through") << "L1@400" << 4 << 9 << "L1"
                                                          << "0 0 0 1" << 1;
        QTest::newRow("a lone line waits any time") << "L1 +5000" << 4 << 9 << "L1"
                                                    << "0 0 0 1" << 1;
        QTest::newRow("both causes") << "L1 L2 L3 +300 L4 L5 L6" << 2 << 9 << "L5 L6"
                                     << "3 1 0 2" << 1;
        QTest::newRow("arrivals during a drain wait for the next")
            << "L1 L2 L3^1 L4^1 D" << 9 << 9 << "L1 L2 L3 L4"
            << "0 0 0 2" << 2;
        QTest::newRow("texts under the cap at once") << "t1 L1 t2 L2" << 9 << 4 << "t1 t2 L1 L2"
                                                     << "0 0 0 2" << 1;
        QTest::newRow("a held text keeps its place") << "t1 L1 t2 L2" << 9 << 1 << "t1 L1 t2 L2"
                                                     << "0 0 0 2" << 1;
        QTest::newRow("the newest held text replaces") << "t1 t2 t3 L1 t4" << 9 << 1 << "t1 L1 t4"
                                                       << "0 0 2 1" << 1;
        QTest::newRow("a drain confirms the texts before it")
            << "t1 L1 D t2 t3" << 9 << 1 << "t1 L1 t2 t3"
            << "0 0 0 0" << 2;
        // The pending drain was posted before t1 and t2: the held text waits
        // for a drain behind them, so that the newest text is shown last.
        QTest::newRow("held behind texts posted after the drain")
            << "L1 t1 t2 t3 t4" << 9 << 2 << "t1 t2 L1 t4"
            << "0 0 1 1" << 2;
        QTest::newRow("texts alone get a drain") << "t1 t2 t3" << 9 << 2 << "t1 t2 t3"
                                                 << "0 0 0 0" << 1;
    }
    void handover()
    {
        QFETCH(QString, script);
        QFETCH(int, lines);
        QFETCH(int, cap);
        QFETCH(QString, seen);
        QFETCH(QString, counts);
        QFETCH(int, drains);
        LineQueue::Limits limits;
        limits.maxBytes = (2 * lines + 1) * makeLine(0)->footprint() / 2;
        limits.maxTextsInFlight = cap;
        auto now = std::chrono::steady_clock::time_point(std::chrono::hours(1));
        LineQueue queue(limits, [&now] { return now; });
        auto model = std::make_shared<StreamDataModel>();
        queue.setModel(model);
        DrainCounter events;
        queue.installEventFilter(&events);
        QStringList got;
        QObject view;
        connect(
            model.get(), &StreamDataModel::newLine, &view,
            [&got](LineType l) { got << QStringLiteral("L%1").arg(l->pixel); },
            Qt::QueuedConnection);
        connect(
            model.get(), &StreamDataModel::notifyStatistic, &view,
            [&got](const QString& t) { got << t; }, Qt::QueuedConnection);
        QMap<int, QList<int>> during; // line taken in -> lines pushed meanwhile
        connect(model.get(), &StreamDataModel::newLine, [&](LineType l) {
            for (int id : during.value(l->pixel))
                queue.push(makeLine(id));
        });
        for (const QString& step : script.split(' ')) {
            const QStringList n = step.mid(1).split('^');
            if (step.startsWith('L') && n.size() > 1)
                during[n[1].toInt()] << n[0].toInt();
            else if (step.startsWith('L') || step.startsWith('B')) {
                // L<id>@<ms>: the line reached the socket <ms> ago.
                const QStringList at = n[0].split('@');
                queue.push(
                    makeLine(at[0].toInt(), step.startsWith('B') ? 10 * kLineBytes : kLineBytes),
                    now - std::chrono::milliseconds(at.value(1).toInt()));
            } else if (step.startsWith('t'))
                queue.postText(step);
            else if (step.startsWith('+'))
                now += std::chrono::milliseconds(n[0].toInt());
            else if (step == "D")
                QCoreApplication::sendPostedEvents();
        }
        const LineQueue::Counters before = queue.counters();
        // Until nothing is left: events posted while events are sent wait for
        // the next round.
        for (int last = -1; last != got.size() + 1000 * events.drains;) {
            last = got.size() + 1000 * events.drains;
            QCoreApplication::sendPostedEvents();
        }
        const LineQueue::Counters c = queue.counters();
        QCOMPARE(got.join(' '), seen);
        QCOMPARE(QStringLiteral("%1 %2 %3 %4")
                     .arg(c.droppedMemory)
                     .arg(c.droppedAge)
                     .arg(c.textsDropped)
                     .arg(before.linesWaiting),
                 counts);
        QCOMPARE(events.drains, drains);
        QCOMPARE(c.linesTaken, uint64_t(seen.count('L')));
        QVERIFY(before.bytesWaiting >= before.linesWaiting * kLineBytes);
        QCOMPARE(c.linesWaiting + c.bytesWaiting, uint64_t(0));
    }

    void pool_data()
    {
        QTest::addColumn<int>("maxLines");
        QTest::addColumn<int>("maxBytesInLines");
        QTest::addColumn<int>("idle"); // of five lines returned
        QTest::newRow("all come back") << 8 << 100 << 5;
        QTest::newRow("bounded by count") << 2 << 100 << 2;
        QTest::newRow("bounded by bytes") << 8 << 3 << 3;
        QTest::newRow("no pool") << 0 << 100 << 0;
    }
    void pool()
    {
        QFETCH(int, maxLines);
        QFETCH(int, maxBytesInLines);
        QFETCH(int, idle);
        const std::size_t lineBytes = makeLine(0)->footprint();
        auto pool = LinePool::create(std::size_t(maxLines), maxBytesInLines * lineBytes);
        std::vector<LineType> lines;
        for (int i = 0; i < 5; ++i) {
            lines.push_back(pool->acquire());
            lines.back()->data.reserve(kLineBytes);
        }
        // Returned in order: the first `idle` ones are kept, the last of them
        // comes out first, its storage kept.
        const MyLine* next = idle > 0 ? lines[std::size_t(idle - 1)].get() : nullptr;
        for (LineType& l : lines)
            l.reset();
        QCOMPARE(pool->idleLines(), std::size_t(idle));
        QCOMPARE(pool->idleBytes(), idle * lineBytes);
        LineType again = pool->acquire();
        QVERIFY(idle == 0 || again.get() == next);
        QCOMPARE(again->data.capacity() >= kLineBytes, idle > 0);
        // A line outlives the pool's owner and takes the pool along.
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
        LineQueue::Limits limits;
        limits.maxBytes = 40 * makeLine(0)->footprint(); // some drops by memory
        limits.maxTextsInFlight = 50;
        LineQueue queue(limits);
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

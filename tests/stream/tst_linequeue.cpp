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
using namespace std::chrono_literals;

namespace {

// A line of `kLineBytes` payload (its footprint a little more), known by its
// pixel count.
constexpr std::size_t kLineBytes = 10000;

LineType makeLine(int id, std::size_t payload = kLineBytes)
{
    auto line = std::make_shared<MyLine>();
    line->pixel = id;
    line->data.reserve(payload);
    return line;
}

// Counts the drain events the queue receives.
struct EventCounter : QObject
{
    int drains = 0;
    bool eventFilter(QObject*, QEvent* e) override
    {
        drains += e->type() == QEvent::MetaCall;
        return false;
    }
};

// Runs a script against a queue with a fake clock and records what the GUI
// thread receives from the model, through queued connections as the views
// do, in order: "L<id>" for a line taken in, the text itself for a text.
// Steps, separated by blanks:
//   L<id>  push a line        B<id>  push a line ten times as large
//   t<n>   post text "t<n>"   +<ms>  advance the clock
//   D      let the pending drain run (one also runs at the end)
struct Run
{
    QStringList seen;
    LineQueue::Counters before; // just before the final drain
    LineQueue::Counters after;
    int drains = 0;
};

Run runScript(const QString& script, const LineQueue::Limits& limits)
{
    auto now = std::chrono::steady_clock::time_point(1h);
    LineQueue queue(limits, [&now] { return now; });
    auto model = std::make_shared<StreamDataModel>();
    queue.setModel(model);
    EventCounter events;
    queue.installEventFilter(&events);
    Run run;
    QObject view;
    QObject::connect(
        model.get(), &StreamDataModel::newLine, &view,
        [&run](LineType l) { run.seen << QStringLiteral("L%1").arg(l->pixel); },
        Qt::QueuedConnection);
    QObject::connect(
        model.get(), &StreamDataModel::notifyStatistic, &view,
        [&run](const QString& t) { run.seen << t; }, Qt::QueuedConnection);
    for (const QString& step : script.split(' ', Qt::SkipEmptyParts)) {
        const int n = step.mid(1).toInt();
        switch (step.at(0).toLatin1()) {
        case 'L':
            queue.push(makeLine(n));
            break;
        case 'B':
            queue.push(makeLine(n, 10 * kLineBytes));
            break;
        case 't':
            queue.postText(step);
            break;
        case '+':
            now += std::chrono::milliseconds(n);
            break;
        case 'D':
            QCoreApplication::sendPostedEvents();
            break;
        }
    }
    run.before = queue.counters();
    // Until nothing is left: events posted while events are sent wait for
    // the next round.
    for (int seen = -1; seen != run.seen.size() + events.drains * 1000;) {
        seen = run.seen.size() + events.drains * 1000;
        QCoreApplication::sendPostedEvents();
    }
    run.after = queue.counters();
    run.drains = events.drains;
    return run;
}

} // namespace

class TestLineQueue : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase() { registerLineType(); }

    void bounds_data()
    {
        QTest::addColumn<QString>("script");
        QTest::addColumn<int>("maxLines"); // memory bound in standard lines (and a half)
        QTest::addColumn<QString>("seen");
        QTest::addColumn<int>("byMemory");
        QTest::addColumn<int>("byAge");
        QTest::addColumn<int>("waiting"); // before the final drain

        QTest::newRow("within both bounds") << "L1 L2 L3" << 4 << "L1 L2 L3" << 0 << 0 << 3;
        QTest::newRow("memory drops the oldest") << "L1 L2 L3 L4" << 2 << "L3 L4" << 2 << 0 << 2;
        QTest::newRow("a line beyond the bound alone gets through")
            << "L1 L2 B3" << 2 << "B3" << 2 << 0 << 1;
        QTest::newRow("the bound holds again after it")
            << "B1 L2 L3" << 2 << "L2 L3" << 1 << 0 << 2;
        QTest::newRow("age drops on arrival") << "L1 L2 +251 L3" << 4 << "L3" << 0 << 2 << 1;
        QTest::newRow("exactly the age bound stays") << "L1 +250 L2" << 4 << "L1 L2" << 0 << 0 << 2;
        QTest::newRow("age drops at the drain, the newest stays")
            << "L1 L2 +100 L3 +300" << 4 << "L3" << 0 << 2 << 3;
        QTest::newRow("a lone line waits any time") << "L1 +5000" << 4 << "L1" << 0 << 0 << 1;
        QTest::newRow("drained lines are gone") << "L1 D +300 L2" << 4 << "L1 L2" << 0 << 0 << 1;
        QTest::newRow("both causes") << "L1 L2 L3 +300 L4 L5 L6" << 2 << "L5 L6" << 3 << 1 << 2;
    }
    void bounds()
    {
        QFETCH(QString, script);
        QFETCH(int, maxLines);
        QFETCH(QString, seen);
        QFETCH(int, byMemory);
        QFETCH(int, byAge);
        QFETCH(int, waiting);
        LineQueue::Limits limits;
        limits.maxBytes = (2 * maxLines + 1) * makeLine(0)->footprint() / 2;
        const Run run = runScript(script, limits);
        QCOMPARE(run.seen.join(' '), seen.replace('B', 'L'));
        QCOMPARE(run.after.droppedMemory, uint64_t(byMemory));
        QCOMPARE(run.after.droppedAge, uint64_t(byAge));
        QCOMPARE(run.after.linesTaken, uint64_t(run.seen.size()));
        QCOMPARE(run.before.linesWaiting, uint64_t(waiting));
        QVERIFY(run.before.bytesWaiting >= waiting * kLineBytes &&
                run.before.bytesWaiting <=
                    std::max<std::size_t>(limits.maxBytes, 10 * kLineBytes + 1000));
        QCOMPARE(run.after.linesWaiting + run.after.bytesWaiting, uint64_t(0));
    }

    void texts_data()
    {
        QTest::addColumn<QString>("script");
        QTest::addColumn<int>("cap");
        QTest::addColumn<QString>("seen");
        QTest::addColumn<int>("dropped");
        QTest::addColumn<int>("drains");

        QTest::newRow("under the cap, each text at once")
            << "t1 L1 t2 L2" << 4 << "t1 t2 L1 L2" << 0 << 1;
        QTest::newRow("held at its place among the lines")
            << "t1 L1 t2 L2" << 1 << "t1 L1 t2 L2" << 0 << 1;
        QTest::newRow("the newest held text replaces the older")
            << "t1 t2 t3 L1 t4" << 1 << "t1 L1 t4" << 2 << 1;
        QTest::newRow("a drain confirms the texts before it")
            << "t1 L1 D t2 t3" << 1 << "t1 L1 t2 t3" << 0 << 2;
        // The pending drain was posted before t1 and t2: the held text waits
        // for a drain behind them, so that the newest text is shown last.
        QTest::newRow("held behind texts posted after the drain")
            << "L1 t1 t2 t3 t4" << 2 << "t1 t2 L1 t4" << 1 << 2;
        QTest::newRow("texts alone get a drain") << "t1 t2 t3" << 2 << "t1 t2 t3" << 0 << 1;
        QTest::newRow("one drain per burst") << "L1 L2 t1 L3 L4" << 8 << "t1 L1 L2 L3 L4" << 0 << 1;
    }
    void texts()
    {
        QFETCH(QString, script);
        QFETCH(int, cap);
        QFETCH(QString, seen);
        QFETCH(int, dropped);
        QFETCH(int, drains);
        LineQueue::Limits limits;
        limits.maxTextsInFlight = cap;
        const Run run = runScript(script, limits);
        QCOMPARE(run.seen.join(' '), seen);
        QCOMPARE(run.after.textsDropped, uint64_t(dropped));
        QCOMPARE(run.drains, drains);
    }

    void linesDuringADrainWaitForTheNext()
    {
        LineQueue queue;
        auto model = std::make_shared<StreamDataModel>();
        queue.setModel(model);
        EventCounter events;
        queue.installEventFilter(&events);
        QStringList seen;
        connect(model.get(), &StreamDataModel::newLine, [&](LineType l) {
            seen << QString::number(l->pixel);
            if (l->pixel == 1) { // arrives while the first drain runs
                queue.push(makeLine(3));
                queue.push(makeLine(4));
            }
        });
        queue.push(makeLine(1));
        queue.push(makeLine(2));
        QCoreApplication::sendPostedEvents(&queue, QEvent::MetaCall);
        QCOMPARE(seen.join(' '), QStringLiteral("1 2"));
        QCOMPARE(queue.counters().linesWaiting, uint64_t(2));
        QCoreApplication::sendPostedEvents(&queue, QEvent::MetaCall);
        QCOMPARE(seen.join(' '), QStringLiteral("1 2 3 4"));
        QCOMPARE(events.drains, 2);
    }

    void pool_data()
    {
        QTest::addColumn<int>("maxLines");
        QTest::addColumn<int>("maxBytesInLines"); // in lines of the size used
        QTest::addColumn<int>("returned");
        QTest::addColumn<int>("idle");
        QTest::newRow("all come back") << 8 << 100 << 5 << 5;
        QTest::newRow("bounded by count") << 2 << 100 << 5 << 2;
        QTest::newRow("bounded by bytes") << 8 << 3 << 5 << 3;
        QTest::newRow("no pool") << 0 << 100 << 3 << 0;
    }
    void pool()
    {
        QFETCH(int, maxLines);
        QFETCH(int, maxBytesInLines);
        QFETCH(int, returned);
        QFETCH(int, idle);
        const std::size_t lineBytes = makeLine(0)->footprint();
        auto pool = LinePool::create(std::size_t(maxLines), maxBytesInLines * lineBytes);
        std::vector<LineType> lines;
        for (int i = 0; i < returned; ++i) {
            lines.push_back(pool->acquire());
            lines.back()->data.reserve(kLineBytes);
        }
        // Returned in order: the first `idle` ones are kept.
        const MyLine* last = idle > 0 ? lines[std::size_t(idle - 1)].get() : nullptr;
        const std::weak_ptr<LinePool> watch = pool;
        pool.reset(); // the lines keep it alive
        QVERIFY(!watch.expired());
        pool = watch.lock();
        for (LineType& l : lines)
            l.reset();
        QCOMPARE(pool->idleLines(), std::size_t(idle));
        QCOMPARE(pool->idleBytes(), idle * lineBytes);
        // The line returned last comes out first, its storage kept.
        LineType again = pool->acquire();
        QVERIFY(idle == 0 || again.get() == last);
        QCOMPARE(again->data.capacity() >= kLineBytes, idle > 0);
        // Lines outlive the pool's owner; the last line takes the pool along.
        pool.reset();
        QVERIFY(!watch.expired());
        QCOMPARE(again->flags, 200);
        again.reset();
        QVERIFY(watch.expired());
    }

    // One thread builds lines from a pool and pushes them with their texts
    // while this (GUI) thread drains: every line is taken in or dropped,
    // the model sees them in order and whole, the newest gets through.
    void pushWhileDraining()
    {
        constexpr int kLines = 3000;
        LineQueue::Limits limits;
        limits.maxBytes = 40 * makeLine(0)->footprint(); // some drops by memory
        limits.maxTextsInFlight = 50;
        LineQueue queue(limits);
        auto model = std::make_shared<StreamDataModel>();
        queue.setModel(model);
        int lastSeen = -1;
        bool ordered = true, whole = true;
        connect(model.get(), &StreamDataModel::newLine, [&](LineType l) {
            ordered = ordered && l->pixel > lastSeen;
            whole = whole && l->data.size() == std::size_t(l->pixel % 97) &&
                    (l->data.empty() || l->data.back() == uint8_t(l->pixel));
            lastSeen = l->pixel;
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
        QVERIFY(ordered && whole);
        QCOMPARE(lastSeen, kLines - 1);
        QCOMPARE(c.linesTaken + c.droppedMemory + c.droppedAge, uint64_t(kLines));
        QCOMPARE(lastText, QStringLiteral("text %1").arg(kLines - 1));
    }
};

QTEST_GUILESS_MAIN(TestLineQueue)
#include "tst_linequeue.moc"

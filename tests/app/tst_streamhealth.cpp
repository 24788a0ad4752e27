// The stream health label without sockets: its text from counters over a
// fake clock, a port fed lines through a real hand-over into a model, and
// the counters by cause in its tool tip. The window's test shows several
// ports and a stopped one.
#include "app/streamhealthlabel.h"
#include "models/streamdatamodel.h"
#include "stream/linequeue.h"
#include "windowtest.h"

#include <QSignalSpy>
#include <QtTest>
#include <chrono>
#include <memory>
#include <vector>

using namespace vxlindral;
using Port = StreamHealthLabel::Port;
using std::chrono::milliseconds;
using std::chrono::steady_clock;

namespace {

// A label over ports the test sets, read at the time the test sets.
struct Fixture
{
    std::vector<Port> ports;
    steady_clock::time_point now{};
    StreamHealthLabel label{[this] { return ports; }, nullptr, [this] { return now; }};

    // Only the test refreshes, so that the fake clock alone decides the rates.
    Fixture() { label.findChild<QTimer*>()->stop(); }

    void refreshAfter(int ms)
    {
        now += milliseconds(ms);
        label.refresh();
    }
};

} // namespace

class TestStreamHealth : public QObject
{
    Q_OBJECT
private slots:
    void entry_data();
    void entry();
    void fedThroughTheHandOver();
    void toolTipByCause();
};

void TestStreamHealth::entry_data()
{
    QTest::addColumn<qulonglong>("takenBefore");
    QTest::addColumn<qulonglong>("takenAfter");
    QTest::addColumn<int>("ms");
    // Dropped by memory, by age, kernel drops, incomplete messages, discarded
    // while frozen, malformed datagrams, callback errors, texts dropped.
    QTest::addColumn<QList<qulonglong>>("counts");
    QTest::addColumn<QString>("text");
    const QList<qulonglong> none{0, 0, 0, 0, 0, 0, 0, 0};
    QTest::newRow("grouped rate") << 1000ull << 1999ull << 500 << none
                                  << "6101: 1,998 lines/s, 0 dropped";
    QTest::newRow("late refresh uses the time that passed")
        << 0ull << 1000ull << 800 << none << "6101: 1,250 lines/s, 0 dropped";
    QTest::newRow("every loss counts")
        << 0ull << 0ull << 500 << QList<qulonglong>{1, 20, 300, 4000, 0, 0, 0, 0}
        << "6101: 0 lines/s, 4,321 dropped";
    QTest::newRow("frozen, malformed, errors and texts are no line loss")
        << 0ull << 0ull << 500 << QList<qulonglong>{0, 0, 0, 0, 5000, 7, 3, 9}
        << "6101: 0 lines/s, 0 dropped";
    QTest::newRow("restarted counters start afresh")
        << 5000ull << 10ull << 500 << none << "6101: 0 lines/s, 0 dropped";
}

void TestStreamHealth::entry()
{
    QFETCH(qulonglong, takenBefore);
    QFETCH(qulonglong, takenAfter);
    QFETCH(int, ms);
    QFETCH(QList<qulonglong>, counts);
    QFETCH(QString, text);

    Fixture f;
    f.ports = {Port{6101, {takenBefore}, {}}};
    f.refreshAfter(0);
    QCOMPARE(f.label.text(), QString("6101: 0 lines/s, 0 dropped")); // no rate yet

    Port& p = f.ports[0];
    p.handover = {takenAfter, counts[0], counts[1], counts[7], 0, 0};
    p.socket.kernelDrops = counts[2];
    p.socket.incompleteMessages = counts[3];
    p.socket.pausedDiscards = counts[4];
    p.socket.malformedDatagrams = counts[5];
    p.socket.callbackErrors = counts[6];
    f.refreshAfter(ms);
    QCOMPARE(f.label.text(), text);
}

// Lines pushed through a hand-over whose memory bound holds two of them: the
// label's rate and drops are what the model saw and what the bound cost.
void TestStreamHealth::fedThroughTheHandOver()
{
    auto makeLine = [] {
        auto line = std::make_shared<MyLine>();
        line->data.resize(4096);
        return line;
    };
    LineQueue::Limits limits;
    limits.maxBytes = 2 * makeLine()->footprint();
    LineQueue queue(limits);
    auto model = std::make_shared<StreamDataModel>();
    queue.setModel(model);
    QSignalSpy arrived(model.get(), &StreamDataModel::newLine);

    Fixture f;
    f.ports = {Port{6101, {}, {}}};
    f.refreshAfter(0);
    for (int i = 0; i < 5; ++i) // two fit; each further one drops the oldest
        queue.push(makeLine());
    QCoreApplication::processEvents(); // the drain hands them to the model
    QCOMPARE(arrived.count(), 2);

    f.ports[0].handover = queue.counters();
    f.refreshAfter(500);
    QCOMPARE(f.label.text(), QString("6101: 4 lines/s, 3 dropped"));
    QVERIFY(f.label.toolTip().contains("\ndropped by the memory bound: 3\n"));
}

// Each counter in its own line of the tool tip (distinct values catch a
// mix-up); with no port left, text and tool tip are empty.
void TestStreamHealth::toolTipByCause()
{
    Fixture f;
    Port& p = f.ports.emplace_back();
    p.port = 6101;
    p.handover = {100, 1, 2, 3, 4, 5};
    p.socket.kernelDrops = 6;
    p.socket.malformedDatagrams = 7;
    p.socket.incompleteMessages = 8;
    p.socket.pausedDiscards = 9;
    p.socket.callbackErrors = 10;
    p.socket.receiveBufferSize = 67108864;
    f.refreshAfter(0);
    QCOMPARE(f.label.text(), QString("6101: 0 lines/s, 17 dropped"));
    QCOMPARE(f.label.toolTip(), QString("Port 6101\ndropped by the memory bound: 1\n"
                                        "dropped by the age bound: 2\nstream texts dropped: 3\n"
                                        "lines waiting: 4\nkernel drops (datagrams): 6\n"
                                        "malformed datagrams: 7\nincomplete messages: 8\n"
                                        "discarded while frozen: 9\ncallback errors: 10\n"
                                        "receive buffer: 67,108,864 bytes"));
    f.ports.clear();
    f.refreshAfter(500);
    QCOMPARE(f.label.text() + f.label.toolTip(), QString());
}

int main(int argc, char* argv[])
{
    return runWindowTest<TestStreamHealth>(argc, argv);
}

#include "tst_streamhealth.moc"

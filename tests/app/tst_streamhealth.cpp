// The stream health label without sockets: its text from counters over a
// fake clock, a port fed lines through a real hand-over into a model, and
// the tool tip and coming and going of several ports.
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

Port port(int number, uint64_t taken)
{
    Port p;
    p.port = number;
    p.handover.linesTaken = taken;
    return p;
}

} // namespace

class TestStreamHealth : public QObject
{
    Q_OBJECT
private slots:
    void entry_data();
    void entry();
    void fedThroughTheHandOver();
    void portsComeAndGo();
};

void TestStreamHealth::entry_data()
{
    QTest::addColumn<qulonglong>("takenBefore");
    QTest::addColumn<qulonglong>("takenAfter");
    QTest::addColumn<int>("ms");
    QTest::addColumn<QList<qulonglong>>("counts"); // see below
    QTest::addColumn<QString>("text");
    // counts: dropped by memory, by age, kernel drops, incomplete messages,
    // discarded while frozen, malformed datagrams, callback errors, texts dropped.
    using C = QList<qulonglong>;
    const C none{0, 0, 0, 0, 0, 0, 0, 0};
    QTest::newRow("idle") << 0ull << 0ull << 500 << none << "6101: 0 lines/s, 0 dropped";
    QTest::newRow("grouped rate") << 1000ull << 1999ull << 500 << none
                                  << "6101: 1,998 lines/s, 0 dropped";
    QTest::newRow("late refresh uses the time that passed")
        << 0ull << 1000ull << 800 << none << "6101: 1,250 lines/s, 0 dropped";
    QTest::newRow("every loss counts") << 0ull << 0ull << 500 << C{1, 20, 300, 4000, 0, 0, 0, 0}
                                       << "6101: 0 lines/s, 4,321 dropped";
    QTest::newRow("frozen, malformed, errors and texts are no line loss")
        << 0ull << 0ull << 500 << C{0, 0, 0, 0, 5000, 7, 3, 9} << "6101: 0 lines/s, 0 dropped";
    QTest::newRow("restarted counters start afresh")
        << 5000ull << 10ull << 500 << none << "6101: 0 lines/s, 0 dropped";
    QTest::newRow("millions") << 0ull << 617283950ull << 500 << C{1234567, 0, 0, 0, 0, 0, 0, 0}
                              << "6101: 1,234,567,900 lines/s, 1,234,567 dropped";
}

void TestStreamHealth::entry()
{
    QFETCH(qulonglong, takenBefore);
    QFETCH(qulonglong, takenAfter);
    QFETCH(int, ms);
    QFETCH(QList<qulonglong>, counts);
    QFETCH(QString, text);

    Fixture f;
    f.ports = {port(6101, takenBefore)};
    f.refreshAfter(0);
    QCOMPARE(f.label.text(), QString("6101: 0 lines/s, 0 dropped")); // no rate yet

    Port& p = f.ports[0];
    p.handover.linesTaken = takenAfter;
    p.handover.droppedMemory = counts[0];
    p.handover.droppedAge = counts[1];
    p.socket.kernelDrops = counts[2];
    p.socket.incompleteMessages = counts[3];
    p.socket.pausedDiscards = counts[4];
    p.socket.malformedDatagrams = counts[5];
    p.socket.callbackErrors = counts[6];
    p.handover.textsDropped = counts[7];
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
    f.ports = {port(6101, 0)};
    f.refreshAfter(0);
    for (int i = 0; i < 5; ++i) // two fit; each further one drops the oldest
        queue.push(makeLine());
    QCOMPARE(queue.counters().linesWaiting, 2ull);
    QCoreApplication::processEvents(); // the drain hands them to the model
    QCOMPARE(arrived.count(), 2);

    f.ports[0].handover = queue.counters();
    f.refreshAfter(500);
    QCOMPARE(f.label.text(), QString("6101: 4 lines/s, 3 dropped"));
    const QStringList tip = f.label.toolTip().split('\n');
    QVERIFY(tip.contains("dropped by the memory bound: 3"));
    QVERIFY(tip.contains("lines waiting: 0"));
}

// Several ports side by side with their counters in the tool tip; a stopped
// port disappears, and one opened again starts without a rate.
void TestStreamHealth::portsComeAndGo()
{
    Fixture f;
    Port a = port(6101, 100);
    a.handover = {100, 1, 2, 3, 4, 5};
    a.socket.kernelDrops = 6;
    a.socket.malformedDatagrams = 7;
    a.socket.incompleteMessages = 8;
    a.socket.pausedDiscards = 9;
    a.socket.callbackErrors = 10;
    a.socket.receiveBufferSize = 67108864;
    const Port b = port(7000, 0);
    f.ports = {a, b};
    f.refreshAfter(0);
    f.ports[0].handover.linesTaken = 1100;
    f.refreshAfter(500);
    QCOMPARE(f.label.text(),
             QString("6101: 2,000 lines/s, 17 dropped | 7000: 0 lines/s, 0 dropped"));
    QCOMPARE(f.label.toolTip(), QString("Port 6101\n"
                                        "dropped by the memory bound: 1\n"
                                        "dropped by the age bound: 2\n"
                                        "stream texts dropped: 3\n"
                                        "lines waiting: 4\n"
                                        "kernel drops (datagrams): 6\n"
                                        "malformed datagrams: 7\n"
                                        "incomplete messages: 8\n"
                                        "discarded while frozen: 9\n"
                                        "callback errors: 10\n"
                                        "receive buffer: 67,108,864 bytes\n"
                                        "\n"
                                        "Port 7000\n"
                                        "dropped by the memory bound: 0\n"
                                        "dropped by the age bound: 0\n"
                                        "stream texts dropped: 0\n"
                                        "lines waiting: 0\n"
                                        "kernel drops (datagrams): 0\n"
                                        "malformed datagrams: 0\n"
                                        "incomplete messages: 0\n"
                                        "discarded while frozen: 0\n"
                                        "callback errors: 0\n"
                                        "receive buffer: 0 bytes"));

    f.ports = {b};
    f.refreshAfter(500);
    QCOMPARE(f.label.text(), QString("7000: 0 lines/s, 0 dropped"));
    QVERIFY(!f.label.toolTip().contains("6101"));

    f.ports = {a, b};
    f.refreshAfter(500);
    QVERIFY(f.label.text().startsWith("6101: 0 lines/s"));
    f.ports.clear();
    f.refreshAfter(500);
    QCOMPARE(f.label.text(), QString());
    QCOMPARE(f.label.toolTip(), QString());
}

int main(int argc, char* argv[])
{
    return runWindowTest<TestStreamHealth>(argc, argv);
}

#include "tst_streamhealth.moc"

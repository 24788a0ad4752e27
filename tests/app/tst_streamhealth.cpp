// The stream health label without sockets: its rate over a fake clock, and
// every counter by cause in its tool tip. The window's test shows several
// ports and a stopped one.
#include "app/streamhealthlabel.h"
#include "windowtest.h"

#include <QtTest>
#include <chrono>
#include <vector>

using namespace vxlindral;
using Port = StreamHealthLabel::Port;

namespace {

// A label over ports the test sets, read at the time the test sets.
struct Fixture
{
    std::vector<Port> ports;
    std::chrono::steady_clock::time_point now{};
    StreamHealthLabel label{[this] { return ports; }, nullptr, [this] { return now; }};

    // Only the test refreshes, so that the fake clock alone decides the rates.
    Fixture() { label.findChild<QTimer*>()->stop(); }

    void refreshAfter(int ms)
    {
        now += std::chrono::milliseconds(ms);
        label.refresh();
    }
};

} // namespace

class TestStreamHealth : public QObject
{
    Q_OBJECT
private slots:
    void rate_data()
    {
        QTest::addColumn<qulonglong>("takenBefore");
        QTest::addColumn<qulonglong>("takenAfter");
        QTest::addColumn<int>("ms");
        QTest::addColumn<QString>("text");
        QTest::newRow("grouped rate")
            << 1000ull << 1999ull << 500 << "6101: 1,998 lines/s, 0 dropped";
        QTest::newRow("late refresh uses the time that passed")
            << 0ull << 1000ull << 800 << "6101: 1,250 lines/s, 0 dropped";
        QTest::newRow("restarted counters start afresh")
            << 5000ull << 10ull << 500 << "6101: 0 lines/s, 0 dropped";
    }
    void rate()
    {
        QFETCH(qulonglong, takenBefore);
        QFETCH(qulonglong, takenAfter);
        QFETCH(int, ms);
        QFETCH(QString, text);
        Fixture f;
        f.ports = {Port{6101, {takenBefore}, {}, {}, {}, {}}};
        f.refreshAfter(0);
        QCOMPARE(f.label.text(), QString("6101: 0 lines/s, 0 dropped")); // no rate yet
        f.ports[0].handover.linesTaken = takenAfter;
        f.refreshAfter(ms);
        QCOMPARE(f.label.text(), text);
    }

    // Each counter in its own line of the tool tip (distinct values catch a
    // mix-up); only backlog and memory drops, kernel drops and incomplete
    // messages are lost lines; a recording's counters follow. With no port
    // left, text and tool tip are empty.
    void toolTipByCause()
    {
        Fixture f;
        Port& p = f.ports.emplace_back();
        p.port = 6101;
        p.handover = {100, 1, 3, 4, 5};
        p.socket.backlogDrops = 2;
        p.socket.backlogMessages = 11;
        p.socket.kernelDrops = 60;
        p.socket.malformedDatagrams = 7;
        p.socket.incompleteMessages = 800;
        p.socket.pausedDiscards = 9000;
        p.socket.callbackErrors = 10;
        p.socket.receiveBufferSize = 67108864;
        f.refreshAfter(0);
        QCOMPARE(f.label.text(), QString("6101: 0 lines/s, 863 dropped"));
        QCOMPARE(f.label.toolTip(),
                 QString("Port 6101\ndropped by the backlog bound: 2\n"
                         "dropped by the memory bound: 1\n"
                         "stream texts dropped: 3\nlines waiting undecoded: 11\n"
                         "lines waiting decoded: 4\nkernel drops (datagrams): 60\n"
                         "malformed datagrams: 7\nincomplete messages: 800\n"
                         "discarded while frozen: 9,000\ncallback errors: 10\n"
                         "receive buffer: 67,108,864 bytes"));
        // A capture recorded from the port adds its counters.
        p.recording.emplace();
        p.recording->datagrams = 12345;
        p.recording->lines = 6000;
        p.recording->written = 2000000;
        p.recording->notRecorded = 7;
        f.refreshAfter(500);
        QVERIFY(f.label.toolTip().endsWith(
            "\nrecording: 12,345 datagrams, 6,000 lines, 2,000,000 bytes written, 7 not recorded "
            "(the disk fell behind)"));
        f.ports.clear();
        f.refreshAfter(500);
        QCOMPARE(f.label.text() + f.label.toolTip(), QString());
    }
};

int main(int argc, char* argv[])
{
    return runWindowTest<TestStreamHealth>(argc, argv);
}

#include "tst_streamhealth.moc"

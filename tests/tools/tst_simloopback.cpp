// The built simulator streams over loopback into the library's receiver:
// every line arrives once, in order and byte for byte as composed, the file
// header is applied and gives the scene's geometry, fragmented lines are
// reassembled, and paced runs deliver exactly the lines asked for.
#include "scanner/vxlinedatastream.h"
#include "simargs.h"
#include "simprocess.h"
#include "tools/sim/linecomposer.h"

#include <QtTest>
#include <chrono>
#include <cmath>
#include <csignal>
#include <cstring>
#include <thread>

using vxsim::LineComposer;
using vxsim::Scene;
using vxsim::SimOptions;

namespace {

// Keeps a copy of each received line, checks the geometry of some of them
// on the spot (XYZ0 works during the callback only), and compares every copy
// with the recomposed line afterwards, so that the receive thread stays fast.
// Written on the receive thread, read after Disconnect has joined it.
class Receiver : public VxLinedataStream
{
public:
    explicit Receiver(const SimOptions& o) : composer(o), device(o.device) {}

    LineComposer composer;
    uint32_t device;
    uint64_t lines = 0, expectedNext = 0;
    int outOfOrder = 0, withoutHeader = 0, wrongDevice = 0, badGeometry = 0;
    uint64_t geometryChecked = 0;
    std::vector<std::pair<uint32_t, std::vector<char>>> received;

    // Lines that differ from what the simulator composed for their number.
    int corruptLines()
    {
        int corrupt = 0;
        for (const auto& r : received)
            corrupt += composer.compose(r.first) == r.second ? 0 : 1;
        return corrupt;
    }

    void OnRawLine(const strmsocket::VxStreamDeviceInfo& from, const char*,
                   const strmsocket::LineRawInfo& info, const char* data, int count) override
    {
        ++lines;
        uint32_t n;
        std::memcpy(&n, data, sizeof n); // header word 0: line counter
        outOfOrder += n == expectedNext ? 0 : 1;
        expectedNext = uint64_t(n) + 1;
        wrongDevice += from.device == device ? 0 : 1;
        if (!GetVxSHeader(from.device))
            ++withoutHeader;
        // The library keeps the declared line inside its buffer.
        const std::size_t declared = std::size_t(data - info.data()) + info.word(2) +
                                     std::size_t(info.word(4)) * info.word(3);
        received.emplace_back(n, std::vector<char>(info.data(), info.data() + declared));
        if (n % 97 != 0)
            return;
        composer.compose(n);
        // The file header's angles and transform put the belt at height 0
        // and every point where its beam met the scene.
        const Scene& scene = composer.scene();
        for (int i = 0; i < count; ++i) {
            const Scene::Sample& s = composer.samples()[std::size_t(i)];
            if (s.material == Scene::None)
                continue;
            double x, y, z;
            Set(from.device, i);
            XYZ0(from.device, x, y, z);
            const double t = (scene.firstAngle() + i * scene.angleStep()) * M_PI / 180.0;
            const bool ok = std::fabs(y - s.range * std::sin(t)) < 6e-4 &&
                            std::fabs(z - (Scene::kScannerHeight - s.range * std::cos(t))) < 6e-4 &&
                            (s.material != Scene::Belt || std::fabs(z) < 0.0015);
            badGeometry += ok ? 0 : 1;
        }
        ++geometryChecked;
    }
};

void waitFor(const std::function<bool()>& done, int ms)
{
    const auto until = std::chrono::steady_clock::now() + std::chrono::milliseconds(ms);
    while (!done() && std::chrono::steady_clock::now() < until)
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
}

} // namespace

class TstSimLoopback : public QObject
{
    Q_OBJECT
private slots:
    void roundTrip_data();
    void roundTrip();
    void stopsOnSignal();
};

void TstSimLoopback::roundTrip_data()
{
    QTest::addColumn<QStringList>("args");
    QTest::addColumn<int>("lines");
    QTest::addColumn<int>("fragments"); // datagrams per line
    QTest::newRow("1.2 paced 2000 lines/s")
        << QStringList{"--rate", "2000", "--count", "1000"} << 1000 << 1;
    QTest::newRow("1.1 short, device 1")
        << QStringList{"--protocol", "1.1",    "--layout", "short",   "--device",
                       "1",          "--rate", "1000",     "--count", "300"}
        << 300 << 1;
    QTest::newRow("1.1 long extended")
        << QStringList{"--protocol", "1.1", "--bpp", "12", "--rate", "1000", "--count", "200"}
        << 200 << 1;
    // 128 + 32 + 51200 * 8 = 409760 bytes: seven fragments per line.
    QTest::newRow("1.3 400 KB lines")
        << QStringList{"--protocol", "1.3",    "--pixels", "51200",   "--bpp",
                       "8",          "--rate", "100",      "--count", "25"}
        << 25 << 7;
}

void TstSimLoopback::roundTrip()
{
    QFETCH(QStringList, args);
    QFETCH(int, lines);
    QFETCH(int, fragments);
    std::vector<std::string> argv = SimArgs::toStd(args);
    Receiver receiver(SimArgs::options(args));
    QVERIFY(receiver.Connect(0, "127.0.0.1"));
    argv.push_back("--port");
    argv.push_back(std::to_string(receiver.LocalPort()));

    std::string out, err;
    QCOMPARE(SimProcess::run(argv, 60000, &out, &err), 0);
    waitFor([&] { return receiver.counters().rawLines >= uint64_t(lines); }, 5000);
    receiver.Disconnect(true);
    const strmsocket::StreamCounters c = receiver.counters();

    QCOMPARE(receiver.lines, uint64_t(lines));
    QCOMPARE(receiver.outOfOrder, 0);
    QCOMPARE(receiver.corruptLines(), 0);
    QCOMPARE(receiver.wrongDevice, 0);
    QCOMPARE(receiver.withoutHeader, 0);
    QVERIFY(receiver.geometryChecked > 0);
    QCOMPARE(receiver.badGeometry, 0);
    QCOMPARE(c.malformedDatagrams, 0u);
    QCOMPARE(c.incompleteMessages, 0u);
    QCOMPARE(c.truncatedMessages, 0u);
    QCOMPARE(c.kernelDrops, 0u);
    // Lines plus at least one file header, each line in `fragments` datagrams.
    QVERIFY(c.messages > uint64_t(lines));
    QCOMPARE(c.datagrams - (c.messages - uint64_t(lines)), uint64_t(lines) * fragments);
    QVERIFY2(QString::fromStdString(out).contains(QString("%1 lines").arg(lines)), out.c_str());
}

void TstSimLoopback::stopsOnSignal()
{
    QStringList args{"--pixels", "256", "--rate", "500"};
    Receiver receiver(SimArgs::options(args));
    QVERIFY(receiver.Connect(0, "127.0.0.1"));
    SimProcess sim;
    QVERIFY(sim.start(SimArgs::toStd(args << QString("--port=%1").arg(receiver.LocalPort()))));
    waitFor([&] { return receiver.counters().rawLines >= 20; }, 10000);
    QVERIFY(receiver.counters().rawLines >= 20);
    sim.signal(SIGTERM);
    QCOMPARE(sim.wait(5000), 0);
    QVERIFY2(QString::fromStdString(sim.output()).contains("total "), sim.output().c_str());
    receiver.Disconnect(true);
    QCOMPARE(receiver.corruptLines(), 0);
    QCOMPARE(receiver.outOfOrder, 0);
}

QTEST_GUILESS_MAIN(TstSimLoopback)
#include "tst_simloopback.moc"

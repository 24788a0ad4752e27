// The built simulator: its exit codes, and its stream over loopback into the
// library's receiver: every line arrives once, in order and byte for byte as
// composed, the file header is applied and gives the scene's geometry,
// fragmented lines are reassembled, and a run stopped by a signal still
// delivers every line it reports.
#include "scanner/vxlinedatastream.h"
#include "simargs.h"
#include "simprocess.h"
#include "tools/sim/linecomposer.h"

#include <QtTest>
#include <cmath>
#include <csignal>
#include <cstring>

using vxsim::LineComposer;
using vxsim::Scene;
using vxsim::SimOptions;

namespace {

// Keeps a copy of each received line, checks the geometry of some of them
// on the spot (XYZ0 works during the callback only), and compares every copy
// with the recomposed line afterwards, so that the receive thread stays fast.
// Written on the receive thread, read after Disconnect has joined it.
struct Receiver : VxLinedataStream
{
    explicit Receiver(const SimOptions& o) : composer(o) {}

    LineComposer composer;
    uint64_t expectedNext = 0;
    QStringList faults;
    std::vector<std::pair<uint32_t, std::vector<char>>> received;

    void OnRawLine(const strmsocket::VxStreamDeviceInfo& from, const char*,
                   const strmsocket::LineRawInfo& info, const char* data, int count) override
    {
        uint32_t n;
        std::memcpy(&n, data, sizeof n); // header word 0: line counter
        const bool header = GetVxSHeader(from.device) != nullptr;
        if (n != expectedNext || !header)
            faults << QString::asprintf("line %u, file header %d", n, header);
        expectedNext = uint64_t(n) + 1;
        // The library keeps the declared line inside its buffer.
        const char* end = data + info.word(2) + std::size_t(count) * info.word(3);
        received.emplace_back(n, std::vector<char>(info.data(), end));
        if (n % 97 != 0)
            return;
        // The file header's angles and transform put every point where its
        // beam met the scene, shifted as the scene's transform says.
        composer.compose(n);
        const Scene& scene = composer.scene();
        const double* shift = scene.transform();
        for (int i = 0; i < count; ++i) {
            const Scene::Sample& s = composer.samples()[std::size_t(i)];
            double x, y, z;
            Set(from.device, i);
            XYZ0(from.device, x, y, z);
            const double t = (scene.firstAngle() + i * scene.angleStep()) * M_PI / 180.0;
            // Millimetre ranges of protocol 1.1 round by up to 0.5 mm.
            if (s.material != Scene::None &&
                (std::fabs(x) > 1e-12 || std::fabs(y - s.range * std::sin(t) - shift[7]) > 6e-4 ||
                 std::fabs(z - s.range * std::cos(t) - shift[11]) > 6e-4))
                faults << QString::asprintf("line %u pixel %d at %g, %g, %g", n, i, x, y, z);
        }
    }
};

} // namespace

class TstSimLoopback : public QObject
{
    Q_OBJECT
private slots:
    void exitCodes_data();
    void exitCodes();
    void roundTrip_data();
    void roundTrip();
};

void TstSimLoopback::exitCodes_data()
{
    QTest::addColumn<QString>("args");
    QTest::addColumn<int>("code");
    QTest::addColumn<QString>("text"); // expected in stdout (code 0) or stderr
    QTest::newRow("help") << "--pixels 5 --help" << 0 << "usage: vxscanner-sim";
    QTest::newRow("unresolvable host")
        << "--host bad..host --count 1" << 2 << "cannot resolve host 'bad..host'";
    // Nobody listens on the port: the refused datagrams are counted and the
    // simulator still ends normally after its lines.
    QTest::newRow("nobody listens")
        << "--port 9 --count 20 --rate 2000 --pixels 64" << 0 << ": 20 lines";
}

void TstSimLoopback::exitCodes()
{
    QFETCH(QString, args);
    QFETCH(int, code);
    QFETCH(QString, text);
    std::string out, err;
    QCOMPARE(SimProcess::run(SimArgs::split(args), 10000, &out, &err), code);
    const std::string& where = code == 0 ? out : err;
    QVERIFY2(QString::fromStdString(where).contains(text), where.c_str());
}

void TstSimLoopback::roundTrip_data()
{
    QTest::addColumn<QString>("args");
    QTest::addColumn<int>("lines"); // 0: runs until SIGTERM
    QTest::newRow("1.1 short, device 1, odd pixel count")
        << "--protocol 1.1 --layout short --device 1 --pixels 777 --rate 1000 --count 300" << 300;
    // 128 + 32 + 51200 * 8 = 409760 bytes: seven fragments per line.
    QTest::newRow("1.3 400 KB lines")
        << "--protocol 1.3 --pixels 51200 --bpp 8 --rate 100 --count 25" << 25;
    QTest::newRow("conveyor, stopped by SIGTERM")
        << "--scene conveyor --pixels 256 --rate 500" << 0;
}

void TstSimLoopback::roundTrip()
{
    QFETCH(QString, args);
    QFETCH(int, lines);
    Receiver receiver(SimArgs::options(args));
    QVERIFY(receiver.Connect(0, "127.0.0.1"));
    std::vector<std::string> argv = SimArgs::split(args);
    argv.push_back("--port=" + std::to_string(receiver.LocalPort()));
    SimProcess sim;
    QVERIFY(sim.start(argv));
    if (lines == 0) {
        QVERIFY(QTest::qWaitFor([&] { return receiver.counters().rawLines >= 20; }, 10000));
        sim.signal(SIGTERM);
    }
    QCOMPARE(sim.wait(60000), 0);
    const QRegularExpressionMatch total =
        QRegularExpression("total [0-9.]+ s: ([0-9]+) lines, ([0-9]+) datagrams")
            .match(sim.output().c_str());
    QVERIFY2(total.hasMatch(), sim.output().c_str());
    const uint64_t sent = total.captured(1).toULongLong();
    QVERIFY(lines ? sent == uint64_t(lines) : sent >= 20);
    // A shortfall shows in the count of received lines below.
    static_cast<void>(QTest::qWaitFor([&] { return receiver.counters().rawLines >= sent; }, 5000));
    receiver.Disconnect(true);
    const strmsocket::StreamCounters c = receiver.counters();

    QCOMPARE(receiver.received.size(), sent);
    QStringList& faults = receiver.faults;
    for (const auto& [n, line] : receiver.received)
        if (receiver.composer.compose(n) != line)
            faults << QString("line %1 differs").arg(n);
    QVERIFY2(faults.isEmpty(), qPrintable(faults.mid(0, 5).join("; ")));
    // Every datagram sent arrives and fits into its message.
    QCOMPARE(c.datagrams, total.captured(2).toULongLong());
    QCOMPARE(c.malformedDatagrams + c.incompleteMessages + c.truncatedMessages + c.kernelDrops,
             uint64_t(0));
}

QTEST_GUILESS_MAIN(TstSimLoopback)
#include "tst_simloopback.moc"

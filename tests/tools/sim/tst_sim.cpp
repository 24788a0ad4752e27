// The simulator in-process: its command line, the scene it samples, and
// lines that decode through the viewer's header decoding, pixel decoding,
// column layouts and header texts to what the scene holds.
#include "scanner/lineheader.h"
#include "simargs.h"
#include "stream/globallineparser.h"
#include "scanner/lineformat.h"
#include "tools/sim/linecomposer.h"

#include <QtTest>
#include <cmath>
#include <ctime>
#include <tuple>

using vxsim::LineComposer;
using vxsim::Scene;
using vxsim::SimOptions;

namespace {

// What parse() decided, as the settings that differ from a default value.
QString fingerprint(const SimOptions& o)
{
    const auto all = [](const SimOptions& s) {
        return QString::asprintf("host %s,port %d,rate %g,pixels %d,protocol 1.%d,%s,bpp %d,"
                                 "datatyp %d,mode %u,device %u,count %llu,duration %g,%s,%s,%s",
                                 s.host.c_str(), s.port, s.rate, s.pixels, s.subProtocol,
                                 s.shortLayout ? "short" : "long", s.bpp, s.datatyp, s.mode,
                                 s.device, static_cast<unsigned long long>(s.count), s.duration,
                                 s.stampSendTime ? "send time" : "scanner time",
                                 Scene::name(s.scene), s.fileHeader ? "header" : "no header")
            .split(',');
    };
    QStringList f = all(o);
    for (const QString& d : all(SimOptions()))
        f.removeOne(d);
    return f.join(' ');
}

} // namespace

class TstSim : public QObject
{
    Q_OBJECT
private slots:
    void options_data();
    void options();
    void pixelsDecode_data();
    void pixelsDecode();
    void street_data();
    void street();
    void scenesAtScale_data();
    void scenesAtScale();
    void headerWords_data();
    void headerWords();
};

void TstSim::options_data()
{
    QTest::addColumn<QString>("args");
    QTest::addColumn<bool>("valid");
    QTest::addColumn<QString>("expected"); // fingerprint(), or part of the error message
    static const std::tuple<const char*, bool, const char*> rows[] = {
        {"--host=10.0.0.7 --port 7000 --rate=20000.5 --pixels 1", true,
         "host 10.0.0.7 port 7000 rate 20000.5 pixels 1"},
        // The short 1.1 layout changes the defaults of bpp and datatyp only
        // where they are not given.
        {"--protocol 1.1", true, "protocol 1.1"},
        {"--protocol=1.1 --layout=short", true, "protocol 1.1 short bpp 5 datatyp 3"},
        {"--layout short --bpp 9 --datatyp 7 --protocol 1.1", true,
         "protocol 1.1 short bpp 9 datatyp 7"},
        {"--protocol 1.3 --pixels 199999 --bpp 63 --datatyp 9999 --mode 4294967295 "
         "--device 4294967295 --count 1",
         true,
         "pixels 199999 protocol 1.3 bpp 63 datatyp 9999 mode 4294967295 device 4294967295 "
         "count 1"},
        {"--duration 0.25 --bpp 5", true, "bpp 5 duration 0.25"},
        {"--pixel 5", false, "unknown option --pixel"},
        {"--rate", false, "missing value for --rate"},
        {"--port=", false, "bad value '' for --port"},
        {"--pixels 200000", false, "for --pixels"},
        {"--rate 0", false, "for --rate"},
        {"--count 0", false, "for --count"},
        {"--protocol 1.20", false, "for --protocol"},
        {"--protocol 1.1 --layout tall", false, "for --layout"},
        {"--layout long", false, "--layout applies to protocol 1.1 only"},
        {"--protocol 1.1 --mode 1", false, "--mode applies to protocols 1.2 and 1.3"},
        {"--count 5 --duration 1", false, "exclude each other"},
        {"--port 1 --port=2", false, "--port given twice"},
        // Range and intensity must fit the record: 5 bytes, 8 for the long
        // 1.1 layout (intensity at bytes 6..7).
        {"--bpp 4", false, "at least 5 bytes"},
        {"--protocol 1.1 --bpp 7", false, "at least 8 bytes"},
        {"--help=1", false, "--help takes no value"},
        {"--rate 600 --stamp-send-time", true, "rate 600 send time"},
        {"--stamp-send-time=1", false, "--stamp-send-time takes no value"},
        {"--stamp-send-time 1", false, "unexpected argument '1'"},
        {"--scene conveyor", true, "conveyor"},
        {"--scene=street", true, ""},
        {"--scene tunnel", true, "tunnel"},
        {"--scene belt --no-header", true, "belt no header"},
        {"--no-header=1", false, "--no-header takes no value"},
        {"--scene moon", false, "for --scene"},
    };
    for (const auto& [args, valid, expected] : rows)
        QTest::newRow(args) << args << valid << expected;
}

void TstSim::options()
{
    QFETCH(QString, args);
    QFETCH(bool, valid);
    QFETCH(QString, expected);
    SimOptions o;
    std::string error;
    const SimOptions::Outcome outcome = SimArgs::parse(args, o, error);
    QVERIFY2(outcome == (valid ? SimOptions::Outcome::Run : SimOptions::Outcome::Error),
             error.c_str());
    if (valid)
        QCOMPARE(fingerprint(o), expected);
    else
        QVERIFY2(QString::fromStdString(error).contains(expected), error.c_str());
}

void TstSim::pixelsDecode_data()
{
    QTest::addColumn<QString>("args");
    QTest::newRow("1.1 short") << "--protocol 1.1 --layout short";
    QTest::newRow("1.1 long") << "--protocol 1.1";
    QTest::newRow("1.1 long extended") << "--protocol 1.1 --bpp 12";
    QTest::newRow("1.1 short extended") << "--protocol 1.1 --layout short --bpp 8";
    // The long layout with the short layout's datatyp: the catalogue reads
    // range elsewhere, so only range and intensity are written.
    QTest::newRow("1.1 long, datatyp 3") << "--protocol 1.1 --datatyp 3";
    QTest::newRow("1.2 basic") << "--bpp 5";
    QTest::newRow("1.2") << "";
    QTest::newRow("1.2 bpp 20") << "--bpp 20 --mode 3";
    QTest::newRow("1.3 datatyp 4 extended") << "--protocol 1.3 --datatyp 4 --bpp 12";
    QTest::newRow("1.2 unknown datatyp") << "--datatyp 9";
}

void TstSim::pixelsDecode()
{
    QFETCH(QString, args);
    const SimOptions o = SimArgs::options(args + " --pixels 600 --scene conveyor");
    const bool v11 = o.subProtocol == 1;
    LineComposer composer(o);
    const Scene& scene = composer.scene();
    // Lines whose belt position shows each object, with the top of the
    // highest thing in view (metres above the belt) and its material.
    static const std::tuple<uint64_t, double, Scene::Material> kLines[] = {
        {0, 0.0, Scene::Belt},                    // nothing on the belt
        {450, 0.20, Scene::Cardboard},            // box
        {1200, 0.20, Scene::Metal},               // lying cylinder
        {1750, 0.35, Scene::Cardboard},           // tall box
        {2400, 0.30, Scene::Metal},               // standing cylinder
        {3400, 0.25 * 0.6 / 0.8, Scene::Plastic}, // ramp, rising
        {4000 + 1750, 0.35, Scene::Cardboard},    // the pattern repeats
    };
    vxlindral::GlobalLineParser& parser = vxlindral::GlobalLineParser::instance();
    parser.resetForTest(); // a new stream: its first line chooses the layout
    for (const auto& [line, top, material] : kLines) {
        // Decoded from the header words alone, as the viewer does. The
        // columns it finds must hold what the simulator means, unless the
        // layout disagrees with the pixel decoding about where range sits.
        const std::vector<char>& m = composer.compose(line);
        vxlindral::LineFormat f;
        QVERIFY(f.decode(reinterpret_cast<const strmsocket::LineRawInfo*>(m.data())));
        const vxs::RawPixel px = f.pixels();
        const char* records = px.bytes + px.lineheadersize;
        QCOMPARE(std::size_t(records - m.data() + 600 * o.bpp), m.size());
        vx::RawLineParser layout = *parser.update(f.datatyp, f.mode, f.bpp, nullptr);
        layout.setStride(f.bpp);
        const bool layoutHolds = !layout.empty() && !(v11 && !o.shortLayout && o.datatyp == 3);
        const int layoutBytes = layout.empty() ? o.basicBytes() : layout.bytesPerPixel();
        int dropouts = 0, highestMaterial = -1;
        double highest = -1.0;
        for (int i = 0; i < 600; ++i) {
            const Scene::Sample& s = composer.samples()[std::size_t(i)];
            const double mm = px.range(i);
            const uint32_t gray = px.intensity(i);
            const bool echo = s.material != Scene::None;
            if (!echo) {
                ++dropouts;
                QVERIFY(mm == 0.0 && gray == 0);
            } else {
                // 1.1 carries whole millimetres; 1.2/1.3 tenths, and an even
                // intensity, which decodes as sent.
                QVERIFY(std::fabs(mm - s.range * 1000.0) <= (v11 ? 0.5 : 0.05) + 1e-9);
                QVERIFY(gray > 0 &&
                        (v11 ? gray == s.intensity : gray % 2 == 0 && gray - s.intensity <= 1u));
                const double t = (scene.firstAngle() + i * scene.angleStep()) * M_PI / 180.0;
                const double h = scene.scannerHeight() - s.range * std::cos(t);
                if (h > highest)
                    highest = h, highestMaterial = s.material;
            }
            for (int c = 0; layoutHolds && c < layout.colCount(); ++c) {
                const int64_t v = layout.value(records, i, c);
                const QByteArray name = layout.getColDef(c).name;
                if (name == "range")
                    QCOMPARE(v, int64_t(v11 ? std::llround(mm) : std::llround(mm * 10)));
                else if (name == "intensity")
                    QCOMPARE(v, int64_t(gray));
                else if (name == "status")
                    QCOMPARE(v, int64_t(echo ? 1 : 0));
                else if (name == "flags")
                    QCOMPARE(v, int64_t((echo ? 1 : 0) | (s.material << 8)));
                else if (name == "quality" || name == "echo width")
                    QVERIFY(echo ? v > 0 : v == 0);
            }
            // Bytes no column describes stay 0.
            for (int b = std::max(layoutBytes, o.basicBytes()); b < o.bpp; ++b)
                QCOMPARE(int(records[i * o.bpp + b]), 0);
        }
        // Few dropouts; noise is 0.15 mm, the highest of many samples stays
        // within 1 mm.
        QVERIFY2(dropouts < 600 / 10 && std::fabs(highest - top) < 0.001 &&
                     highestMaterial == material,
                 qPrintable(QString::asprintf("line %d: %d dropouts, %g m of material %d",
                                              int(line), dropouts, highest, highestMaterial)));
    }
}

void TstSim::street_data()
{
    QTest::addColumn<qulonglong>("line");
    QTest::addColumn<int>("angle"); // degrees from straight down, towards +y
    QTest::addColumn<int>("material");
    QTest::addColumn<double>("range"); // metres; 0: no echo
    const std::tuple<const char*, qulonglong, int, int, double> rows[] = {
        {"road below", 0, 0, Scene::Asphalt, 1.5},
        {"near houses", 0, -90, Scene::Masonry, 0.8},
        {"doorway", 450, -90, Scene::Masonry, 1.2},
        {"downpipe", 1000, -90, Scene::Metal, 0.68},
        {"far houses", 0, 90, Scene::Masonry, 20.5},
        {"over the far houses", 0, 120, Scene::None, 0.0},
        {"side street", 4000, 90, Scene::Masonry, 34.0},
        {"footbridge", 1500, 110, Scene::Masonry, 4.0 / std::sin(20 * M_PI / 180)},
        {"street repeats", 6450, -90, Scene::Masonry, 1.2},
    };
    for (const auto& [name, line, angle, material, range] : rows)
        QTest::newRow(name) << line << angle << material << range;
}

void TstSim::street()
{
    QFETCH(qulonglong, line);
    QFETCH(int, angle);
    QFETCH(int, material);
    QFETCH(double, range);
    // 221 pixels over -100..+120 degrees: one degree apart.
    LineComposer composer(SimArgs::options("--pixels 221"));
    QCOMPARE(composer.scene().angleStep(), 1.0);
    composer.compose(line);
    const Scene::Sample& s = composer.samples()[std::size_t(angle + 100)];
    QCOMPARE(int(s.material), material);
    // Range noise is 1 mm.
    QVERIFY2(std::fabs(s.range - range) < 0.005, qPrintable(QString::number(s.range)));
}

// The scenes at other scales: every echo lies where the scene's surfaces
// can be, the echoes span the scene's extent (not a part of it), and the
// file header carries the scene's fan and transform, or nothing at all.
void TstSim::scenesAtScale_data()
{
    QTest::addColumn<QString>("args");
    QTest::addColumn<double>("nearest"); // metres
    QTest::addColumn<double>("farthest");
    QTest::addColumn<double>("fan"); // degrees from pixel 0 to the last
    QTest::addColumn<int>("headerEntries");
    QTest::newRow("belt, 0.3 m") << "--scene belt --pixels 1024" << 0.3 - 0.35 * 0.3
                                 << 0.3 / std::cos(M_PI / 6) << 60.0 << 18;
    QTest::newRow("belt, no header") << "--scene belt --no-header" << 0.195 << 0.347 << 60.0 << 0;
    QTest::newRow("wall, 6 m, no transform")
        << "--scene wall --pixels 300" << 6.0 << 6.0 / std::cos(M_PI / 4) << 90.0 << 2;
    QTest::newRow("tunnel, 40 to 60 m, 1.1")
        << "--scene tunnel --protocol 1.1" << 0.96 * 40 << 60.0 << 270.0 << 18;
    QTest::newRow("bowl") << "--scene bowl --pixels 4096 --protocol 1.3" << 1.5 << 1.55 << 120.0
                          << 18;
}

void TstSim::scenesAtScale()
{
    QFETCH(QString, args);
    QFETCH(double, nearest);
    QFETCH(double, farthest);
    QFETCH(double, fan);
    QFETCH(int, headerEntries);
    const SimOptions o = SimArgs::options(args);
    LineComposer composer(o);
    QCOMPARE(composer.scene().angleStep() * (o.pixels - 1), fan);
    const std::vector<char> header = composer.fileHeader();
    // kind, reserved, device, name length, name, then 12 bytes an entry.
    QCOMPARE(header.empty() ? 0 : int(header.size() - 16 - 13) / 12, headerEntries);
    double lo = HUGE_VAL, hi = 0.0;
    for (uint64_t line = 0; line < 5000; line += 97) {
        composer.compose(line);
        for (const Scene::Sample& sample : composer.samples()) {
            if (sample.material == Scene::None)
                continue;
            // Noise: a few standard deviations beyond the surfaces.
            QVERIFY2(sample.range > nearest * 0.99 && sample.range < farthest * 1.01,
                     qPrintable(QString::number(sample.range)));
            lo = std::min(lo, sample.range);
            hi = std::max(hi, sample.range);
        }
    }
    QVERIFY2(lo < nearest + 0.1 * (farthest - nearest), qPrintable(QString::number(lo)));
    QVERIFY2(hi > farthest - 0.1 * (farthest - nearest), qPrintable(QString::number(hi)));
}

void TstSim::headerWords_data()
{
    QTest::addColumn<QString>("args");
    QTest::addColumn<qulonglong>("line");
    QTest::addColumn<QString>("text"); // the receiver's text of each header word
    // Beyond 2^32 microseconds the timestamp's high word carries.
    QTest::newRow("high word")
        << "--rate 1" << qulonglong(10000000)
        << "10000000|10000000.000000 s|10000000.000000 s|100000000|0x00000003 laser on, "
           "encoder valid|1000 us|22.2 C|1 lines/s";
    QTest::newRow("send time") << "--rate 2000 --stamp-send-time" << qulonglong(4321)
                               << "4321|sent|sent|43210|0x00000003 laser on, encoder valid|250 us|"
                                  "23.5 C|2000 lines/s";
}

void TstSim::headerWords()
{
    QFETCH(QString, args);
    QFETCH(qulonglong, line);
    QFETCH(QString, text);
    const auto monotonicUs = [] {
        timespec ts{};
        clock_gettime(CLOCK_MONOTONIC, &ts);
        return double(ts.tv_sec) * 1e6 + double(ts.tv_nsec / 1000);
    };
    LineComposer composer(SimArgs::options(args + " --pixels 16 --protocol 1.3"));
    const double before = monotonicUs();
    const vxs::LineHeader h{composer.compose(line).data() + 128, 32};
    const double after = monotonicUs();
    QStringList words;
    for (unsigned w = 0; w < 8; ++w)
        words << QString::fromStdString(vxs::LineheaderValue2String(h, w));
    // Stamped lines carry the monotonic microseconds of composing instead.
    if (args.contains("--stamp-send-time")) {
        const double sent = std::round(words[1].section(' ', 0, 0).toDouble() * 1e6);
        QVERIFY2(before <= sent && sent <= after, qPrintable(words[1]));
        words[1] = words[2] = "sent";
    }
    QCOMPARE(words.join('|'), text);
}

QTEST_GUILESS_MAIN(TstSim)
#include "tst_sim.moc"

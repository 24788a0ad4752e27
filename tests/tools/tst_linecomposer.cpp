// Lines of the simulator decode, through the library's own pixel decoding
// and column layouts, to the scene that was sampled; header words and the
// file header tell a receiver what the simulator means.
#include "scanner/lineheader.h"
#include "scanner/linerawinfo.h"
#include "scanner/messageplayer.h"
#include "scanner/rawlineparser.h"
#include "scanner/rawpixel.h"
#include "scanner/vxlinedatastream.h"
#include "simargs.h"
#include "tools/sim/linecomposer.h"

#include <QtTest>
#include <cmath>
#include <cstring>

using vxsim::LineComposer;
using vxsim::Scene;
using vxsim::SimOptions;

namespace {

const strmsocket::LineRawInfo& infoOf(const std::vector<char>& m)
{
    return *reinterpret_cast<const strmsocket::LineRawInfo*>(m.data());
}

// The receiver's choice of layout: basic, or extended for larger records.
vx::RawLineParser layoutOf(const SimOptions& o)
{
    vx::RawLineParser p;
    const auto mode = o.subProtocol == 1 ? vx::RawLineParser::MOD_CLASSIC
                                         : static_cast<vx::RawLineParser::mod_t>(o.mode);
    if (p.detect(o.datatyp, mode, false) && o.bpp > p.bytesPerPixel())
        p.detect(o.datatyp, mode, true);
    p.setStride(o.bpp);
    return p;
}

QString columnNames(const vx::RawLineParser& p)
{
    QStringList names;
    for (int c = 0; c < p.colCount(); ++c)
        names << p.getColDef(c).name;
    return names.join(',');
}

// Lines whose belt position shows each object: nothing, box, box and lying
// cylinder, tall box, standing cylinder, ramp.
const uint64_t kLines[] = {0, 450, 1000, 1750, 2400, 3400};

} // namespace

class TstLineComposer : public QObject
{
    Q_OBJECT
private slots:
    void pixelsDecode_data();
    void pixelsDecode();
    void sceneObjects_data();
    void sceneObjects();
    void headerWords_data();
    void headerWords();
    void geometryThroughLibrary_data();
    void geometryThroughLibrary();
};

void TstLineComposer::pixelsDecode_data()
{
    QTest::addColumn<QStringList>("args");
    QTest::addColumn<QString>("columns"); // the receiver's layout, "" when none is detected
    QTest::newRow("1.1 short") << QStringList{"--protocol", "1.1", "--layout", "short"}
                               << "status,range,intensity";
    QTest::newRow("1.1 long") << QStringList{"--protocol", "1.1"}
                              << "status,quality,range,echo width,intensity";
    QTest::newRow("1.1 long extended")
        << QStringList{"--protocol", "1.1", "--bpp", "12"}
        << "status,quality,range,echo width,intensity,timestamp offset";
    QTest::newRow("1.1 short extended")
        << QStringList{"--protocol", "1.1", "--layout", "short", "--bpp", "8"}
        << "status,range,intensity,quality,echo width";
    // The long layout with the short layout's datatyp: the catalogue reads
    // range elsewhere, so only range and intensity are written.
    QTest::newRow("1.1 long, datatyp 3") << QStringList{"--protocol", "1.1", "--datatyp", "3"}
                                         << "status,range,intensity,quality,echo width";
    QTest::newRow("1.2 basic") << QStringList{"--bpp", "5"} << "range,intensity";
    QTest::newRow("1.2") << QStringList{} << "range,intensity,quality,echo width";
    QTest::newRow("1.2 bpp 20") << QStringList{"--bpp", "20", "--mode", "3"}
                                << "range,intensity,quality,echo width";
    QTest::newRow("1.3 datatyp 4 extended")
        << QStringList{"--protocol", "1.3", "--datatyp", "4", "--bpp", "12"}
        << "range,intensity,quality,echo width,deviation,flags";
    QTest::newRow("1.2 unknown datatyp") << QStringList{"--datatyp", "9"} << "";
    QTest::newRow("1.2 unknown mode") << QStringList{"--mode", "7"} << "";
}

void TstLineComposer::pixelsDecode()
{
    QFETCH(QStringList, args);
    QFETCH(QString, columns);
    const SimOptions o = SimArgs::options(args << "--pixels"
                                               << "600");
    const bool v11 = o.subProtocol == 1;
    LineComposer composer(o);
    const vx::RawLineParser layout = layoutOf(o);
    QCOMPARE(columnNames(layout), columns);
    // The columns a receiver finds must hold what the simulator means, unless
    // the layout disagrees with the pixel decoding about where range sits.
    const bool layoutHolds = !layout.empty() && !(v11 && !o.shortLayout && o.datatyp == 3);
    const int layoutBytes = layout.empty() ? o.basicBytes() : layout.bytesPerPixel();

    for (uint64_t line : kLines) {
        const std::vector<char>& m = composer.compose(line);
        const auto& info = infoOf(m);
        const std::size_t dataOffset = v11 ? 92 : 128;
        QCOMPARE(m.size(), dataOffset + 32 + std::size_t(600) * o.bpp);
        QCOMPARE(info.u32(0), 1u);
        QCOMPARE(info.u32(8), 1u);
        QCOMPARE(info.u32(12), uint32_t(o.subProtocol));
        QCOMPARE(info.word(0), uint32_t(v11 ? o.datatyp : int(o.mode)));
        QCOMPARE(info.word(1), uint32_t(v11 && o.shortLayout ? 1 : 0));
        QCOMPARE(info.word(2), 32u);
        QCOMPARE(info.word(3), uint32_t(o.bpp));
        QCOMPARE(info.word(4), 600u);
        if (!v11)
            QCOMPARE(info.u32(124), uint32_t(o.datatyp));

        vxs::RawPixel px;
        px.protocol = 1;
        px.subProtocol = info.u32(12);
        px.layoutFlag = info.word(1) != 0;
        px.bytes = m.data() + dataOffset;
        px.lineheadersize = 32;
        px.bpp = o.bpp;
        const char* records = px.bytes + 32;
        int dropouts = 0;
        for (int i = 0; i < 600; ++i) {
            const Scene::Sample& s = composer.samples()[std::size_t(i)];
            const double mm = px.range(i);
            const uint32_t gray = px.intensity(i);
            if (s.material == Scene::None) {
                ++dropouts;
                QCOMPARE(mm, 0.0);
                QCOMPARE(gray, 0u);
            } else if (v11) {
                QVERIFY(std::fabs(mm - s.range * 1000.0) <= 0.5 + 1e-9);
                QCOMPARE(gray, uint32_t(s.intensity));
            } else {
                QVERIFY(std::fabs(mm - s.range * 1000.0) <= 0.05 + 1e-9);
                QCOMPARE(gray % 2, 0u); // even: decodes as sent
                QVERIFY(gray == s.intensity || gray == s.intensity + 1u);
            }
            for (int c = 0; layoutHolds && c < layout.colCount(); ++c) {
                const auto def = layout.getColDef(c);
                const int64_t v = layout.value(records, i, c);
                const QByteArray name = def.name;
                const bool echo = s.material != Scene::None;
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
        QVERIFY2(dropouts < 600 / 10, qPrintable(QString("%1 dropouts").arg(dropouts)));
    }
}

void TstLineComposer::sceneObjects_data()
{
    QTest::addColumn<qulonglong>("line");
    QTest::addColumn<double>("top"); // metres above the belt
    QTest::addColumn<int>("material");
    QTest::newRow("belt only") << qulonglong(0) << 0.0 << int(Scene::Belt);
    QTest::newRow("box") << qulonglong(450) << 0.20 << int(Scene::Cardboard);
    QTest::newRow("lying cylinder") << qulonglong(1200) << 0.20 << int(Scene::Metal);
    QTest::newRow("tall box") << qulonglong(1750) << 0.35 << int(Scene::Cardboard);
    QTest::newRow("standing cylinder") << qulonglong(2400) << 0.30 << int(Scene::Metal);
    QTest::newRow("ramp rising") << qulonglong(3400) << 0.25 * 0.6 / 0.8 << int(Scene::Plastic);
    QTest::newRow("pattern repeats") << qulonglong(4000 + 1750) << 0.35 << int(Scene::Cardboard);
}

void TstLineComposer::sceneObjects()
{
    QFETCH(qulonglong, line);
    QFETCH(double, top);
    QFETCH(int, material);
    const Scene scene(2048);
    std::vector<Scene::Sample> samples;
    scene.scan(line, samples);
    double highest = -1.0;
    int highestMaterial = -1;
    for (int i = 0; i < scene.pixels(); ++i) {
        const Scene::Sample& s = samples[std::size_t(i)];
        if (s.material == Scene::None)
            continue;
        const double t = (scene.firstAngle() + i * scene.angleStep()) * M_PI / 180.0;
        const double h = Scene::kScannerHeight - s.range * std::cos(t);
        QVERIFY(s.intensity > 0);
        if (h > highest)
            highest = h, highestMaterial = s.material;
    }
    // Noise is 0.15 mm; the highest of many samples stays within 1 mm.
    QVERIFY2(std::fabs(highest - top) < 0.001, qPrintable(QString::number(highest)));
    QCOMPARE(highestMaterial, material);
}

void TstLineComposer::headerWords_data()
{
    QTest::addColumn<double>("rate");
    QTest::addColumn<qulonglong>("line");
    QTest::addColumn<QString>("timestamp"); // text of word 1
    QTest::newRow("first line") << 2000.0 << qulonglong(0) << "0.000000 s";
    QTest::newRow("2000 lines/s") << 2000.0 << qulonglong(3) << "0.001500 s";
    // Beyond 2^32 microseconds the high word carries.
    QTest::newRow("high word") << 1.0 << qulonglong(10000000) << "10000000.000000 s";
}

void TstLineComposer::headerWords()
{
    QFETCH(double, rate);
    QFETCH(qulonglong, line);
    QFETCH(QString, timestamp);
    LineComposer composer(
        SimArgs::options({"--rate", QString::number(rate), "--pixels", "16", "--protocol", "1.3"}));
    uint64_t previous = 0;
    for (uint64_t n = line; n < line + 3; ++n) {
        const std::vector<char>& m = composer.compose(n);
        const char* head = m.data() + 128;
        uint32_t w[8];
        std::memcpy(w, head, sizeof w);
        const vxs::LineHeader h{head, 32};
        QCOMPARE(w[0], uint32_t(n));
        QCOMPARE(vxs::LineheaderValue2String(h, 0), std::to_string(n));
        const uint64_t t = uint64_t(w[1]) | uint64_t(w[2]) << 32;
        if (n == line)
            QCOMPARE(QString::fromStdString(vxs::LineheaderValue2String(h, 1)), timestamp);
        else
            QCOMPARE(t - previous, uint64_t(std::llround(1e6 / rate)));
        previous = t;
        QCOMPARE(int32_t(w[3]), int32_t(n * LineComposer::kEncoderTicksPerLine));
        const QString status = QString::fromStdString(vxs::LineheaderValue2String(h, 4));
        QVERIFY2(status.contains("laser on") && status.contains("encoder valid") &&
                     !status.contains("sync lost"),
                 qPrintable(status));
        QVERIFY(w[5] >= 2 && w[5] <= 1000);
        QVERIFY(int32_t(w[6]) >= 220 && int32_t(w[6]) <= 250);
        QCOMPARE(vxs::LineheaderValue2String(h, 7), std::to_string(std::lround(rate)) + " lines/s");
    }
}

namespace {

// Receives played messages and checks every pixel's coordinates against
// the scene: belt pixels lie at height 0, all pixels where the beam says.
class GeometryProbe : public VxLinedataStream
{
public:
    const Scene* scene = nullptr;
    const std::vector<Scene::Sample>* samples = nullptr;
    int lines = 0, beltPixels = 0, wrong = 0;
    bool hadHeader = false;

    void OnRawLine(const strmsocket::VxStreamDeviceInfo& device, const char*,
                   const strmsocket::LineRawInfo&, const char*, int count) override
    {
        ++lines;
        hadHeader = GetVxSHeader(device.device) != nullptr;
        for (int i = 0; i < count; ++i) {
            const Scene::Sample& s = (*samples)[std::size_t(i)];
            double x, y, z;
            Set(device.device, i);
            XYZ0(device.device, x, y, z);
            if (s.material == Scene::None)
                continue;
            const double t = (scene->firstAngle() + i * scene->angleStep()) * M_PI / 180.0;
            // Millimetre ranges of protocol 1.1 round by up to 0.5 mm.
            const bool ok = std::fabs(x) < 1e-12 && std::fabs(y - s.range * std::sin(t)) < 6e-4 &&
                            std::fabs(z - (1.0 - s.range * std::cos(t))) < 6e-4;
            wrong += ok ? 0 : 1;
            if (s.material == Scene::Belt) {
                ++beltPixels;
                wrong += std::fabs(z) < 0.0015 ? 0 : 1;
            }
        }
    }
};

} // namespace

void TstLineComposer::geometryThroughLibrary_data()
{
    QTest::addColumn<QStringList>("args");
    QTest::newRow("1.1 short") << QStringList{"--protocol", "1.1", "--layout", "short"};
    QTest::newRow("1.2 device 2") << QStringList{"--device", "2"};
    QTest::newRow("1.3 odd pixel count") << QStringList{"--protocol", "1.3", "--pixels", "777"};
}

void TstLineComposer::geometryThroughLibrary()
{
    QFETCH(QStringList, args);
    const SimOptions o = SimArgs::options(args);
    LineComposer composer(o);
    const std::vector<char> header = composer.fileHeader();
    QCOMPARE(infoOf(header).u32(0), 2u);
    QCOMPARE(infoOf(header).u32(8), o.device);

    GeometryProbe probe;
    probe.scene = &composer.scene();
    probe.samples = &composer.samples();
    strmsocket::MessagePlayer player;
    player.add("127.0.0.1", header);
    player.play(probe);
    const VxSHeader* stored = probe.GetVxSHeader(o.device);
    QVERIFY(stored);
    QCOMPARE(stored->name, std::string("vxscanner-sim"));
    QCOMPARE(stored->GetDouble(100, 0), -30.0);
    QCOMPARE(stored->GetDouble(100, 0) + (o.pixels - 1) * stored->GetDouble(101, 0), 30.0);

    for (uint64_t line : kLines) {
        player.clear();
        player.add("127.0.0.1", composer.compose(line));
        player.play(probe);
    }
    QCOMPARE(probe.lines, int(std::size(kLines)));
    QVERIFY(probe.hadHeader);
    QVERIFY(probe.beltPixels > o.pixels);
    QCOMPARE(probe.wrong, 0);
}

QTEST_GUILESS_MAIN(TstLineComposer)
#include "tst_linecomposer.moc"

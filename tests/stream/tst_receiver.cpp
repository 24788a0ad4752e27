// The line receiver driven by the library's test double (recorded messages
// played into its callbacks): decode limits, pixel decoding, the information
// text, layout detection, the overload bound, file headers and the
// controller's deliberate half-measures.
#include "models/streamdatamodel.h"
#include "scanner/messageplayer.h"
#include "scanner/tickcount.h"
#include "scanner/wireencoder.h"
#include "stream/devicetransform.h"
#include "stream/globallineparser.h"
#include "stream/lineformat.h"
#include "stream/myvxlinedatastream.h"
#include "stream/streamdatacontroller.h"

#include <QSignalSpy>
#include <QtTest>
#include <arpa/inet.h>
#include <cstring>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

using namespace vxlindral;
using strmsocket::WireEncoder;

namespace {

// A receiver with a model but no socket, so that messages can be played
// into it (the player needs an unconnected stream).
struct Bench
{
    std::shared_ptr<StreamDataModel> model = std::make_shared<StreamDataModel>();
    MyVxLinedataStream receiver;
    QSignalSpy texts{model.get(), &StreamDataModel::notifyStatistic};
    QSignalSpy lines{model.get(), &StreamDataModel::newLine};

    Bench()
    {
        receiver.setModel(model, 0);
        receiver.Disconnect(true);
    }
    void play(const std::vector<char>& message)
    {
        strmsocket::MessagePlayer player;
        player.add("10.0.0.7", message);
        player.play(receiver);
    }
    QString lastText() const { return texts.last().at(0).toString(); }
};

// One pixel record of `bpp` bytes with a little-endian value at `offset`.
void put(std::vector<char>& bytes, std::size_t offset, uint32_t value, std::size_t width)
{
    std::memcpy(bytes.data() + offset, &value, width);
}

WireEncoder::RawLine header12(uint32_t pixel, uint32_t bpp = 5, uint32_t datatyp = 2,
                              uint32_t mode = 0)
{
    WireEncoder::RawLine h;
    h.series = 77;
    h.subProtocol = 2;
    h.datatyp = datatyp;
    h.mode = mode;
    h.bpp = bpp;
    h.pixel = pixel;
    h.lineheadersize = 8;
    return h;
}

std::vector<char> rawLine(const WireEncoder::RawLine& h, const std::vector<char>& pixels = {})
{
    std::vector<char> bytes(h.lineheadersize + std::size_t(h.pixel) * h.bpp, 0);
    const uint32_t words[2] = {0xA001, 3};
    std::memcpy(bytes.data(), words, std::min<std::size_t>(sizeof words, h.lineheadersize));
    std::copy(pixels.begin(), pixels.end(), bytes.begin() + h.lineheadersize);
    return WireEncoder::rawLine(h, bytes.data(), bytes.size());
}

// A UDP socket on 127.0.0.1:`port` (0: any free port); -1 when the port
// cannot be bound. Returns the bound port through `bound`.
int udpSocket(int port, int* bound = nullptr)
{
    const int fd = ::socket(AF_INET, SOCK_DGRAM, 0);
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    a.sin_port = htons(static_cast<uint16_t>(port));
    if (::bind(fd, reinterpret_cast<sockaddr*>(&a), sizeof a) != 0) {
        ::close(fd);
        return -1;
    }
    socklen_t len = sizeof a;
    ::getsockname(fd, reinterpret_cast<sockaddr*>(&a), &len);
    if (bound)
        *bound = ntohs(a.sin_port);
    return fd;
}

} // namespace

class TestReceiver : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase() { registerLineType(); }
    void init() { GlobalLineParser::instance().resetForTest(); }
    void decodeLimits_data();
    void decodeLimits();
    void pixelDecoding_data();
    void pixelDecoding();
    void infoTextAndLine();
    void rejectedLineCountsFrame();
    void layoutPerLine();
    void overloadBound();
    void lineWithoutModelIsFreed();
    void fileHeaderTransforms();
    void controllerHalfMeasures();
};

void TestReceiver::decodeLimits_data()
{
    QTest::addColumn<uint32_t>("protocol");
    QTest::addColumn<uint32_t>("sub");
    QTest::addColumn<int32_t>("lineheadersize");
    QTest::addColumn<uint32_t>("pixel");
    QTest::addColumn<uint32_t>("bpp");
    QTest::addColumn<uint32_t>("datatyp");
    QTest::addColumn<bool>("accepted");
    QTest::newRow("1.2 ok") << 1u << 2u << 32 << 2048u << 8u << 2u << true;
    QTest::newRow("1.1 ok") << 1u << 1u << 0 << 1u << 2u << 9999u << true;
    QTest::newRow("1.3 upper limits") << 1u << 3u << 255 << 199999u << 63u << 9999u << true;
    QTest::newRow("protocol 1.4") << 1u << 4u << 32 << 10u << 8u << 2u << false;
    QTest::newRow("protocol 2.2") << 2u << 2u << 32 << 10u << 8u << 2u << false;
    QTest::newRow("pixel 0") << 1u << 2u << 32 << 0u << 8u << 2u << false;
    QTest::newRow("pixel 200000") << 1u << 2u << 32 << 200000u << 8u << 2u << false;
    QTest::newRow("negative pixel") << 1u << 2u << 32 << 0xFFFFFFFFu << 8u << 2u << false;
    QTest::newRow("bpp 1") << 1u << 2u << 32 << 10u << 1u << 2u << false;
    QTest::newRow("bpp 64") << 1u << 2u << 32 << 10u << 64u << 2u << false;
    QTest::newRow("datatyp 1") << 1u << 2u << 32 << 10u << 8u << 1u << false;
    QTest::newRow("datatyp 10000") << 1u << 2u << 32 << 10u << 8u << 10000u << false;
    QTest::newRow("header 256") << 1u << 2u << 256 << 10u << 8u << 2u << false;
    // Compared signed: a negative header size passes the decode.
    QTest::newRow("header negative") << 1u << 2u << -4 << 10u << 8u << 2u << true;
}

void TestReceiver::decodeLimits()
{
    QFETCH(uint32_t, protocol);
    QFETCH(uint32_t, sub);
    QFETCH(int32_t, lineheadersize);
    QFETCH(uint32_t, pixel);
    QFETCH(uint32_t, bpp);
    QFETCH(uint32_t, datatyp);
    QFETCH(bool, accepted);

    strmsocket::LineRawInfo info{};
    const auto set = [&info](std::size_t at, uint32_t v) { std::memcpy(info.bytes + at, &v, 4); };
    set(8, protocol);
    set(12, sub);
    set(24, sub == 1 ? datatyp : 0);
    set(32, static_cast<uint32_t>(lineheadersize));
    set(36, bpp);
    set(40, pixel);
    set(124, datatyp);
    LineFormat format;
    QCOMPARE(format.decode(&info), accepted);
    QVERIFY(!format.decode(nullptr));
}

void TestReceiver::pixelDecoding_data()
{
    QTest::addColumn<uint32_t>("sub");
    QTest::addColumn<bool>("shortLayout");
    QTest::addColumn<int>("rangeAt");
    QTest::addColumn<uint32_t>("rangeWord");
    QTest::addColumn<int>("intensityAt");
    QTest::addColumn<uint32_t>("intensityWord");
    QTest::addColumn<double>("metres");
    QTest::addColumn<uint32_t>("intensity");
    QTest::newRow("1.2 tenths of mm")
        << 2u << false << 0 << 12345u << 3 << 0x0100u << 1.2345 << 0x0100u;
    QTest::newRow("1.2 odd intensity shifts")
        << 2u << false << 0 << 0x1000000u + 10 << 3 << 0x0101u << 0.001 << 0x10100u;
    QTest::newRow("1.3 as 1.2") << 3u << false << 0 << 5000u << 3 << 0xFFFFu << 0.5 << 0xFFFF00u;
    QTest::newRow("1.1 long: mm") << 1u << false << 2 << 1500u << 6 << 0x0101u << 1.5 << 0x0101u;
    QTest::newRow("1.1 short: mm") << 1u << true << 1 << 2500u << 3 << 77u << 2.5 << 77u;
}

void TestReceiver::pixelDecoding()
{
    QFETCH(uint32_t, sub);
    QFETCH(bool, shortLayout);
    QFETCH(int, rangeAt);
    QFETCH(uint32_t, rangeWord);
    QFETCH(int, intensityAt);
    QFETCH(uint32_t, intensityWord);
    QFETCH(double, metres);
    QFETCH(uint32_t, intensity);

    Bench b;
    WireEncoder::RawLine h = header12(2, 8, sub == 1 ? (shortLayout ? 3 : 2) : 2);
    h.subProtocol = sub;
    h.layoutFlag = shortLayout ? 1 : 0;
    std::vector<char> px(16, 0);
    put(px, 8 + std::size_t(rangeAt), rangeWord, sub == 1 ? 2 : 4); // second pixel
    put(px, 8 + std::size_t(intensityAt), intensityWord, 2);
    b.play(rawLine(h, px));
    QTRY_COMPARE(b.lines.count(), 1);
    const LineType line = b.lines.at(0).at(0).value<LineType>();
    QCOMPARE(line->points.size(), std::size_t(2));
    const vxs::VxPt pt = line->points[1];
    QCOMPARE(pt.range, metres);
    QCOMPARE(pt.intensity, intensity);
    QCOMPARE(int(pt.valid), 1);
    QCOMPARE(pt.raw.size(), std::size_t(8));
    QCOMPARE(std::memcmp(pt.raw.data(), px.data() + 8, 8), 0);
}

void TestReceiver::infoTextAndLine()
{
    Bench b;
    std::vector<char> px(3 * 5, 0);
    put(px, 0, 100, 3);
    put(px, 5, 300, 3);
    put(px, 10, 200, 3);
    b.play(rawLine(header12(3), px));
    QCOMPARE(b.texts.count(), 1);
    // The mode name is the one detected before this line (the start state).
    QCOMPARE(b.lastText(), QStringLiteral("frame 0\nip 10.0.0.7\nprotokoll 1 2\ndatatyp 2\n"
                                          "serie 77\npixel 3\nbpp 5\nlineheadersize 8\n"
                                          "mode 0 - classic\n"));
    QCOMPARE(b.model->series(), 77);
    QCOMPARE(b.lines.count(), 0); // delivered by a queued call only
    QTRY_COMPARE(b.lines.count(), 1);

    const LineType line = b.model->currentLine();
    QCOMPARE(line->header.size(), std::size_t(8));
    QCOMPARE(line->data.size(), std::size_t(15));
    QCOMPARE(line->pixel, 3);
    QCOMPARE(line->flags, 200);
    QCOMPARE(line->parser->colCount(), 2);
    QCOMPARE(line->avr.at(0), 200.0);
    QCOMPARE(line->max.at(0), 300.0);
    QCOMPARE(b.model->rowCount(), 3);
    QCOMPARE(b.receiver.linesInFlight(), 0);
    QVERIFY(uint32_t(vxtools::gettickcount()) - MyVxLinedataStream::lastLineTick() < 60000u);

    b.play(rawLine(header12(3)));
    QVERIFY(b.lastText().endsWith(QStringLiteral("mode 0 - peak\n")));
}

void TestReceiver::rejectedLineCountsFrame()
{
    Bench b;
    WireEncoder::RawLine bad = header12(3);
    bad.subProtocol = 4;
    b.play(rawLine(bad));
    QCOMPARE(b.lastText(), QStringLiteral("unknown data\nframe 0\n"));
    b.play(rawLine(header12(3, 1))); // bpp 1
    QCOMPARE(b.lastText(), QStringLiteral("unknown data\nframe 1\n"));
    b.play(rawLine(header12(3)));
    QVERIFY(b.lastText().startsWith(QStringLiteral("frame 2\n")));
    QCOMPARE(b.lastText().count(QLatin1Char('\n')), 9);
    QTRY_COMPARE(b.lines.count(), 1);
    QCOMPARE(b.receiver.frames(), 3u);
}

void TestReceiver::layoutPerLine()
{
    Bench b;
    // Basic layout for bpp 5, the extended one for bpp 8 (wider records),
    // another datatyp, then a pair that has no layout.
    b.play(rawLine(header12(2, 5, 2, 0)));
    b.play(rawLine(header12(2, 8, 4, 0)));
    b.play(rawLine(header12(2, 12, 4, 1)));
    b.play(rawLine(header12(2, 8, 77, 0)));
    QTRY_COMPARE(b.lines.count(), 4);
    const int expected[] = {2, 4, 6, 0};
    for (int i = 0; i < 4; ++i) {
        const LineType line = b.lines.at(i).at(0).value<LineType>();
        QCOMPARE(line->parser->colCount(), expected[i]);
        QCOMPARE(line->parser->stride(), i == 0 ? 5 : i == 2 ? 12 : 8);
    }
    QVERIFY(GlobalLineParser::instance().snapshot().empty());
}

void TestReceiver::overloadBound()
{
    Bench b;
    // Nothing runs the event loop: the queued hand-overs stay in flight.
    for (int i = 0; i < 6; ++i)
        b.play(rawLine(header12(4)));
    QCOMPARE(b.receiver.frames(), 6u);
    QCOMPARE(b.receiver.skippedLines(), uint64_t(2));
    QCOMPARE(b.receiver.linesInFlight(), MyVxLinedataStream::kMaxInFlight);
    QCOMPARE(b.texts.count(), 4); // no text for a skipped line

    QTRY_COMPARE(b.lines.count(), 4);
    QCOMPARE(b.receiver.linesInFlight(), 0);
    b.play(rawLine(header12(4)));
    QVERIFY(b.lastText().startsWith(QStringLiteral("frame 6\n")));
    QTRY_COMPARE(b.lines.count(), 5);
    QCOMPARE(b.receiver.skippedLines(), uint64_t(2));
}

void TestReceiver::lineWithoutModelIsFreed()
{
    // Without a model the line is built and dropped (the leak check of the
    // sanitizer build catches a line that is not freed).
    MyVxLinedataStream receiver;
    strmsocket::MessagePlayer player;
    player.add("10.0.0.7", rawLine(header12(16)));
    player.add("10.0.0.7", rawLine(header12(16)));
    player.play(receiver);
    QCOMPARE(receiver.frames(), 2u);
    QCOMPARE(receiver.linesInFlight(), 0);
    QCOMPARE(receiver.counters().callbackErrors, uint64_t(0));
}

void TestReceiver::fileHeaderTransforms()
{
    MyVxLinedataStream receiver;
    std::vector<std::pair<uint32_t, double>> matrix;
    for (uint32_t k = 0; k < 16; ++k)
        matrix.emplace_back(320 + k, k % 5 == 0 ? 1.0 : 0.0);
    matrix[3].second = 1.5;  // key 323
    matrix[7].second = -2.0; // key 327
    matrix[11].second = 3.0; // key 331

    const auto entry = [](unsigned d) {
        std::lock_guard<std::mutex> guard(DeviceTransform::tableLock());
        return DeviceTransform::entry(d);
    };
    strmsocket::MessagePlayer player;
    player.add("10.0.0.7", WireEncoder::fileHeader(0, "a", matrix));
    player.add("10.0.0.7", WireEncoder::fileHeader(3, "b", matrix)); // no entry for device 3
    player.add("10.0.0.7", WireEncoder::fileHeader(2, "c", {}));     // length 0
    player.add("10.0.0.7", WireEncoder::fileHeader(1, "d", {{327, 4.0}}));
    player.play(receiver);

    const DeviceTransform d0 = entry(0);
    QCOMPARE(d0.receiver, &receiver);
    QCOMPARE(d0.x, 1.5);
    QCOMPARE(d0.y, -2.0);
    QCOMPARE(d0.z, 3.0);
    QCOMPARE(d0.matrix.Get()[3], 1.5);
    QVERIFY(entry(2).receiver != &receiver);
    // Without the matrix keys the translation is still read; the matrix stays.
    const DeviceTransform d1 = entry(1);
    QCOMPARE(d1.receiver, &receiver);
    QCOMPARE(d1.x, 0.0);
    QCOMPARE(d1.y, 4.0);
    QVERIFY(d1.matrix.IsIdentity());
}

void TestReceiver::controllerHalfMeasures()
{
    auto model = std::make_shared<StreamDataModel>();
    StreamDataController controller(model);
    QVERIFY(controller.thread() != QThread::currentThread());
    QVERIFY(!controller.thread()->isRunning());

    // Only the line port gets a socket: the info port stays free.
    int infoPort = 0;
    ::close(udpSocket(0, &infoPort));
    QVERIFY(controller.startStream(0, infoPort));
    QVERIFY(controller.localPort() != 0);
    QVERIFY(!controller.isInfoConnected());
    const int probe = udpSocket(infoPort);
    QVERIFY(probe >= 0);
    ::close(probe);

    controller.pauseStream(true);
    QVERIFY(controller.isPaused());
    controller.pauseStream(false);
    QVERIFY(!controller.isPaused());

    controller.stopStream();
    QVERIFY(controller.localPort() != 0); // the line socket stays open

    const int sender = udpSocket(0);
    sockaddr_in to{};
    to.sin_family = AF_INET;
    to.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    to.sin_port = htons(static_cast<uint16_t>(controller.localPort()));
    const auto message = rawLine(header12(8));
    for (const auto& d : WireEncoder::fragment(1, message.data(), message.size()))
        ::sendto(sender, d.data(), d.size(), 0, reinterpret_cast<sockaddr*>(&to), sizeof to);
    ::close(sender);
    QTRY_VERIFY(model->currentLine() != nullptr);
}

QTEST_GUILESS_MAIN(TestReceiver)
#include "tst_receiver.moc"

// The line receiver fed by the library's message player (no socket): decode
// limits, pixel decoding, the information texts and their bound, per-line
// layouts, recycled lines and file headers; then the controller over
// loopback UDP, and a GUI thread that stalls while lines arrive.
#include "models/streamdatamodel.h"
#include "scanner/lineformat.h"
#include "scanner/messageplayer.h"
#include "scanner/udpsocket.h"
#include "scanner/wireencoder.h"
#include "stream/devicetransform.h"
#include "stream/globallineparser.h"
#include "stream/myvxlinedatastream.h"
#include "stream/streamdatacontroller.h"

#include <QSignalSpy>
#include <QtTest>
#include <algorithm>
#include <arpa/inet.h>
#include <cstring>
#include <sys/socket.h>

using namespace vxlindral;
using strmsocket::WireEncoder;

namespace {

void play(MyVxLinedataStream& receiver, const std::vector<std::vector<char>>& messages)
{
    strmsocket::MessagePlayer player;
    for (const auto& m : messages)
        player.add("10.0.0.7", m);
    player.play(receiver);
}

// A receiver with a model but no socket (the player needs an unconnected
// stream). Nothing runs the event loop unless a test waits.
struct Bench
{
    std::shared_ptr<StreamDataModel> model = std::make_shared<StreamDataModel>();
    MyVxLinedataStream receiver;
    QSignalSpy texts{model.get(), &StreamDataModel::notifyStatistic};
    QSignalSpy lines{model.get(), &StreamDataModel::newLine};

    explicit Bench(const LineQueue::Limits& limits = LineQueue::Limits()) : receiver(limits)
    {
        receiver.setModel(model, 0);
        receiver.Disconnect(true);
    }
    QString lastText() const { return texts.last().at(0).toString(); }
    LineType line(int i) const { return lines.at(i).at(0).value<LineType>(); }
};

// Writes the low `width` bytes of `value` (little-endian) at `offset`.
void put(std::vector<char>& bytes, std::size_t offset, uint32_t value, std::size_t width)
{
    std::memcpy(bytes.data() + offset, &value, width);
}

// The message of one protocol 1.x line of series 77: an 8-byte line header
// (words 0xA001 and 3), then `pixels`, zero-filled to the announced size.
std::vector<char> rawLine(uint32_t pixel, uint32_t bpp = 5, uint32_t datatyp = 2, uint32_t mode = 0,
                          const std::vector<char>& pixels = {}, uint32_t sub = 2,
                          uint32_t layoutFlag = 0)
{
    // series, protocol, sub, device, datatyp, mode, layout flag, header size,
    // bpp, pixel
    const WireEncoder::RawLine h{77, 1, sub, 0, datatyp, mode, layoutFlag, 8, bpp, pixel};
    std::vector<char> bytes(8 + std::size_t(pixel) * bpp, 0);
    put(bytes, 0, 0xA001, 4);
    put(bytes, 4, 3, 4);
    std::copy(pixels.begin(), pixels.end(), bytes.begin() + 8);
    return WireEncoder::rawLine(h, bytes.data(), bytes.size());
}

// Second pixel of an 8-byte record line: the range word (2 bytes for 1.1,
// 4 otherwise) and the 16-bit intensity word at their offsets in the record.
struct PixelRow
{
    const char* name;
    uint32_t sub, layoutFlag, rangeAt, rangeWord, intensityAt, intensityWord, intensity;
    double metres;
} const kPixels[] = {
    {"1.2 tenths of mm", 2, 0, 0, 12345, 3, 0x0100, 0x0100, 1.2345},
    {"1.2 odd intensity shifts", 2, 0, 0, 0x1000000 + 10, 3, 0x0101, 0x10100, 0.001},
    {"1.3 as 1.2", 3, 0, 0, 5000, 3, 0xFFFF, 0xFFFF00, 0.5},
    {"1.1 long: mm", 1, 0, 2, 1500, 6, 0x0101, 0x0101, 1.5},
    {"1.1 short: mm", 1, 1, 1, 2500, 3, 77, 77, 2.5},
};

} // namespace

class TestReceiver : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase() { registerLineType(); }
    void init() { GlobalLineParser::instance().resetForTest(); }
    void decodeLimits()
    {
        const struct
        {
            const char* name;
            uint32_t protocol, sub, lineheadersize, pixel, bpp, datatyp;
            bool accepted;
        } rows[] = {
            {"1.1 lower limits", 1, 1, 0, 1, 2, 9999, true},
            {"1.3 upper limits", 1, 3, 255, 199999, 63, 9999, true},
            {"protocol 1.4", 1, 4, 32, 10, 8, 2, false},
            {"protocol 2.2", 2, 2, 32, 10, 8, 2, false},
            {"pixel 0", 1, 2, 32, 0, 8, 2, false},
            {"pixel 200000", 1, 2, 32, 200000, 8, 2, false},
            {"negative pixel", 1, 2, 32, 0xFFFFFFFF, 8, 2, false},
            {"bpp 1", 1, 2, 32, 10, 1, 2, false},
            {"bpp 64", 1, 2, 32, 10, 64, 2, false},
            {"datatyp 1", 1, 2, 32, 10, 8, 1, false},
            {"datatyp 10000", 1, 2, 32, 10, 8, 10000, false},
            {"header 256", 1, 2, 256, 10, 8, 2, false},
            // Compared signed: a negative header size (-4) passes the decode.
            {"header negative", 1, 2, 0xFFFFFFFC, 10, 8, 2, true},
        };
        for (const auto& r : rows) {
            std::vector<char> message = WireEncoder::rawLine(
                {0, r.protocol, r.sub, 0, r.datatyp, 0, 0, r.lineheadersize, r.bpp, r.pixel},
                nullptr, 0);
            message.resize(sizeof(strmsocket::LineRawInfo)); // a 1.1 header is shorter
            const auto* info = reinterpret_cast<const strmsocket::LineRawInfo*>(message.data());
            QVERIFY2(LineFormat().decode(info) == r.accepted, r.name);
        }
        QVERIFY(!LineFormat().decode(nullptr));
    }
    void pixelDecoding_data()
    {
        QTest::addColumn<int>("row");
        for (int i = 0; i < int(std::size(kPixels)); ++i)
            QTest::newRow(kPixels[i].name) << i;
    }
    void pixelDecoding()
    {
        QFETCH(int, row);
        const PixelRow& r = kPixels[row];
        Bench b;
        std::vector<char> px(16, 0);
        put(px, 8 + r.rangeAt, r.rangeWord, r.sub == 1 ? 2 : 4);
        put(px, 8 + r.intensityAt, r.intensityWord, 2);
        play(b.receiver, {rawLine(2, 8, r.layoutFlag ? 3 : 2, 0, px, r.sub, r.layoutFlag)});
        QTRY_COMPARE(b.lines.count(), 1);
        const LineType line = b.line(0);
        QCOMPARE(line->points.size(), std::size_t(2));
        const vxs::VxPt pt = line->points[1]; // packed: copied, not referenced
        QCOMPARE(pt.range, r.metres);
        QCOMPARE(pt.intensity, r.intensity);
        QCOMPARE(int(pt.valid), 1);
        QVERIFY(pt.raw.size() == 8 && std::memcmp(pt.raw.data(), px.data() + 8, 8) == 0);
    }
    // Nothing runs the event loop until the test waits. Rejected lines
    // (protocol 1.4) give their own text and no line, and still count; of
    // six such texts four may be on their way, the fifth is held and
    // replaced by the sixth, which the drain hands over. Once delivered, the
    // texts go straight out again.
    void infoTextsAndLine()
    {
        LineQueue::Limits limits;
        limits.maxTextsInFlight = 4;
        Bench b(limits);
        const std::vector<char> bad = rawLine(3, 5, 2, 0, {}, 4);
        play(b.receiver, {bad, bad, bad, bad, bad, bad});
        QCOMPARE(b.texts.count(), 4);
        QCOMPARE(b.receiver.handoverCounters().textsDropped, uint64_t(1));
        QTRY_COMPARE(b.texts.count(), 5);
        QCOMPARE(b.lastText(), QStringLiteral("unknown data\nframe 5\n"));

        std::vector<char> px(3 * 5, 0);
        put(px, 0, 100, 3);
        put(px, 5, 300, 3);
        put(px, 10, 200, 3);
        play(b.receiver, {rawLine(3, 5, 2, 0, px)});
        // The mode name is the one detected before this line (the start state).
        QCOMPARE(b.lastText(), QStringLiteral("frame 6\nip 10.0.0.7\nprotokoll 1 2\ndatatyp 2\n"
                                              "serie 77\npixel 3\nbpp 5\nlineheadersize 8\n"
                                              "mode 0 - classic\n"));
        QCOMPARE(b.model->series(), 77);
        QCOMPARE(b.lines.count(), 0); // delivered by a queued call only
        QTRY_COMPARE(b.lines.count(), 1);
        const LineType line = b.model->currentLine();
        QCOMPARE(line->header, (std::vector<uint8_t>{0x01, 0xA0, 0, 0, 3, 0, 0, 0}));
        QVERIFY(line->pixel == 3 && line->data.size() == 15 && line->series == 77);
        // Numbered as counted: the six refused lines came first.
        QCOMPARE(line->frame, 6u);
        QVERIFY(line->avr.at(0) == 200.0 && line->max.at(0) == 300.0);

        play(b.receiver, {rawLine(3)});
        QVERIFY(b.lastText().endsWith(QStringLiteral("mode 0 - peak\n")));
    }
    void layoutsPerLineAndRecycledLines()
    {
        Bench b;
        // Nothing runs the event loop: all six lines wait for the GUI thread.
        // They get the basic layout for bpp 5, the extended one for bpp 8
        // (wider records), another datatyp and mode, none for a pair that
        // has no layout, and the basic one again.
        play(b.receiver, {rawLine(2, 5, 2, 0), rawLine(2, 8, 4, 0), rawLine(2, 12, 4, 1),
                          rawLine(2, 8, 77, 0), rawLine(2), rawLine(3)});
        QTRY_COMPARE(b.lines.count(), 6);
        const int columns[] = {2, 4, 6, 0, 2, 2}, strides[] = {5, 8, 12, 8, 5, 5};
        std::vector<const MyLine*> earlier;
        for (int i = 0; i < 6; ++i) {
            QCOMPARE(b.line(i)->parser->colCount(), columns[i]);
            QCOMPARE(b.line(i)->parser->stride(), strides[i]);
            earlier.push_back(b.line(i).get());
        }

        // Once the model lets them go, the lines come back; the one reused is
        // refilled completely: nothing of its longer, wider past remains.
        b.lines.clear();
        auto next = std::make_shared<StreamDataModel>();
        b.receiver.setModel(next, 0);
        b.receiver.Disconnect(true);
        b.model = next; // the old model and its lines go
        std::vector<char> px(2 * 5, 0);
        put(px, 5, 4242, 3);
        play(b.receiver, {rawLine(2, 5, 2, 0, px)});
        QTRY_VERIFY(next->currentLine() != nullptr);
        const LineType again = next->currentLine();
        const double ranges[] = {again->points[0].range, again->points[1].range}; // packed
        QVERIFY(std::count(earlier.begin(), earlier.end(), again.get()) == 1);
        QVERIFY(again->points.size() == 2 && again->data.size() == 10);
        QVERIFY(again->avr.size() == 2 && again->max.at(0) == 4242.0);
        QVERIFY(ranges[0] == 0.0 && ranges[1] == 0.4242);
    }
    void fileHeadersWithoutModel()
    {
        // Without a model the lines are built and dropped (the leak check of the
        // sanitizer build catches a line that is not freed).
        MyVxLinedataStream receiver;
        // A 4x4 matrix (keys 320..335, row by row) with translation 1.5, -2, 3.
        const std::vector<std::pair<uint32_t, double>> matrix{
            {320, 1.0}, {323, 1.5}, {325, 1.0}, {327, -2.0}, {330, 1.0}, {331, 3.0}, {335, 1.0}};
        play(receiver, {rawLine(16), WireEncoder::fileHeader(0, "a", matrix),
                        WireEncoder::fileHeader(3, "b", matrix), // no entry for device 3
                        WireEncoder::fileHeader(2, "c", {}),     // length 0
                        WireEncoder::fileHeader(1, "d", {{327, 4.0}}), rawLine(16)});
        QCOMPARE(receiver.frames(), 2u);
        QCOMPARE(receiver.counters().callbackErrors, uint64_t(0));

        std::lock_guard<std::mutex> guard(DeviceTransform::tableLock());
        const DeviceTransform& d0 = DeviceTransform::entry(0);
        QCOMPARE(d0.receiver, &receiver);
        QCOMPARE((QList<double>{d0.x, d0.y, d0.z, d0.matrix.Get()[3]}),
                 (QList<double>{1.5, -2.0, 3.0, 1.5}));
        QVERIFY(DeviceTransform::entry(2).receiver != &receiver);
        // Without the matrix keys the translation is still read; the matrix stays.
        const DeviceTransform& d1 = DeviceTransform::entry(1);
        QCOMPARE(d1.receiver, &receiver);
        QCOMPARE((QList<double>{d1.x, d1.y}), (QList<double>{0.0, 4.0}));
        QVERIFY(d1.matrix.IsIdentity());
    }
    // The controller's thread is never started; only the line port gets a
    // socket, the info port stays free; stopping leaves the line socket open,
    // so lines keep arriving.
    void controllerHalfMeasures()
    {
        auto model = std::make_shared<StreamDataModel>();
        StreamDataController controller(model);
        QVERIFY(controller.thread() != QThread::currentThread() &&
                !controller.thread()->isRunning());

        strmsocket::UdpSocket probe;
        QVERIFY(probe.open(0, "127.0.0.1", 0, false));
        const int infoPort = probe.localPort();
        probe.close();
        QVERIFY(controller.startStream(0, infoPort));
        QVERIFY(probe.open(infoPort, "127.0.0.1", 0, false));

        controller.stopStream();
        sockaddr_in to{};
        to.sin_family = AF_INET;
        to.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        to.sin_port = htons(static_cast<uint16_t>(controller.localPort()));
        const auto message = rawLine(8);
        for (const auto& d : WireEncoder::fragment(1, message.data(), message.size()))
            ::sendto(probe.fd(), d.data(), d.size(), 0, reinterpret_cast<sockaddr*>(&to),
                     sizeof to);
        QTRY_VERIFY(model->currentLine() != nullptr);
    }

    // The GUI thread takes nothing while 300 lines arrive (with a hand-over
    // that has room for a few): the receiver stops decoding and the rest
    // wait undecoded. Once the GUI thread runs again, every line comes, in
    // order, and none is dropped.
    void stallCostsNoLine()
    {
        constexpr uint32_t kLines = 300;
        LineQueue::Limits limits;
        limits.roomBytes = 64 << 10;
        limits.resumeBytes = 32 << 10;
        Bench b(limits);
        QVERIFY(b.receiver.Connect(0, "127.0.0.1"));
        strmsocket::UdpSocket out;
        QVERIFY(out.open(0, "127.0.0.1", 0, false));
        sockaddr_in to{};
        to.sin_family = AF_INET;
        to.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        to.sin_port = htons(static_cast<uint16_t>(b.receiver.LocalPort()));
        for (uint32_t n = 0; n < kLines; ++n) {
            std::vector<char> m = rawLine(100, 8);
            put(m, strmsocket::LineRawInfo::kDataOffset12 + 4, n, 4); // line header word 1
            for (const auto& d : WireEncoder::fragment(n, m.data(), m.size()))
                ::sendto(out.fd(), d.data(), d.size(), 0, reinterpret_cast<sockaddr*>(&to),
                         sizeof to);
        }
        const auto received = [&] {
            const auto c = b.receiver.counters();
            return c.rawLines + c.backlogMessages == kLines;
        };
        for (int i = 0; i < 500 && !received(); ++i)
            QThread::msleep(10); // no events: the GUI thread is away
        QVERIFY(received());
        QVERIFY(b.receiver.frames() < 50 && b.receiver.counters().backlogMessages > 250);

        // Woken by the hand-over, not by the receive thread's idle polls
        // (which would take seconds here).
        QTRY_COMPARE_WITH_TIMEOUT(b.lines.count(), int(kLines), 2000);
        for (uint32_t n = 0; n < kLines; ++n) {
            uint32_t word = 0;
            std::memcpy(&word, b.line(int(n))->header.data() + 4, 4);
            QCOMPARE(word, n);
        }
        const auto c = b.receiver.counters();
        QCOMPARE(c.backlogDrops + c.kernelDrops + b.receiver.handoverCounters().droppedMemory,
                 uint64_t(0));
        b.receiver.Disconnect(true);
    }
};

QTEST_GUILESS_MAIN(TestReceiver)
#include "tst_receiver.moc"

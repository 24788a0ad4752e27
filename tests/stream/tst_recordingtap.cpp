// Recording sits before the hand-over: over loopback, a receiver that is
// frozen, or whose GUI thread takes nothing until the backlog overflows,
// still records every datagram that arrived, in order, to the byte.
#include "capture/capturerecorder.h"
#include "capture/datagramextractor.h"
#include "models/streamdatamodel.h"
#include "scanner/udpsocket.h"
#include "scanner/wireencoder.h"
#include "stream/myvxlinedatastream.h"

#include <QTemporaryDir>
#include <QtTest>
#include <arpa/inet.h>
#include <sys/socket.h>

using namespace vxlindral;
using strmsocket::WireEncoder;

class TestRecordingTap : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase() { registerLineType(); }

    void recordsWhatArrived_data()
    {
        QTest::addColumn<bool>("frozen");
        QTest::newRow("frozen") << true;
        QTest::newRow("GUI thread blocked, backlog overflowing") << false;
    }
    void recordsWhatArrived()
    {
        QFETCH(bool, frozen);
        constexpr uint32_t kLines = 300;
        LineQueue::Limits limits;
        limits.roomBytes = 16 << 10;
        limits.resumeBytes = 8 << 10;
        auto model = std::make_shared<StreamDataModel>();
        MyVxLinedataStream receiver(limits);
        receiver.SetBacklogLimit(64 << 10); // some 30 lines
        receiver.pause = frozen;
        QVERIFY(receiver.setModel(model, 0));

        QTemporaryDir dir;
        const std::string path = dir.filePath("tap.pcapng").toStdString();
        const auto port = static_cast<uint16_t>(receiver.LocalPort());
        vxrec::CaptureRecorder recorder(port);
        QVERIFY(recorder.start(path));
        receiver.SetTap(&recorder);

        strmsocket::UdpSocket out;
        QVERIFY(out.open(0, "127.0.0.1", 0, false));
        sockaddr_in to{};
        to.sin_family = AF_INET;
        to.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        to.sin_port = htons(port);
        std::vector<std::vector<char>> sent;
        for (uint32_t n = 0; n < kLines; ++n) {
            const WireEncoder::RawLine h{n, 1, 2, 0, 2, 0, 0, 8, 8, 250};
            const std::vector<char> body(8 + 250 * 8, char(n));
            const auto m = WireEncoder::rawLine(h, body.data(), body.size());
            // Every other line in two datagrams.
            for (auto& d : WireEncoder::fragment(n, m.data(), m.size(), n % 2 ? 65491 : 1200)) {
                ::sendto(out.fd(), d.data(), d.size(), 0, reinterpret_cast<sockaddr*>(&to),
                         sizeof to);
                sent.push_back(std::move(d));
            }
        }
        // No events: the GUI thread takes nothing.
        for (int i = 0; i < 500 && receiver.counters().datagrams < sent.size(); ++i)
            QThread::msleep(10);
        receiver.SetTap(nullptr);
        QVERIFY(recorder.finish());

        const strmsocket::StreamCounters c = receiver.counters();
        QCOMPARE(c.datagrams, uint64_t(sent.size()));
        QCOMPARE(c.kernelDrops, uint64_t(0));
        if (frozen)
            QCOMPARE(c.pausedDiscards, uint64_t(kLines));
        else
            QVERIFY(c.backlogDrops > 100);
        QCOMPARE(recorder.status().lines, uint64_t(kLines));

        vxrec::DatagramExtractor x({port, out.localPort()});
        QVERIFY(x.open(path));
        vxrec::UdpDatagram d;
        std::size_t i = 0;
        while (x.next(d) == vxrec::DatagramExtractor::Status::Datagram) {
            QVERIFY(i < sent.size());
            QCOMPARE(QByteArray(reinterpret_cast<const char*>(d.data), int(d.length)),
                     QByteArray(sent[i].data(), int(sent[i].size())));
            ++i;
        }
        QCOMPARE(i, sent.size());
        receiver.Disconnect(true);
    }
};

QTEST_GUILESS_MAIN(TestRecordingTap)
#include "tst_recordingtap.moc"

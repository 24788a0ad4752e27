#pragma once
// Captures written from the simulator's own lines, for the window tests that
// play them: no sockets needed.
#include "capture/capturerecorder.h"
#include "capture/pcapwriter.h"
#include "tools/sim/linecomposer.h"
#include "tools/sim/linedatagrams.h"
#include "tools/sim/simoptions.h"

#include <QFile>
#include <QFileInfo>
#include <QList>
#include <QString>
#include <QStringList>
#include <string>
#include <vector>

namespace {

// Lines of one simulator set-up.
struct Stretch
{
    QStringList options;
    int lines;
};

// Writes the stretches one after the other as the simulator would send them
// to port 6101: a file header before every 100 lines, a line every 2 ms, each
// message in datagrams of at most 9000 bytes; as a pcap file, or with
// `recorded` as the window's Record capture writes them (pcapng). Returns the
// file's size.
inline qint64 writeCapture(const QString& path, const QList<Stretch>& stretches, bool recorded = false)
{
    const std::string file = QFile::encodeName(path).toStdString();
    vxrec::PcapWriter out;
    vxrec::CaptureRecorder recorder(6101);
    if (!(recorded ? recorder.start(file) : out.open(file)))
        return -1;
    vxsim::LineDatagrams stream(
        [&](int64_t t, const char* d, std::size_t n) {
            if (!recorded) {
                out.write(t, 0x7f000001, 40000, 0x7f000001, 6101,
                          reinterpret_cast<const uint8_t*>(d), n);
                return;
            }
            strmsocket::DatagramSource::Datagram g;
            g.length = n;
            g.sender = g.local = 0x7f000001;
            g.senderPort = 40000;
            g.receivedNs = t;
            recorder.onDatagram(d, g);
        },
        1'700'000'000'000'000'000, 2'000'000, 9000);
    for (const Stretch& s : stretches) {
        std::vector<std::string> args{"sim"};
        for (const QString& o : s.options)
            args.push_back(o.toStdString());
        std::vector<const char*> argv;
        for (const std::string& a : args)
            argv.push_back(a.c_str());
        vxsim::SimOptions options;
        std::string error;
        vxsim::SimOptions::parse(int(argv.size()), argv.data(), options, error);
        vxsim::LineComposer composer(options);
        stream.lines(composer, uint64_t(s.lines));
    }
    if (recorded ? !recorder.finish() : !out.close())
        return -1;
    return QFileInfo(path).size();
}

} // namespace

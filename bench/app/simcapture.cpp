#include "bench/app/simcapture.h"

#include "capture/pcapwriter.h"
#include "tools/sim/linecomposer.h"
#include "tools/sim/linedatagrams.h"
#include "tools/sim/simoptions.h"

#include <QFile>

#include <vector>

bool SimCapture::write(const QString& path, uint64_t lines, int pixels)
{
    return write(path, lines, pixels, Mirror());
}

bool SimCapture::write(const QString& path, uint64_t lines, int pixels, const Mirror& mirror)
{
    vxrec::PcapWriter out;
    if (!out.open(QFile::encodeName(path).toStdString()))
        return false;
    vxsim::SimOptions options;
    options.pixels = pixels;
    vxsim::LineComposer composer(options);
    constexpr int64_t kMinuteNs = int64_t(60) * 1000000000;
    int64_t shift = 0; // the pauses so far
    uint64_t done = 0;
    std::vector<uint8_t> other(1400);
    vxsim::LineDatagrams stream(
        [&](int64_t t, const char* d, std::size_t n) {
            out.write(t + shift, 0x7f000001, 40000, 0x7f000001, kPort,
                      reinterpret_cast<const uint8_t*>(d), n);
        },
        1'700'000'000'000'000'000, 200'000);
    for (; done < lines; ++done) {
        stream.lines(composer, 1);
        const int64_t t = 1'700'000'000'000'000'000 + int64_t(done) * 200'000 + shift;
        for (uint64_t sent = 0; sent < mirror.otherBytesPerLine; sent += other.size()) {
            other[0] = uint8_t(sent);
            out.write(t + 1000, 0x0a000002, 53000, 0x0a000003, 5010, other.data(), other.size());
        }
        if (mirror.pauseEvery && (done + 1) % mirror.pauseEvery == 0)
            shift += kMinuteNs;
    }
    return out.close();
}

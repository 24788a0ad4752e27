#include "bench/app/simcapture.h"

#include "capture/pcapwriter.h"
#include "tools/sim/linecomposer.h"
#include "tools/sim/linedatagrams.h"
#include "tools/sim/simoptions.h"

#include <QFile>

bool SimCapture::write(const QString& path, uint64_t lines, int pixels)
{
    vxrec::PcapWriter out;
    if (!out.open(QFile::encodeName(path).toStdString()))
        return false;
    vxsim::SimOptions options;
    options.pixels = pixels;
    vxsim::LineComposer composer(options);
    vxsim::LineDatagrams stream(
        [&out](int64_t t, const char* d, std::size_t n) {
            out.write(t, 0x7f000001, 40000, 0x7f000001, kPort, reinterpret_cast<const uint8_t*>(d),
                      n);
        },
        1'700'000'000'000'000'000, 200'000);
    stream.lines(composer, lines);
    return out.close();
}

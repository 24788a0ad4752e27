#include "tools/sim/linedatagrams.h"

#include "scanner/wireencoder.h"

#include <utility>

namespace vxsim {

LineDatagrams::LineDatagrams(Sink s, int64_t startNs, int64_t periodNs, std::size_t maxBytes,
                             int headerLines)
    : sink(std::move(s)), timeNs(startNs), period(periodNs), maxDatagram(maxBytes),
      headerEvery(headerLines > 0 ? headerLines : 1)
{
}

void LineDatagrams::lines(LineComposer& composer, uint64_t count)
{
    for (uint64_t k = 0; k < count; ++k, ++line, timeNs += period) {
        if (line % uint64_t(headerEvery) == 0) {
            const std::vector<char> header = composer.fileHeader();
            if (!header.empty()) // --no-header
                send(header);
        }
        send(composer.compose(line));
    }
}

void LineDatagrams::send(const std::vector<char>& message)
{
    for (const auto& d : strmsocket::WireEncoder::fragment(messageNumber++, message.data(),
                                                           message.size(), maxDatagram))
        sink(timeNs, d.data(), d.size());
}

} // namespace vxsim

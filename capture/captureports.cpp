#include "capture/captureports.h"

#include "capture/datagramextractor.h"
#include "scanner/wireformat.h"

#include <map>

namespace vxrec {

bool CapturePorts::scan(const std::string& path, uint64_t maxBytes,
                        const std::atomic<bool>* stop)
{
    found.clear();
    cut = false;
    message.clear();
    DatagramExtractor extractor({0, -1, maxBytes});
    extractor.setStop(stop);
    if (!extractor.open(path)) {
        message = extractor.error();
        return false;
    }
    std::map<uint16_t, uint64_t> lines;
    UdpDatagram d;
    DatagramExtractor::Status s;
    while ((s = extractor.next(d)) == DatagramExtractor::Status::Datagram)
        if (strmsocket::WireFormat::beginsRawLine(d.data, d.length))
            ++lines[d.destinationPort];
    if (s == DatagramExtractor::Status::Error)
        message = extractor.error();
    else if (s == DatagramExtractor::Status::Stopped)
        message = "the scan was stopped";
    cut = extractor.limitReached() || s == DatagramExtractor::Status::Stopped;
    found.reserve(lines.size());
    for (const auto& [port, n] : lines)
        found.push_back(Port{port, n});
    return s != DatagramExtractor::Status::Stopped;
}

uint16_t CapturePorts::choose(const std::vector<Port>& ports)
{
    const Port* best = nullptr;
    for (const Port& p : ports) {
        if (p.port == kLinePort)
            return p.port;
        if (!best || p.lines > best->lines || (p.lines == best->lines && p.port < best->port))
            best = &p;
    }
    return best ? best->port : 0;
}

} // namespace vxrec

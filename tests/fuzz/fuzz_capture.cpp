// libFuzzer target of the capture reader: the input is a capture file
// (pcap or pcapng, any link type) that is read down to the UDP datagrams of
// port 6101 and, in a second pass, of port 5010 (the port of the foreign
// capture among the seeds): link layers, IPv4 checks and reassembly of
// fragments, UDP. The file lives in memory (memfd), so no disk is touched.
#include "capture/datagramextractor.h"

#include <cstdint>
#include <string>
#include <sys/mman.h>
#include <unistd.h>

namespace {

unsigned readAll(const std::string& path, uint16_t port)
{
    vxrec::DatagramExtractor extractor({port, -1});
    if (!extractor.open(path))
        return 0;
    unsigned sum = 0;
    vxrec::UdpDatagram d;
    while (extractor.next(d) == vxrec::DatagramExtractor::Status::Datagram) {
        for (std::size_t i = 0; i < d.length; ++i)
            sum += d.data[i];
        sum += d.sourcePort;
    }
    return sum;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const int fd = ::memfd_create("capture", MFD_CLOEXEC);
    if (fd < 0)
        return 0;
    for (size_t done = 0; done < size;) {
        const ssize_t n = ::write(fd, data + done, size - done);
        if (n <= 0)
            break;
        done += size_t(n);
    }
    const std::string path = "/proc/self/fd/" + std::to_string(fd);
    volatile unsigned sink = readAll(path, 6101) + readAll(path, 5010);
    (void)sink;
    ::close(fd);
    return 0;
}

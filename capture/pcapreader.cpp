#include "capture/pcapreader.h"

#include <algorithm>
#include <cstdio>
#include <pcap/pcap.h>
#include <sys/stat.h>

namespace vxrec {

namespace {
constexpr int64_t kMaxSeconds = 4000000000; // early 2096
} // namespace

PcapReader::~PcapReader()
{
    close();
}

bool PcapReader::open(const std::string& path)
{
    close();
    char err[PCAP_ERRBUF_SIZE] = {};
    handle = pcap_open_offline_with_tstamp_precision(path.c_str(), PCAP_TSTAMP_PRECISION_NANO, err);
    if (!handle) {
        message = err;
        return false;
    }
    dlt = pcap_datalink(handle);
    frames = 0;
    bytesInFile = 0;
    if (FILE* f = pcap_file(handle)) {
        // Positioned once where libpcap stands: from then on the stream
        // knows its offset, and next() asks it without a system call per
        // frame (which cost more than the frame itself when skipping other
        // traffic).
        const off_t at = ftello(f);
        if (at >= 0)
            fseeko(f, at, SEEK_SET);
        struct stat st
        {
        };
        if (::fstat(fileno(f), &st) == 0 && st.st_size > 0)
            bytesInFile = uint64_t(st.st_size);
    }
    message.clear();
    return true;
}

PcapReader::Status PcapReader::next(Frame& frame)
{
    if (!handle) {
        message = "no capture open";
        return Status::Error;
    }
    pcap_pkthdr* header = nullptr;
    const u_char* data = nullptr;
    // libpcap reads a savefile record by record, so the stream's position
    // is where the next record starts.
    FILE* f = pcap_file(handle);
    const off_t at = f ? ftello(f) : -1;
    frame.offset = at > 0 ? uint64_t(at) : 0;
    switch (pcap_next_ex(handle, &header, &data)) {
    case 1:
        ++frames;
        // Opened with nanosecond precision: tv_usec holds nanoseconds. A
        // pcapng file may state any time at all: seconds are kept within
        // 1970 .. 2096, so that times and their differences fit 64 bits.
        frame.timeNs = std::clamp<int64_t>(header->ts.tv_sec, 0, kMaxSeconds) * 1000000000 +
                       std::clamp<int64_t>(header->ts.tv_usec, 0, 999999999);
        frame.data = data;
        frame.capturedLength = header->caplen;
        frame.originalLength = header->len;
        return Status::Frame;
    case PCAP_ERROR_BREAK:
        return Status::End;
    default:
        message = pcap_geterr(handle);
        return Status::Error;
    }
}

bool PcapReader::seek(uint64_t offset)
{
    FILE* f = handle ? pcap_file(handle) : nullptr;
    if (!f || fseeko(f, off_t(offset), SEEK_SET) != 0) {
        message = "cannot go to byte " + std::to_string(offset) + " of the capture";
        return false;
    }
    return true;
}

void PcapReader::close()
{
    if (handle)
        pcap_close(handle);
    handle = nullptr;
    dlt = -1;
}

} // namespace vxrec

#include "capture/pcapreader.h"

#include <pcap/pcap.h>

namespace vxrec {

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
    switch (pcap_next_ex(handle, &header, &data)) {
    case 1:
        ++frames;
        // Opened with nanosecond precision: tv_usec holds nanoseconds.
        frame.timeNs = int64_t(header->ts.tv_sec) * 1000000000 + header->ts.tv_usec;
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

void PcapReader::close()
{
    if (handle)
        pcap_close(handle);
    handle = nullptr;
    dlt = -1;
}

} // namespace vxrec

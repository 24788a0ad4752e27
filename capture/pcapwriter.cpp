#include "capture/pcapwriter.h"

namespace vxrec {

namespace {
constexpr uint32_t kMagicNanoseconds = 0xa1b23c4d;
constexpr uint32_t kLinkTypeRaw = 101; // LINKTYPE_RAW: the frame is the IP packet
constexpr uint32_t kSnapLength = 65535;
} // namespace

void PcapWriter::putHeader()
{
    // The file is written in host byte order, which the magic announces.
    const uint32_t magic = kMagicNanoseconds;
    const uint16_t version[] = {2, 4};
    const uint32_t rest[] = {0 /* time zone */, 0 /* timestamp accuracy */, kSnapLength,
                             kLinkTypeRaw};
    put(&magic, sizeof magic);
    put(version, sizeof version);
    put(rest, sizeof rest);
}

void PcapWriter::putRecord(int64_t timeNs, const uint8_t* headers, const uint8_t* data,
                           std::size_t n)
{
    const auto caplen = static_cast<uint32_t>(kIpUdpHeaders + n);
    const uint32_t record[] = {static_cast<uint32_t>(timeNs / 1000000000),
                               static_cast<uint32_t>(timeNs % 1000000000), caplen, caplen};
    put(record, sizeof record);
    put(headers, kIpUdpHeaders);
    put(data, n);
}

} // namespace vxrec

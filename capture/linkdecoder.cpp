#include "capture/linkdecoder.h"

#include "capture/netbytes.h"

#include <pcap/dlt.h>

namespace vxrec {

namespace {

constexpr uint16_t kEtherIpv4 = 0x0800;

bool isVlanTag(uint16_t type)
{
    return type == 0x8100 || type == 0x88a8 || type == 0x9100;
}

// Skips VLAN tags starting at `at` (where the tag's TCI begins, with `type`
// the ether type that announced it), then accepts IPv4 only.
LinkDecoder::Result afterEtherType(const uint8_t* f, std::size_t n, std::size_t at, uint16_t type)
{
    LinkDecoder::Result r;
    while (isVlanTag(type)) {
        if (n < at + 4) {
            r.skip = SkipKind::TruncatedFrame;
            return r;
        }
        type = be16(f + at + 2);
        at += 4;
    }
    if (type != kEtherIpv4) {
        r.skip = SkipKind::NonIpv4;
        return r;
    }
    if (n <= at) {
        r.skip = SkipKind::TruncatedFrame;
        return r;
    }
    r.ok = true;
    r.packet = f + at;
    r.length = n - at;
    return r;
}

LinkDecoder::Result rawIp(const uint8_t* f, std::size_t n)
{
    LinkDecoder::Result r;
    if (n == 0) {
        r.skip = SkipKind::TruncatedFrame;
        return r;
    }
    if (f[0] >> 4 != 4) {
        r.skip = SkipKind::NonIpv4;
        return r;
    }
    r.ok = true;
    r.packet = f;
    r.length = n;
    return r;
}

} // namespace

LinkDecoder::LinkDecoder(int dlt) : dlt(dlt)
{
    switch (dlt) {
    case DLT_EN10MB:
        kind = Kind::Ethernet;
        break;
    case DLT_LINUX_SLL:
        kind = Kind::LinuxCooked;
        break;
    case DLT_LINUX_SLL2:
        kind = Kind::LinuxCooked2;
        break;
    case 12:  // DLT_RAW on most systems
    case 14:  // DLT_RAW on OpenBSD, found in files written there
    case 101: // LINKTYPE_RAW, should a file's value come through unmapped
        kind = Kind::RawIp;
        break;
    case DLT_IPV4:
        kind = Kind::RawIpv4;
        break;
    case DLT_NULL:
    case DLT_LOOP:
        kind = Kind::Loopback;
        break;
    default:
        kind = Kind::Unsupported;
        break;
    }
}

std::string LinkDecoder::linkName() const
{
    switch (kind) {
    case Kind::Ethernet:
        return "Ethernet";
    case Kind::LinuxCooked:
        return "Linux cooked v1";
    case Kind::LinuxCooked2:
        return "Linux cooked v2";
    case Kind::RawIp:
        return "raw IP";
    case Kind::RawIpv4:
        return "raw IPv4";
    case Kind::Loopback:
        return "BSD loopback";
    case Kind::Unsupported:
        break;
    }
    return "DLT " + std::to_string(dlt);
}

LinkDecoder::Result LinkDecoder::decode(const uint8_t* f, std::size_t n) const
{
    Result r;
    switch (kind) {
    case Kind::Ethernet:
        // destination MAC, source MAC, ether type (or 802.3 length <= 1500)
        if (n < 14) {
            r.skip = SkipKind::TruncatedFrame;
            return r;
        }
        return afterEtherType(f, n, 14, be16(f + 12));
    case Kind::LinuxCooked:
        // packet type, ARPHRD type, address length, 8 address bytes, protocol
        if (n < 16) {
            r.skip = SkipKind::TruncatedFrame;
            return r;
        }
        return afterEtherType(f, n, 16, be16(f + 14));
    case Kind::LinuxCooked2:
        // protocol, reserved, interface index, ARPHRD type, packet type,
        // address length, 8 address bytes
        if (n < 20) {
            r.skip = SkipKind::TruncatedFrame;
            return r;
        }
        return afterEtherType(f, n, 20, be16(f));
    case Kind::RawIp:
    case Kind::RawIpv4:
        return rawIp(f, n);
    case Kind::Loopback: {
        // 4-byte address family in the byte order of the capturing host
        if (n < 4) {
            r.skip = SkipKind::TruncatedFrame;
            return r;
        }
        const bool inet = (f[0] == 2 && f[1] == 0 && f[2] == 0 && f[3] == 0) ||
                          (f[0] == 0 && f[1] == 0 && f[2] == 0 && f[3] == 2);
        if (!inet)
            return r;
        return rawIp(f + 4, n - 4);
    }
    case Kind::Unsupported:
        break;
    }
    return r;
}

} // namespace vxrec

#pragma once
#include "capture/skipcounters.h"

#include <cstddef>
#include <cstdint>
#include <string>

namespace vxrec {

// Finds the IPv4 packet inside a captured frame of one link type: Ethernet
// (with any number of 802.1Q/802.1ad VLAN tags), Linux cooked capture v1 and
// v2, raw IP, raw IPv4 and BSD loopback. Stateless after construction; any
// thread.
class LinkDecoder
{
public:
    // `dlt`: libpcap's DLT_ value of the capture's link type.
    explicit LinkDecoder(int dlt);

    bool supported() const { return kind != Kind::Unsupported; }
    // A readable name of the link type ("Ethernet", "DLT 147", ...).
    std::string linkName() const;

    struct Result
    {
        bool ok = false;                   // an IPv4 packet was found
        SkipKind skip = SkipKind::NonIpv4; // why not, when !ok
        const uint8_t* packet = nullptr;   // the IPv4 packet
        std::size_t length = 0;            // its captured bytes
    };
    Result decode(const uint8_t* frame, std::size_t capturedLength) const;

private:
    enum class Kind
    {
        Ethernet,
        LinuxCooked,
        LinuxCooked2,
        RawIp,
        RawIpv4,
        Loopback,
        Unsupported
    };
    Kind kind;
    int dlt;
};

} // namespace vxrec

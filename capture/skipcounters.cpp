#include "capture/skipcounters.h"

namespace vxrec {

uint64_t SkipCounters::total() const
{
    uint64_t t = 0;
    for (uint64_t c : counts)
        t += c;
    return t;
}

std::string SkipCounters::summary() const
{
    std::string s;
    for (std::size_t i = 0; i < counts.size(); ++i) {
        if (!counts[i])
            continue;
        if (!s.empty())
            s += ", ";
        s += std::to_string(counts[i]) + ' ' + name(static_cast<SkipKind>(i));
    }
    return s.empty() ? "none" : s;
}

const char* SkipCounters::name(SkipKind kind)
{
    switch (kind) {
    case SkipKind::NonIpv4:
        return "non-IPv4";
    case SkipKind::NonUdp:
        return "non-UDP";
    case SkipKind::OtherPort:
        return "other port";
    case SkipKind::TruncatedFrame:
        return "truncated frame";
    case SkipKind::BadIpHeader:
        return "bad IP header";
    case SkipKind::BadUdpHeader:
        return "bad UDP header";
    case SkipKind::BadFragment:
        return "bad fragment";
    case SkipKind::UnfinishedFragments:
        return "unfinished fragmented datagram";
    case SkipKind::Count_:
        break;
    }
    return "?";
}

} // namespace vxrec

#include "capture/linecounter.h"

#include "scanner/wireformat.h"

#include <cstring>

namespace vxrec {

namespace {

uint32_t word(const uint8_t* p, std::size_t at)
{
    uint32_t v;
    std::memcpy(&v, p + at, sizeof v);
    return v;
}

} // namespace

LineCounter::LineCounter() : assembler([this] { return nowMs; }) {}

uint64_t LineCounter::incompleteMessages(bool pending) const
{
    return incomplete + (pending ? assembler.pendingMessages() : 0);
}

void LineCounter::clear()
{
    assembler.clear();
    starts.clear();
}

LineCounter::Start* LineCounter::findStart(uint32_t sender, uint32_t number, int64_t timeNs)
{
    for (auto it = starts.begin(); it != starts.end(); ++it) {
        if (it->sender != sender || it->number != number)
            continue;
        // A number last heard longer ago than the reassembly waits belongs
        // to a message given up since: this piece begins another.
        constexpr int64_t kStaleNs =
            int64_t(strmsocket::WireFormat::kIncompleteTimeoutMs) * 1000000;
        if (timeNs - it->lastNs > kStaleNs) {
            starts.erase(it);
            return nullptr;
        }
        return &*it;
    }
    return nullptr;
}

LineCounter::Result LineCounter::feed(const UdpDatagram& d)
{
    using strmsocket::MessageAssembler;
    using strmsocket::WireFormat;
    Result result;
    nowMs = d.timeNs > 0 ? uint64_t(d.timeNs / 1000000) : 0;

    // Where the message of a piece began: the piece itself when it carries
    // the whole message, else the first piece of its number seen lately.
    const bool piece = d.length >= WireFormat::kDatagramHeader &&
                       word(d.data, 8) != d.length - WireFormat::kDatagramHeader;
    uint64_t firstOffset = d.offset;
    int64_t firstNs = d.timeNs;
    const uint32_t number = piece ? word(d.data, 4) : 0;
    if (piece) {
        if (Start* s = findStart(d.source, number, d.timeNs)) {
            firstOffset = s->offset;
            firstNs = s->firstNs;
            s->lastNs = d.timeNs;
        } else {
            if (starts.size() >= kMaxStarts)
                starts.pop_front();
            starts.push_back(Start{d.source, number, d.offset, d.timeNs, d.timeNs});
        }
    }

    bytes.resize(d.length + MessageAssembler::kTail);
    std::memcpy(bytes.data(), d.data, d.length);
    const MessageAssembler::Result r =
        assembler.feed(d.source, bytes.data(), d.length, bytes.size());
    incomplete += uint64_t(r.lost);
    if (!r.message)
        return result;
    if (piece) {
        for (auto it = starts.begin(); it != starts.end(); ++it)
            if (it->sender == d.source && it->number == number) {
                starts.erase(it);
                break;
            }
    }
    result.firstOffset = firstOffset;
    result.firstNs = firstNs;
    uint32_t kind = 0;
    if (r.length >= sizeof kind)
        std::memcpy(&kind, r.message, sizeof kind);
    result.completed = kind == WireFormat::kRawLine      ? Completed::Line
                       : kind == WireFormat::kFileHeader ? Completed::FileHeader
                                                         : Completed::Other;
    return result;
}

} // namespace vxrec

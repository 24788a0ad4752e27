#include "capture/datagramextractor.h"

#include "capture/netbytes.h"

namespace vxrec {

DatagramExtractor::DatagramExtractor(Filter filter) : filter(filter) {}

bool DatagramExtractor::open(const std::string& path)
{
    finished = false;
    limited = false;
    firstNs = 0;
    if (!reader.open(path)) {
        message = reader.error();
        return false;
    }
    link = LinkDecoder(reader.linkType());
    if (!link.supported()) {
        message = "unsupported link type " + link.linkName() +
                  " (Ethernet, Linux cooked v1/v2 and raw IPv4 are read)";
        reader.close();
        return false;
    }
    return true;
}

DatagramExtractor::Status DatagramExtractor::next(UdpDatagram& out)
{
    if (finished)
        return Status::End;
    PcapReader::Frame frame;
    for (;;) {
        if (stop && stop->load(std::memory_order_relaxed))
            return Status::Stopped;
        const PcapReader::Status s = reader.next(frame);
        if (s != PcapReader::Status::Frame) {
            // What is still in pieces at the end will never be complete.
            reassembler.finish();
            finished = true;
            if (s == PcapReader::Status::End)
                return Status::End;
            message = reader.error();
            return Status::Error;
        }
        if (frame.offset >= filter.endOffset) {
            reassembler.finish();
            finished = limited = true;
            return Status::End;
        }
        if (reader.framesRead() == 1 && firstNs == 0)
            firstNs = frame.timeNs;
        lastOffset = frame.offset;
        const LinkDecoder::Result ip = link.decode(frame.data, frame.capturedLength);
        if (!ip.ok) {
            skips.add(ip.skip);
            continue;
        }
        Ipv4Reassembler::Packet packet;
        if (!reassembler.push(frame.timeNs, ip.packet, ip.length, packet, frame.offset))
            continue;
        const std::size_t udpLength = packet.length >= 8 ? be16(packet.payload + 4) : 0;
        if (udpLength < 8 || udpLength > packet.length) {
            skips.add(SkipKind::BadUdpHeader);
            continue;
        }
        out.sourcePort = be16(packet.payload);
        out.destinationPort = be16(packet.payload + 2);
        if ((filter.port != 0 && out.destinationPort != filter.port) ||
            (filter.sourcePort >= 0 && out.sourcePort != filter.sourcePort)) {
            skips.add(SkipKind::OtherPort);
            continue;
        }
        out.timeNs = frame.timeNs;
        out.offset = packet.firstFrame;
        out.source = packet.source;
        out.destination = packet.destination;
        out.data = packet.payload + 8;
        out.length = udpLength - 8;
        return Status::Datagram;
    }
}

bool DatagramExtractor::seek(uint64_t offset)
{
    reassembler.clear();
    finished = limited = false;
    if (!reader.seek(offset)) {
        message = reader.error();
        return false;
    }
    return true;
}

} // namespace vxrec

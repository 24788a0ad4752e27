#pragma once
#include "scanner/udplinedatastream.h"
#include "scanner/vxstreamdeviceinfo.h"

#include <string>
#include <vector>

namespace strmsocket {

// Test double for the receive path: plays recorded messages into a stream's
// callbacks on the calling thread, without a socket, honouring the stream's
// pause flag exactly as the receive thread does (it uses the same dispatch).
// Threads: one thread at a time; the stream must not be connected.
class MessagePlayer
{
public:
    struct Message
    {
        VxStreamDeviceInfo sender;
        std::vector<char> bytes;
    };

    void add(const std::string& senderIp, std::vector<char> message);
    void add(Message m) { messages.push_back(std::move(m)); }
    // Delivers every message in order; returns how many were played.
    std::size_t play(UDPLinedataStream& target) const;
    const std::vector<Message>& recorded() const { return messages; }
    void clear() { messages.clear(); }

private:
    std::vector<Message> messages;
};

} // namespace strmsocket

#include "scanner/messageplayer.h"

#include <cstring>

namespace strmsocket {

void MessagePlayer::add(const std::string& senderIp, std::vector<char> message)
{
    Message m;
    std::strncpy(m.sender.ip, senderIp.c_str(), sizeof m.sender.ip - 1);
    m.bytes = std::move(message);
    messages.push_back(std::move(m));
}

std::size_t MessagePlayer::play(UDPLinedataStream& target) const
{
    for (const Message& m : messages)
        target.DeliverMessage(m.sender, m.bytes.data(), m.bytes.size());
    return messages.size();
}

} // namespace strmsocket

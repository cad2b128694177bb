#pragma once

#include <memory>
#include <vector>

#include "chanlink/messages/ChannelListMessage.h"
#include "chanlink/messages/OpCode.h"

// Client to server: the channels whose values are wanted.
class GetRequest : public ChannelListMessage {
public:
    static constexpr OpCode Code = 0;

    // Stores the payload unchecked.
    explicit GetRequest(std::vector<unsigned char> payload);

    // A channel list with opcode 0.
    static bool validate(const std::vector<unsigned char>& payload);
    // A GetRequest of the payload, or an empty pointer when validate rejects it.
    static std::shared_ptr<const Message> read(const std::vector<unsigned char>& payload);
    // The message for these ids; an empty pointer for more than 65535 ids.
    static std::shared_ptr<const Message> newInstance(const std::vector<unsigned int>& channelIds);
};

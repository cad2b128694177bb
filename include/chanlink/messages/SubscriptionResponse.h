#pragma once

#include <memory>
#include <vector>

#include "chanlink/messages/ChannelListMessage.h"
#include "chanlink/messages/OpCode.h"

// Server to client: the channels whose subscription is acknowledged.
class SubscriptionResponse : public ChannelListMessage {
public:
    static constexpr OpCode Code = 13;

    // Stores the payload unchecked.
    explicit SubscriptionResponse(std::vector<unsigned char> payload);

    // A channel list with opcode 13.
    static bool validate(const std::vector<unsigned char>& payload);
    // A SubscriptionResponse of the payload, or an empty pointer when validate rejects it.
    static std::shared_ptr<const Message> read(const std::vector<unsigned char>& payload);
    // The message for these ids; an empty pointer for more than 65535 ids.
    static std::shared_ptr<const Message> newInstance(const std::vector<unsigned int>& channelIds);
};

#pragma once

#include <memory>
#include <vector>

#include "chanlink/messages/ChannelListMessage.h"
#include "chanlink/messages/OpCode.h"

// Client to server: the channels to subscribe to.
//
// Subscription and unsubscription requests share opcode 3 and their payloads
// are byte for byte alike; deployed peers expect exactly that, so a receiver
// cannot tell the two apart by their bytes.
class SubscriptionRequest : public ChannelListMessage {
public:
    static constexpr OpCode Code = 3;

    // Stores the payload unchecked.
    explicit SubscriptionRequest(std::vector<unsigned char> payload);

    // A channel list with opcode 3.
    static bool validate(const std::vector<unsigned char>& payload);
    // A SubscriptionRequest of the payload, or an empty pointer when validate rejects it.
    static std::shared_ptr<const Message> read(const std::vector<unsigned char>& payload);
    // The message for these ids; an empty pointer for more than 65535 ids.
    static std::shared_ptr<const Message> newInstance(const std::vector<unsigned int>& channelIds);
};

#include "chanlink/messages/SubscriptionResponse.h"

#include <utility>

#include "ValidatedRead.h"

SubscriptionResponse::SubscriptionResponse(std::vector<unsigned char> payload)
    : ChannelListMessage(std::move(payload)) {}

bool SubscriptionResponse::validate(const std::vector<unsigned char>& payload) {
    return ChannelListMessage::validate(Code, payload);
}

std::shared_ptr<const Message> SubscriptionResponse::read(
    const std::vector<unsigned char>& payload) {
    return chanlink_detail::readValidated<SubscriptionResponse>(payload);
}

std::shared_ptr<const Message> SubscriptionResponse::newInstance(
    const std::vector<unsigned int>& channelIds) {
    std::vector<unsigned char> payload = newFrame(Code);
    populateInstance(payload, channelIds);
    return readBuilt<SubscriptionResponse>(std::move(payload));
}

#include "chanlink/messages/SubscriptionRequest.h"

#include <utility>

#include "ValidatedRead.h"

SubscriptionRequest::SubscriptionRequest(std::vector<unsigned char> payload)
    : ChannelListMessage(std::move(payload)) {}

bool SubscriptionRequest::validate(const std::vector<unsigned char>& payload) {
    return ChannelListMessage::validate(Code, payload);
}

std::shared_ptr<const Message> SubscriptionRequest::read(
    const std::vector<unsigned char>& payload) {
    return chanlink_detail::readValidated<SubscriptionRequest>(payload);
}

std::shared_ptr<const Message> SubscriptionRequest::newInstance(
    const std::vector<unsigned int>& channelIds) {
    std::vector<unsigned char> payload = newFrame(Code);
    populateInstance(payload, channelIds);
    return readBuilt<SubscriptionRequest>(std::move(payload));
}

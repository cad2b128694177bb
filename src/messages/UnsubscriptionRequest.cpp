#include "chanlink/messages/UnsubscriptionRequest.h"

#include <utility>

#include "ValidatedRead.h"

UnsubscriptionRequest::UnsubscriptionRequest(std::vector<unsigned char> payload)
    : ChannelListMessage(std::move(payload)) {}

bool UnsubscriptionRequest::validate(const std::vector<unsigned char>& payload) {
    return ChannelListMessage::validate(Code, payload);
}

std::shared_ptr<const Message> UnsubscriptionRequest::read(
    const std::vector<unsigned char>& payload) {
    return chanlink_detail::readValidated<UnsubscriptionRequest>(payload);
}

std::shared_ptr<const Message> UnsubscriptionRequest::newInstance(
    const std::vector<unsigned int>& channelIds) {
    std::vector<unsigned char> payload = newFrame(Code);
    populateInstance(payload, channelIds);
    return readBuilt<UnsubscriptionRequest>(std::move(payload));
}

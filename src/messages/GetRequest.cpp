#include "chanlink/messages/GetRequest.h"

#include <utility>

#include "ValidatedRead.h"

GetRequest::GetRequest(std::vector<unsigned char> payload)
    : ChannelListMessage(std::move(payload)) {}

bool GetRequest::validate(const std::vector<unsigned char>& payload) {
    return ChannelListMessage::validate(Code, payload);
}

std::shared_ptr<const Message> GetRequest::read(const std::vector<unsigned char>& payload) {
    return chanlink_detail::readValidated<GetRequest>(payload);
}

std::shared_ptr<const Message> GetRequest::newInstance(
    const std::vector<unsigned int>& channelIds) {
    std::vector<unsigned char> payload = newFrame(Code);
    populateInstance(payload, channelIds);
    return readBuilt<GetRequest>(std::move(payload));
}

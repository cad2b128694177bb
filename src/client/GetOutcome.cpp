#include "chanlink/client/GetOutcome.h"

#include "chanlink/messages/ErrorResponse.h"

GetOutcome::GetOutcome(const unsigned int& channelId, const unsigned char& reasonCode)
    : channelId(channelId), reasonCode(reasonCode) {}

GetOutcome::GetOutcome(const unsigned int& channelId, std::vector<unsigned char> header,
                       std::vector<unsigned char> data, const unsigned char& reasonCode)
    : channelId(channelId),
      header(std::move(header)),
      data(std::move(data)),
      reasonCode(reasonCode) {}

GetOutcome::GetOutcome(const ChannelValue& value)
    : channelId(value.getChannelId()),
      header(value.getHeader()),
      data(value.getData()),
      reasonCode(SuccessCode) {}

GetOutcome::GetOutcome(const ErrorResponse& error)
    : channelId(error.getChannelId()), reasonCode(error.getReasonCode()) {}

GetOutcome::~GetOutcome() = default;

ChannelValue GetOutcome::getChannelValue() const {
    return ChannelValue(channelId, header, data);
}

bool GetOutcome::operator==(const GetOutcome& other) const {
    return channelId == other.channelId && reasonCode == other.reasonCode &&
           header == other.header && data == other.data;
}

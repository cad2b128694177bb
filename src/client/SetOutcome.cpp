#include "chanlink/client/SetOutcome.h"

#include "chanlink/messages/ErrorResponse.h"
#include "chanlink/messages/SetResponse.h"

SetOutcome::SetOutcome(unsigned int channelId, unsigned char reasonCode)
    : channelId(channelId), reasonCode(reasonCode) {}

SetOutcome::SetOutcome(const SetResponse& response)
    : channelId(response.getChannelId()), reasonCode(SuccessCode) {}

SetOutcome::SetOutcome(const ErrorResponse& error)
    : channelId(error.getChannelId()), reasonCode(error.getReasonCode()) {}

SetOutcome::~SetOutcome() = default;

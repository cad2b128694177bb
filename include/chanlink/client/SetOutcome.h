#pragma once

#include "chanlink/messages/ReasonCode.h"

class ErrorResponse;
class SetResponse;

// The answer to one set. Reason codes: 255 success; 1 the request could not
// be built (nothing was sent); 131 discarded by reset() or by the set
// manager's destruction before an answer came; any other value is the
// server's own reason from an error response.
class SetOutcome {
public:
    static constexpr unsigned char SuccessCode = ReasonCode::Success;
    static constexpr unsigned char RequestNotBuilt = ReasonCode::SetRequestNotBuilt;
    static constexpr unsigned char Discarded = ReasonCode::Discarded;

    SetOutcome(unsigned int channelId, unsigned char reasonCode);
    // The response's channel, success.
    explicit SetOutcome(const SetResponse& response);
    // The error's channel and reason code.
    explicit SetOutcome(const ErrorResponse& error);
    SetOutcome(const SetOutcome&) = default;
    SetOutcome& operator=(const SetOutcome&) = default;
    virtual ~SetOutcome();

    unsigned int getChannelId() const { return channelId; }
    unsigned char getReasonCode() const { return reasonCode; }
    bool getSuccess() const { return reasonCode == SuccessCode; }

    bool operator==(const SetOutcome& other) const {
        return channelId == other.channelId && reasonCode == other.reasonCode;
    }
    bool operator!=(const SetOutcome& other) const { return !(*this == other); }

private:
    unsigned int channelId;
    unsigned char reasonCode;
};

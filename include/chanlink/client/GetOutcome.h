#pragma once

#include <vector>

#include "chanlink/messages/ChannelValue.h"
#include "chanlink/messages/ReasonCode.h"

class ErrorResponse;

// The answer to a get, or one value of a subscription: a channel's value, or
// a failure with the server's reason code. Success is the reason code 255,
// the top of the byte range, so that every code a server can send (0
// included) stays a failure.
class GetOutcome {
public:
    static constexpr unsigned char SuccessCode = ReasonCode::Success;

    // Empty header and data.
    GetOutcome(const unsigned int& channelId, const unsigned char& reasonCode);
    GetOutcome(const unsigned int& channelId, std::vector<unsigned char> header,
               std::vector<unsigned char> data, const unsigned char& reasonCode);
    // The value's id, header and data, with reason code 255.
    explicit GetOutcome(const ChannelValue& value);
    // The error's channel id and reason code, empty header and data.
    explicit GetOutcome(const ErrorResponse& error);
    GetOutcome(const GetOutcome&) = default;
    GetOutcome(GetOutcome&&) noexcept = default;
    GetOutcome& operator=(const GetOutcome&) = default;
    GetOutcome& operator=(GetOutcome&&) noexcept = default;
    virtual ~GetOutcome();

    bool getSuccess() const { return reasonCode == SuccessCode; }
    unsigned int getChannelId() const { return channelId; }
    unsigned char getReasonCode() const { return reasonCode; }
    std::vector<unsigned char> getHeader() const { return header; }
    std::vector<unsigned char> getData() const { return data; }
    // A value made of id, header and data, also for a failure (then empty).
    ChannelValue getChannelValue() const;

    // Id, header, data and reason code all equal.
    bool operator==(const GetOutcome& other) const;
    bool operator!=(const GetOutcome& other) const { return !(*this == other); }

private:
    unsigned int channelId;
    std::vector<unsigned char> header;
    std::vector<unsigned char> data;
    unsigned char reasonCode;
};

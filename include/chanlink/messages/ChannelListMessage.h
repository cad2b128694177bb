#pragma once

#include <vector>

#include "chanlink/messages/Message.h"
#include "chanlink/messages/OpCode.h"

// Common base of the messages whose body is a list of channel ids.
//
// Payload layout, little-endian:
//   0  opcode
//   1  count of channel ids, 16-bit
//   3  count channel ids, 32-bit each, in list order
class ChannelListMessage : public Message {
public:
    static constexpr unsigned int CountPosition = Message::PayloadStartPosition;
    static constexpr unsigned int ChannelIdsPosition = CountPosition + 2;

    // Stores the payload unchecked.
    explicit ChannelListMessage(std::vector<unsigned char> payload);
    ~ChannelListMessage() override;

    // Byte 0 is code and exactly count ids follow the count, nothing more. A
    // payload shorter than 3 bytes is rejected.
    static bool validate(OpCode code, const std::vector<unsigned char>& payload);
    // Appends the count (truncated to 16 bits) and the ids to a payload that
    // already holds its opcode. With more than 65535 ids the count is wrong
    // and validate rejects the result.
    static void populateInstance(std::vector<unsigned char>& payload,
                                 const std::vector<unsigned int>& channelIds);

    // The ids in payload order, duplicates kept.
    virtual std::vector<unsigned int> getChannelList() const;
};

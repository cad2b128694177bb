#pragma once

#include <memory>
#include <vector>

#include "chanlink/messages/Message.h"
#include "chanlink/messages/OpCode.h"

// Server to client, instead of the regular response when a request failed.
//
// Payload layout, little-endian:
//   0  opcode 31
//   1  triggering opcode: the opcode of the request that failed
//   2  reason code, 8-bit, passed on unchanged to the outcomes
//   3  channel id, 32-bit, present only when the triggering opcode is 0 (get
//      request) or 2 (set request)
//
// Unlike every other message, an error response may carry trailing bytes:
// they are accepted and ignored, except that getChannelId reads them when the
// triggering opcode carries no channel id.
class ErrorResponse : public Message {
public:
    static constexpr OpCode Code = 31;
    static constexpr unsigned int TriggeringOpCodePosition = Message::PayloadStartPosition;
    static constexpr unsigned int ReasonCodePosition = TriggeringOpCodePosition + 1;
    static constexpr unsigned int ChannelIdPosition = ReasonCodePosition + 1;

    // Stores the payload unchecked.
    explicit ErrorResponse(std::vector<unsigned char> payload);

    // Opcode 31, a triggering opcode and a reason code, then at least the 4
    // bytes of the channel id when the triggering opcode is 0 or 2.
    static bool validate(const std::vector<unsigned char>& payload);
    // An ErrorResponse of the payload, or an empty pointer when validate rejects it.
    static std::shared_ptr<const Message> read(const std::vector<unsigned char>& payload);
    // The channel id is written only for triggering opcodes 0 and 2 and
    // ignored otherwise.
    static std::shared_ptr<const Message> newInstance(OpCode triggeringOpCode,
                                                      unsigned char reasonCode,
                                                      unsigned int channelId);

    // True when the triggering opcode is one that carries a channel id (0 or 2).
    static bool carriesChannelId(OpCode triggeringOpCode);

    OpCode getTriggeringOpCode() const;
    unsigned char getReasonCode() const;
    // The 32-bit field at ChannelIdPosition, whatever the triggering opcode:
    // 0 when the payload ends before it; trailing bytes after an error about
    // another opcode are read as if they were the field.
    unsigned int getChannelId() const;
};

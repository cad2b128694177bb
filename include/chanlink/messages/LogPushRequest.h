#pragma once

#include <memory>
#include <vector>

#include "chanlink/messages/Message.h"
#include "chanlink/messages/OpCode.h"

// Client to server: switches the server's pushing of values on or off.
//
// Payload layout:
//   0  opcode 4
//   1  value, 0 (off) or 1 (on)
class LogPushRequest : public Message {
public:
    static constexpr OpCode Code = 4;
    static constexpr unsigned int ValuePosition = Message::PayloadStartPosition;

    // Stores the payload unchecked.
    explicit LogPushRequest(std::vector<unsigned char> payload);

    // Exactly 2 bytes, opcode 4 and a value of 0 or 1.
    static bool validate(const std::vector<unsigned char>& payload);
    // A LogPushRequest of the payload, or an empty pointer when validate rejects it.
    static std::shared_ptr<const Message> read(const std::vector<unsigned char>& payload);
    // Value 1 for on, 0 for off.
    static std::shared_ptr<const Message> newInstance(bool on);

    // True when the value byte is not 0.
    bool getValue() const;
};

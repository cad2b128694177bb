#pragma once

#include <memory>
#include <vector>

#include "chanlink/messages/Message.h"
#include "chanlink/messages/OpCode.h"

// Client to server: an account operation, opcode 9, whose body is a
// sub-message. The only sub-message type is 9, the login request.
//
// Payload layout:
//   0  opcode 9
//   1  sub-message type
//   2  the sub-message's body
class UserAccountRequest : public Message {
public:
    static constexpr OpCode Code = 9;
    // The only sub-message type: the login request.
    static constexpr unsigned char LoginSubMessageType = 9;
    static constexpr unsigned int SubMessageTypePosition = Message::PayloadStartPosition;

    // Stores the payload unchecked.
    explicit UserAccountRequest(std::vector<unsigned char> payload);

    // Opcode 9, sub-message type 9 and a valid login request.
    static bool validate(const std::vector<unsigned char>& payload);
    // The sub-message of the payload (a LoginRequest), or an empty pointer
    // when validate rejects it.
    static std::shared_ptr<const Message> read(const std::vector<unsigned char>& payload);
    // LoginRequest::read of the payload for sub-message type 9; an empty
    // pointer for any other type.
    static std::shared_ptr<const Message> buildSubMessage(
        const std::vector<unsigned char>& payload);
};

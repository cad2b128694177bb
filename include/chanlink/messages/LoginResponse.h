#pragma once

#include <memory>
#include <vector>

#include "chanlink/messages/Message.h"
#include "chanlink/messages/OpCode.h"

// Server to client: the answer to a login request.
//
// Payload layout:
//   0  opcode 15
//   1  result
class LoginResponse : public Message {
public:
    static constexpr OpCode Code = 15;
    static constexpr unsigned int ResultPosition = Message::PayloadStartPosition;

    // Carried in one byte. The values are the first three login outcome
    // states, which copy the number unchanged.
    enum Result : unsigned char {
        Failure = 0,             // login refused
        Success = 1,             // login accepted
        TooManyConnections = 2,  // login refused: too many connections
    };

    // Stores the payload unchecked.
    explicit LoginResponse(std::vector<unsigned char> payload);

    // Exactly 2 bytes, opcode 15 and a result below 3.
    static bool validate(const std::vector<unsigned char>& payload);
    // A LoginResponse of the payload, or an empty pointer when validate rejects it.
    static std::shared_ptr<const Message> read(const std::vector<unsigned char>& payload);
    // The message; an empty pointer for a result that is not one of the three.
    static std::shared_ptr<const Message> newInstance(Result result);

    Result getResult() const;
};

#pragma once

#include <memory>
#include <utility>
#include <vector>

#include "chanlink/messages/OpCode.h"

// Immutable holder of one frame payload, opcode first. Concrete message classes
// add no data; they name field positions and read fields from the payload.
class Message {
public:
    static constexpr unsigned int OpCodePosition = 0;
    // Index of the first byte after the opcode; every field position of the
    // message classes is defined from it.
    static constexpr unsigned int PayloadStartPosition = 1;

    // Payload of the single opcode byte.
    explicit Message(OpCode code);
    // Copies the bytes; nothing is validated.
    explicit Message(const std::vector<unsigned char>& payload);
    // Takes the bytes over without copying them; nothing is validated.
    explicit Message(std::vector<unsigned char>&& payload);
    Message(const Message& other);
    Message& operator=(const Message&) = delete;
    virtual ~Message();

    // A copy of the payload: what gets framed and sent.
    virtual std::vector<unsigned char> write() const;

    // The payload without a copy, for reading fields.
    const std::vector<unsigned char>& getPayload() const { return payload; }
    // Byte 0 of the payload, or 0 for an empty payload.
    OpCode getOpCode() const { return payload.empty() ? OpCode{0} : payload[OpCodePosition]; }

    // The single opcode byte every newInstance starts from.
    static std::vector<unsigned char> newFrame(OpCode code);
    // Takes ownership of a newly made message. If the shared pointer's
    // bookkeeping cannot be allocated the message is deleted and the
    // allocation failure propagates.
    static std::shared_ptr<const Message> createShared(const Message* message);

protected:
    // What Class::read gives for a payload that its newInstance has just built:
    // Class::validate decides, and an accepted payload is moved into the new
    // message instead of being copied a second time.
    template <class Class>
    static std::shared_ptr<const Message> readBuilt(std::vector<unsigned char>&& payload) {
        if (!Class::validate(payload)) {
            return nullptr;
        }
        return createShared(new Class(std::move(payload)));
    }

private:
    const std::vector<unsigned char> payload;
};

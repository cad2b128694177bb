#pragma once

#include <cstddef>
#include <memory>

#include "chanlink/flow/QueuedReceiver.h"
#include "chanlink/messages/Message.h"

// An outgoing message queue that keeps count of the payload bytes it holds,
// so that a server can tell how much a connection has left unread.
class MessageBacklog : public QueuedReceiver<std::shared_ptr<const Message>> {
public:
    // Appends the message (an empty pointer counts as no bytes).
    void receive(const std::shared_ptr<const Message>& message) override;
    std::shared_ptr<const Message> dequeue() override;
    void reset() override;

    // Sum of the payload sizes of the queued messages.
    std::size_t payloadBytes() const { return bytes; }

private:
    static std::size_t sizeOf(const std::shared_ptr<const Message>& message) {
        return message ? message->getPayload().size() : 0;
    }

    std::size_t bytes = 0;
};

#include "chanlink/server/MessageBacklog.h"

void MessageBacklog::receive(const std::shared_ptr<const Message>& message) {
    QueuedReceiver::receive(message);
    bytes += sizeOf(message);
}

std::shared_ptr<const Message> MessageBacklog::dequeue() {
    std::shared_ptr<const Message> message = QueuedReceiver::dequeue();
    bytes -= sizeOf(message);
    return message;
}

void MessageBacklog::reset() {
    QueuedReceiver::reset();
    bytes = 0;
}

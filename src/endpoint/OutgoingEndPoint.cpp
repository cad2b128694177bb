#include "chanlink/endpoint/OutgoingEndPoint.h"

#include <algorithm>
#include <climits>

OutgoingEndPoint::OutgoingEndPoint(
    int maxOutputCapacity, std::shared_ptr<WriteTransport> writeTransport,
    std::shared_ptr<Encoder> encoder,
    std::shared_ptr<QueuedReceiver<std::shared_ptr<const Message>>> queue)
    : maxOutputCapacity(maxOutputCapacity),
      writeTransport(std::move(writeTransport)),
      queue(std::move(queue)),
      encoder(std::move(encoder)) {}

OutgoingEndPoint::~OutgoingEndPoint() = default;

void OutgoingEndPoint::doWrite() {
    // The fill test compares unsigned, as deployed peers do: a negative
    // capacity therefore never stops the draining.
    while (!queue->empty() && pending.size() < static_cast<unsigned int>(maxOutputCapacity)) {
        const std::shared_ptr<const Message> message = queue->dequeue();
        if (message) {  // an empty pointer has nothing to send
            encoder->injectFrame(message->write(), pending);
        }
    }
    if (pending.empty()) {
        return;
    }
    // One write per call; a buffer beyond INT_MAX bytes goes out in parts.
    const int length = static_cast<int>(std::min<std::size_t>(pending.size(), INT_MAX));
    const int written = writeTransport->write(pending.data(), length);
    if (written > 0) {
        pending.erase(pending.begin(), pending.begin() + (written < length ? written : length));
    }
}

void OutgoingEndPoint::reset() {
    pending.clear();
    queue->reset();
}

#pragma once

#include <memory>
#include <vector>

#include "chanlink/flow/QueuedReceiver.h"
#include "chanlink/messages/Message.h"
#include "chanlink/transport/WriteTransport.h"
#include "chanlink/wire/Encoder.h"

// Where messages become bytes: drains the outgoing queue into a pending
// buffer of frames and writes as much of it as the transport takes.
class OutgoingEndPoint {
public:
    // maxOutputCapacity: the pending-buffer fill level at which no further
    // message is taken from the queue. None of the pointers may be empty.
    // (The encoder comes before the queue here, as existing callers pass them.)
    OutgoingEndPoint(int maxOutputCapacity, std::shared_ptr<WriteTransport> writeTransport,
                     std::shared_ptr<Encoder> encoder,
                     std::shared_ptr<QueuedReceiver<std::shared_ptr<const Message>>> queue);
    virtual ~OutgoingEndPoint();

    OutgoingEndPoint(const OutgoingEndPoint&) = delete;
    OutgoingEndPoint& operator=(const OutgoingEndPoint&) = delete;

    // Frames queued messages, oldest first, while the pending buffer holds
    // fewer than maxOutputCapacity bytes (so it may overshoot by up to one
    // frame; a message is never split between queue and buffer), then makes
    // one write of the whole pending buffer. Bytes the transport did not take
    // are written first on the next call.
    virtual void doWrite();
    // Drops the pending bytes (a partly written frame included) and every
    // queued message.
    virtual void reset();

    // Encoded bytes not yet accepted by the transport.
    std::size_t pendingBytes() const { return pending.size(); }
    // Messages taken in but not framed yet: the next doWrite has work even
    // when no bytes are pending.
    bool hasQueuedMessages() const { return queue && !queue->empty(); }
    // Messages taken in but not framed yet. The pending buffer is bounded by
    // maxOutputCapacity, this queue is not: it grows while the peer reads
    // nothing, which the waiting helpers bound.
    std::size_t queuedMessages() const { return queue ? queue->size() : 0; }

private:
    int maxOutputCapacity;
    std::vector<unsigned char> pending;
    std::shared_ptr<WriteTransport> writeTransport;
    std::shared_ptr<QueuedReceiver<std::shared_ptr<const Message>>> queue;
    std::shared_ptr<Encoder> encoder;
};

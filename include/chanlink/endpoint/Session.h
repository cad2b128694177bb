#pragma once

#include <cstddef>
#include <memory>

#include "chanlink/endpoint/IncomingEndPoint.h"
#include "chanlink/endpoint/OutgoingEndPoint.h"
#include "chanlink/transport/Transport.h"

// The heartbeat of one connection: each tick lets the transport make
// progress, reads and distributes what arrived, then writes what is queued.
// Because reading comes first, a request queued by a receiver of an incoming
// message leaves in the same tick.
class Session {
public:
    // None of the pointers may be empty.
    Session(std::shared_ptr<Transport> transport, std::shared_ptr<IncomingEndPoint> incoming,
            std::shared_ptr<OutgoingEndPoint> outgoing);
    // Yields a session holding nothing: no transport, no endpoints. Existing
    // code copies sessions only to get such an inert object; ticking or
    // resetting it does nothing.
    Session(const Session& other);
    Session& operator=(const Session&) = delete;
    virtual ~Session();

    // Transport tick, then doRead, then doWrite, in that fixed order.
    virtual void tick();
    // Resets the incoming, then the outgoing endpoint; the transport and its
    // connection are left as they are.
    virtual void reset();

    // The transport this session drives (empty for a copy).
    const std::shared_ptr<Transport>& getTransport() const { return transport; }
    // Encoded bytes that the transport has not taken yet (0 for a copy):
    // while there are any, the next tick has writing to do.
    std::size_t pendingOutputBytes() const {
        return outgoingEndPoint ? outgoingEndPoint->pendingBytes() : 0;
    }
    // Bytes pending or messages queued: the next tick writes.
    bool hasOutputWaiting() const {
        return pendingOutputBytes() > 0 ||
               (outgoingEndPoint && outgoingEndPoint->hasQueuedMessages());
    }
    // The incoming endpoint (empty for a copy).
    const std::shared_ptr<IncomingEndPoint>& getIncomingEndPoint() const {
        return incomingEndPoint;
    }
    // The outgoing endpoint (empty for a copy).
    const std::shared_ptr<OutgoingEndPoint>& getOutgoingEndPoint() const {
        return outgoingEndPoint;
    }

private:
    std::shared_ptr<Transport> transport;
    std::shared_ptr<IncomingEndPoint> incomingEndPoint;
    std::shared_ptr<OutgoingEndPoint> outgoingEndPoint;
};

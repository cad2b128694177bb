#pragma once

#include "chanlink/transport/TransportPoll.h"

// Implemented beside Transport by transports that are not plain TCP
// transports but have a socket underneath (TLS) or wrap another transport
// (capture, observation): TransportPoll::of() and TransportPoll::close() ask
// them instead of guessing.
// A wrapper answers with TransportPoll::of(inner) and TransportPoll::close(inner).
class PollableTransport {
public:
    virtual ~PollableTransport();

    virtual TransportPoll pollState() const = 0;
    // Ends the connection underneath; later reads and writes move nothing.
    virtual void close() = 0;

protected:
    PollableTransport() = default;
    PollableTransport(const PollableTransport&) = default;
    PollableTransport& operator=(const PollableTransport&) = default;
};

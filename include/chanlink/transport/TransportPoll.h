#pragma once

#include <poll.h>

#include "chanlink/transport/ConnectionOutcome.h"

class Transport;

// What an event loop needs to know about a transport: which descriptor to
// watch and for which events, whether it can move bytes, and whether it holds
// input already (so waiting would stall). TransportPoll::of() answers it for
// every transport the library makes: TCP and TLS transports, wrappers that
// forward to an inner transport, and in-memory ones.
class TransportPoll {
public:
    // The socket to watch; -1, which poll skips, when there is none.
    int descriptor = -1;
    // The events the transport itself waits for: POLLOUT while a connect or
    // a handshake wants to write, POLLIN while connected. A session adds
    // POLLOUT while it has bytes waiting to be written.
    short events = 0;
    // Connected for in-memory transports, which are always ready.
    ConnectionOutcome::ConnectionStates state = ConnectionOutcome::Connected;
    // False for in-memory transports: there is nothing to wait on, ever.
    bool hasSocket = false;
    // Input is held inside the transport (decrypted bytes, for example): the
    // next read returns bytes without the socket becoming readable.
    bool inputBuffered = false;

    // True once the connection has failed or closed: nothing more will come.
    bool ended() const {
        return state == ConnectionOutcome::ConnectionFailed || state == ConnectionOutcome::Closed;
    }
    // The poll entry for this state, with POLLOUT added when pendingOutput.
    pollfd entry(bool pendingOutput) const;

    // The answer for any transport: a PollableTransport's own, a
    // TCPTransport's socket and state, or an in-memory transport's.
    static TransportPoll of(const Transport& transport);
    // Closes any transport the library makes: a PollableTransport's
    // connection or a TCPTransport's socket. In-memory transports have
    // nothing to close and are left alone.
    static void close(Transport& transport);
};

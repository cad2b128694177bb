#pragma once

// The connection state a TCP transport reports to its receiver on every
// change. The numbers are part of the interface.
class ConnectionOutcome {
public:
    enum ConnectionStates {
        NotConnected = 0,      // no connect attempted yet
        Connecting = 1,        // a non-blocking connect is under way
        Connected = 2,         // the only state in which bytes move
        ConnectionFailed = 3,  // resolution, socket set-up or the connect failed
        Closed = 4             // closed locally, by an I/O error, the peer, or destruction
    };

    // Implicit on purpose: a state is an outcome.
    ConnectionOutcome(ConnectionStates state)
        : state(state) {}  // NOLINT(google-explicit-constructor)
    virtual ~ConnectionOutcome() = default;
    ConnectionOutcome(const ConnectionOutcome&) = default;
    ConnectionOutcome& operator=(const ConnectionOutcome&) = default;

    ConnectionStates getState() const { return state; }
    bool operator==(const ConnectionOutcome& other) const { return state == other.state; }
    bool operator!=(const ConnectionOutcome& other) const { return state != other.state; }

    // "NotConnected", "Connecting", ...; "Unknown" for a value outside the enumeration.
    static const char* name(ConnectionStates state);

    ConnectionStates state;
};

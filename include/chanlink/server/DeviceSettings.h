#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <string>

class TCPTransport;
class Transport;

// What a DeviceServer accepts and how much it holds for each connection.
struct DeviceSettings {
    // Turns an accepted TCP connection into the transport that is served,
    // for example a TLS transport that runs its handshake over it.
    using ConnectionWrapper =
        std::function<std::shared_ptr<Transport>(std::shared_ptr<TCPTransport>)>;

    // The one account a client logs in with. Both may be empty.
    std::string username;
    std::string password;
    // Connections that may be logged in at once; a further login is answered
    // with result 2 (too many connections). 0 refuses every login that way.
    std::size_t maxLoggedIn = 4;
    // Received bytes a connection may leave undecoded (an unfinished frame)
    // before it is dropped. The largest well-formed request, a get of 65535
    // channels with every byte stuffed, takes about 512 KiB.
    std::size_t maxInputBytes = 1024 * 1024;
    // Bytes a connection may leave unread (framed bytes the socket has not
    // taken plus the payloads of messages not yet framed) before it is
    // dropped, so a client that stops reading cannot grow the device.
    std::size_t maxBacklogBytes = 8 * 1024 * 1024;

    // Against clients that never log in or guess passwords:
    // A connection that is not logged in (from its opening, or from the end
    // of its last login) for this long is dropped. 0 or less: no limit.
    std::chrono::milliseconds loginTimeout{10000};
    // Connections open without a login at once (TLS handshakes included);
    // a connection accepted beyond them is dropped at once. 0: no limit.
    std::size_t maxPending = 64;
    // After a failed login the connection's next login is answered only
    // after this delay, doubled per failure and capped at maxLoginDelay;
    // nothing else on that connection is answered meanwhile.
    std::chrono::milliseconds loginDelay{100};
    std::chrono::milliseconds maxLoginDelay{5000};
    // Failed logins after which a connection is dropped. 0: no limit.
    unsigned int maxFailedLogins = 5;

    // Every accepted connection passes through it; empty serves plain TCP.
    ConnectionWrapper wrapConnection;
};

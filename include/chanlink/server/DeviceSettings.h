#pragma once

#include <cstddef>
#include <string>

// What a DeviceServer accepts and how much it holds for each connection.
struct DeviceSettings {
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
};

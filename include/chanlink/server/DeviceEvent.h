#pragma once

#include <string>

// Something that happened to one connection of a DeviceServer, for the
// application's log: one event per line of text from describe().
class DeviceEvent {
public:
    enum Kind : int {
        Opened = 0,        // accepted; detail: the peer's address
        LoggedIn = 1,      // login accepted; detail: the username
        LoginRefused = 2,  // login answered 0 or 2; detail: why, and the username
        Closed = 3,        // the peer closed or lost the connection, or the device shut down
        Dropped = 4,       // the device dropped the connection; detail: which limit
    };

    DeviceEvent(Kind kind, unsigned int connectionId, std::string detail);

    Kind getKind() const { return kind; }
    // Numbered from 1 in the order of acceptance; never reused by one server.
    unsigned int getConnectionId() const { return connectionId; }
    const std::string& getDetail() const { return detail; }

    // "connection 3: opened from 127.0.0.1:40522", and so on: one line of
    // printable ASCII, any other byte of the detail written as \xNN.
    std::string describe() const;
    // "opened", "logged in", "login refused", "closed", "dropped"; "unknown"
    // for a number outside the enumeration.
    static const char* name(Kind kind);

private:
    Kind kind;
    unsigned int connectionId;
    std::string detail;
};

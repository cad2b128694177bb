#include "chanlink/server/DeviceEvent.h"

#include <cstdio>
#include <utility>

namespace {

// Details may carry bytes from the wire (a username); anything but printable
// ASCII is escaped, so one event stays one line of plain text.
std::string printable(const std::string& text) {
    std::string out;
    for (unsigned char c : text) {
        if (c >= 0x20 && c < 0x7F && c != '\\') {
            out += static_cast<char>(c);
        } else {
            char escaped[5];
            std::snprintf(escaped, sizeof escaped, "\\x%02X", c);
            out += escaped;
        }
    }
    return out;
}

}  // namespace

DeviceEvent::DeviceEvent(Kind kind, unsigned int connectionId, std::string detail)
    : kind(kind), connectionId(connectionId), detail(std::move(detail)) {}

std::string DeviceEvent::describe() const {
    std::string line = "connection " + std::to_string(connectionId) + ": " + name(kind);
    if (!detail.empty()) {
        line += kind == Opened ? " from " : kind == LoggedIn ? " as " : " ";
        line += printable(detail);
    }
    return line;
}

const char* DeviceEvent::name(Kind kind) {
    switch (kind) {
        case Opened:
            return "opened";
        case LoggedIn:
            return "logged in";
        case LoginRefused:
            return "login refused";
        case Closed:
            return "closed";
        case Dropped:
            return "dropped";
    }
    return "unknown";
}

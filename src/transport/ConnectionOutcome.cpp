#include "chanlink/transport/ConnectionOutcome.h"

const char* ConnectionOutcome::name(ConnectionStates state) {
    switch (state) {
        case NotConnected:
            return "NotConnected";
        case Connecting:
            return "Connecting";
        case Connected:
            return "Connected";
        case ConnectionFailed:
            return "ConnectionFailed";
        case Closed:
            return "Closed";
    }
    return "Unknown";
}

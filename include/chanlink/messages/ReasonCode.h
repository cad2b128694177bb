#pragma once

// The one space of reason codes carried by GetOutcome, SetOutcome and
// ErrorResponse. 255 is success. The space is split so that an application
// can tell who refused:
//   1-15, 128-143  made by the client library itself
//   16-31          sent by the device layer (DeviceServer)
//   anything else  a device's own code, passed on as the device sent it
class ReasonCode {
public:
    static constexpr unsigned char Success = 255;

    // Made by the client library itself.
    static constexpr unsigned char SetRequestNotBuilt = 1;  // set data too long to send
    static constexpr unsigned char BitBeyondData = 2;       // bitfield split: bit past the data
    static constexpr unsigned char Discarded = 131;         // set dropped by reset or destruction
    static constexpr unsigned char ConnectionLost = 132;    // connection dropped before the answer
    static constexpr unsigned char NotConnected = 133;      // no connection: request never sent
    // The client closed the connection because the device broke one of its
    // bounds (SessionWaiter); like ConnectionLost, the device may or may not
    // have seen the request.
    static constexpr unsigned char FrameTooLarge = 134;     // a frame beyond the undecoded bound
    static constexpr unsigned char DeviceNotReading = 135;  // requests piled up unread

    // Sent by the device layer in error responses.
    static constexpr unsigned char NotLoggedIn = 16;      // request before a successful login
    static constexpr unsigned char UnknownChannel = 17;   // no such channel
    static constexpr unsigned char ReadOnlyChannel = 18;  // set of a read-only channel
    static constexpr unsigned char WrongDataSize =
        19;  // set data of another size than the channel's

    // True for the codes the client library reserves for itself (1-15 and
    // 128-143): the request failed here, no device refused it.
    static constexpr bool madeLocally(unsigned char code) {
        return (code >= 1 && code <= 15) || (code >= 128 && code <= 143);
    }

    // The code's name ("UnknownChannel"), or nullptr for a code this library
    // does not define (a device's own code).
    static const char* name(unsigned char code);
    // A short description ("no such channel"); for undefined codes
    // "device-specific reason".
    static const char* describe(unsigned char code);
};

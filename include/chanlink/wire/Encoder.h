#pragma once

#include <vector>

// Wraps payloads into frames: 0xFF, the payload length (32-bit little-endian),
// the payload, 0xFE. Length and payload bytes above 0xFC are stuffed as 0xFD
// followed by (value + 3) mod 256, so 0xFF and 0xFE only ever mark frames.
class Encoder {
public:
    static constexpr unsigned char StartMarker = 0xFF;
    static constexpr unsigned char EndMarker = 0xFE;
    static constexpr unsigned char Escape = 0xFD;

    Encoder() = default;
    Encoder(const Encoder&) = default;
    Encoder& operator=(const Encoder&) = default;
    virtual ~Encoder();

    // Appends the frame for payload to output (output is not cleared). An
    // empty payload appends nothing: there is no empty frame on the wire.
    virtual void injectFrame(const std::vector<unsigned char>& payload,
                             std::vector<unsigned char>& output) const;

    // Appends value, stuffed: one byte, or the escape and one byte.
    static void injectStuffedByte(unsigned char value, std::vector<unsigned char>& output);
};

#pragma once

#include <memory>
#include <vector>

#include "chanlink/messages/Message.h"
#include "chanlink/wire/Decoder.h"
#include "chanlink/wire/Encoder.h"

// Header-only, without the test framework: fuzz targets use it too.
namespace testing_support {

// The frame of a payload as it goes on the wire.
inline std::vector<unsigned char> framed(const std::vector<unsigned char>& payload) {
    std::vector<unsigned char> stream;
    Encoder().injectFrame(payload, stream);
    return stream;
}

// The frame of a message (nothing for an empty pointer).
inline std::vector<unsigned char> framed(const std::shared_ptr<const Message>& message) {
    return message ? framed(message->getPayload()) : std::vector<unsigned char>{};
}

// The payloads of every frame in a stream, in order.
inline std::vector<std::vector<unsigned char>> framesIn(const std::vector<unsigned char>& stream) {
    Decoder decoder;
    decoder.injectBytes(stream);
    std::vector<std::vector<unsigned char>> frames;
    while (decoder.hasFrames()) {
        frames.push_back(decoder.extractFrame());
    }
    return frames;
}

}  // namespace testing_support

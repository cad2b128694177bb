// Frames two payloads into one byte stream, feeds the stream back to a decoder
// in small pieces, and prints what went in and what came out.
#include <chanlink/chanlink.h>

#include <algorithm>
#include <cstdio>
#include <vector>

namespace {

void print(const char* label, const std::vector<unsigned char>& bytes) {
    std::printf("%-10s", label);
    for (unsigned char b : bytes) {
        std::printf(" %02X", b);
    }
    std::printf("\n");
}

}  // namespace

int main() {
    // A get response with no values, and a payload full of marker values that
    // the encoder must stuff.
    const std::vector<std::vector<unsigned char>> payloads{{0x0B, 0x00, 0x00},
                                                           {0x02, 0xFD, 0xFE, 0xFF, 0x10}};

    Encoder encoder;
    std::vector<unsigned char> stream;
    for (const auto& payload : payloads) {
        print("payload", payload);
        encoder.injectFrame(payload, stream);
    }
    print("stream", stream);

    Decoder decoder;
    int matched = 0;
    for (std::size_t offset = 0; offset < stream.size(); offset += 3) {
        const auto end =
            stream.begin() + static_cast<std::ptrdiff_t>(std::min(offset + 3, stream.size()));
        decoder.injectBytes(
            std::vector<unsigned char>(stream.begin() + static_cast<std::ptrdiff_t>(offset), end));
        while (decoder.hasFrames()) {
            const std::vector<unsigned char> frame = decoder.extractFrame();
            print("decoded", frame);
            if (matched < static_cast<int>(payloads.size()) && frame == payloads[matched]) {
                ++matched;
            }
        }
    }
    const bool ok = matched == static_cast<int>(payloads.size()) && decoder.empty();
    std::printf("%s\n", ok ? "all payloads decoded in order" : "MISMATCH");
    return ok ? 0 : 1;
}

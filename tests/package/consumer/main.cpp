#include <chanlink/chanlink.h>

#include <cstdio>

// Frames a payload and decodes it again through the installed library.
int main() {
    const std::vector<unsigned char> payload{0x0B, 0xFF, 0x00};
    std::vector<unsigned char> stream;
    Encoder().injectFrame(payload, stream);
    Decoder decoder;
    decoder.injectBytes(stream);
    if (decoder.extractFrame() != payload) {
        std::puts("round trip failed");
        return 1;
    }
    std::puts("chanlink consumer ok");
    return 0;
}

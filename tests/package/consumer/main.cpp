#include <chanlink/chanlink.h>

#include <cstdio>
#ifdef CONSUMER_TLS
#include <chanlink/tls.h>
#endif

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
#ifdef CONSUMER_TLS
    std::string error;
    if (TLSContext::forServer({"/nonexistent.pem", "", ""}, error) || error.empty()) {
        std::puts("TLS context from a missing file");
        return 1;
    }
#endif
    std::puts("chanlink consumer ok");
    return 0;
}

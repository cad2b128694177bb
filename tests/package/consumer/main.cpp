#include <chanlink/chanlink.h>
#ifdef CONSUMER_TLS
#include <chanlink/tls.h>
#endif

// Frames a payload and decodes it again through the installed library, and
// with chanlink::tls fails to load a missing certificate: exit status 0 when
// both behave.
int main() {
    const std::vector<unsigned char> payload{0x0B, 0xFF, 0x00};
    std::vector<unsigned char> stream;
    Encoder().injectFrame(payload, stream);
    Decoder decoder;
    decoder.injectBytes(stream);
    bool ok = decoder.extractFrame() == payload;
#ifdef CONSUMER_TLS
    std::string error;
    ok = ok && !TLSContext::forServer({"/nonexistent.pem", "", ""}, error) && !error.empty();
#endif
    return ok ? 0 : 1;
}

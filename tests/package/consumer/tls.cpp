#include <chanlink/tls.h>

#include <cstdio>

// Makes a client context through the installed TLS library.
int main() {
    std::string error;
    if (!TLSContext::forClient(TLSClientSettings(), error)) {
        std::printf("no TLS context: %s\n", error.c_str());
        return 1;
    }
    std::puts("chanlink tls consumer ok");
    return 0;
}

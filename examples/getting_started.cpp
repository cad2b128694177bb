// The README's getting-started program: log in and read channel 1.
#include <chanlink/chanlink.h>

#include <cstdio>

int main(int argc, char** argv) {
    using namespace std::chrono_literals;
    const char* port = argc > 1 ? argv[1] : "7300";
    auto transport = std::make_shared<TCPClientTransport>("localhost", port, nullptr);
    transport->connect();
    auto session = ClientSessionBuilder()
                       .setTransport(transport)
                       .setUsername("admin")
                       .setPassword("secret")
                       .build();

    // A refused connection shows at once; a silent host gets 5 s.
    SessionWaiter().tickUntil(
        *session, [&] { return transport->state() != ConnectionOutcome::Connecting; }, 5s);
    if (transport->state() != ConnectionOutcome::Connected) {
        std::fprintf(stderr, "cannot connect to localhost:%s, is chanlink-device running?\n", port);
        return 1;
    }
    const auto login = session->blockingLogin(5s);  // empty on time-out
    if (!login || !login->loggedIn()) {
        std::fprintf(stderr, "login failed\n");
        return 1;
    }
    const auto value = session->blockingGet(1, 5s);
    if (!value || !value->getSuccess()) {
        std::fprintf(stderr, "get failed\n");
        return 1;
    }
    for (unsigned char byte : value->getData()) {
        std::printf("%02X ", byte);
    }
    std::printf("\n");
    return 0;
}

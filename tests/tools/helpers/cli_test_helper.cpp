// Stand-ins for the chanlink integration tests, built from the library:
//
//   cli_test_helper silent-listener SECONDS
//       listens on 127.0.0.1 (as an IPv4-mapped address), prints "port N", accepts every connection
//       and never answers; ends on SIGTERM or after SECONDS.
//   cli_test_helper endless-frame SECONDS
//       listens like silent-listener, logs the first client in and then
//       sends one frame that never ends.
//   cli_test_helper closed-port
//       prints a port on 127.0.0.1 on which nothing listens any more.
//   cli_test_helper check-json
//       exits 0 when standard input is one or more lines, each one JSON
//       object; otherwise names the first bad line and exits 1.
#include <chanlink/chanlink.h>

#include <poll.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <iostream>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace {

volatile std::sig_atomic_t stopped = 0;

extern "C" void onTerm(int) {
    stopped = 1;
}

int silentListener(long seconds) {
    std::signal(SIGTERM, onTerm);
    TCPServerTransportBuilder listener("0", "::ffff:127.0.0.1");
    if (!listener.isListening()) {
        return 1;
    }
    std::cout << "port " << listener.getListeningService() << std::endl;
    std::vector<std::shared_ptr<TCPTransport>> held;
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
    while (stopped == 0 && std::chrono::steady_clock::now() < end) {
        if (auto connection = listener.accept(0, 100000)) {
            held.push_back(connection);
        }
    }
    return 0;
}

// Logs the first client in, then opens a frame announcing 2 GiB and feeds
// it until the client goes or SECONDS pass.
int endlessFrame(long seconds) {
    std::signal(SIGTERM, onTerm);
    TCPServerTransportBuilder listener("0", "::ffff:127.0.0.1");
    if (!listener.isListening()) {
        return 1;
    }
    std::cout << "port " << listener.getListeningService() << std::endl;
    const auto connection = listener.accept(static_cast<int>(seconds), 0);
    if (!connection) {
        return 1;
    }
    std::vector<unsigned char> bytes;
    Encoder().injectFrame(LoginResponse::newInstance(LoginResponse::Success)->getPayload(), bytes);
    bytes.insert(bytes.end(), {0xFF, 0xFC, 0xFC, 0xFC, 0x7F});
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
    std::vector<unsigned char> in(1024);
    while (stopped == 0 && std::chrono::steady_clock::now() < end &&
           connection->state() == ConnectionOutcome::Connected) {
        pollfd entry{connection->getSocket(), POLLOUT, 0};
        ::poll(&entry, 1, 100);
        connection->read(in.data(), static_cast<int>(in.size()));
        const int written = connection->write(bytes.data(), static_cast<int>(bytes.size()));
        bytes.erase(bytes.begin(), bytes.begin() + written);
        if (bytes.empty()) {
            bytes.assign(65536, 0x00);
        }
    }
    return 0;
}

int closedPort() {
    std::string port;
    {
        TCPServerTransportBuilder listener("0", "::ffff:127.0.0.1");
        port = listener.getListeningService();
    }
    if (port.empty()) {
        return 1;
    }
    std::cout << port << std::endl;
    return 0;
}

int checkJson() {
    std::string line;
    int lines = 0;
    while (std::getline(std::cin, line)) {
        ++lines;
        if (!nlohmann::json::parse(line, nullptr, false).is_object()) {
            std::cerr << "line " << lines << " is not a JSON object: " << line << '\n';
            return 1;
        }
    }
    if (lines == 0) {
        std::cerr << "no lines\n";
        return 1;
    }
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    const std::string mode = argc > 1 ? argv[1] : "";
    if (mode == "silent-listener" && argc == 3) {
        return silentListener(std::strtol(argv[2], nullptr, 10));
    }
    if (mode == "endless-frame" && argc == 3) {
        return endlessFrame(std::strtol(argv[2], nullptr, 10));
    }
    if (mode == "closed-port") {
        return closedPort();
    }
    if (mode == "check-json") {
        return checkJson();
    }
    std::cerr << "usage: cli_test_helper silent-listener SECONDS | closed-port | check-json\n";
    return 2;
}

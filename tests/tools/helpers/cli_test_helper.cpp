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
//   cli_test_helper crafted-capture FILE
//       writes a capture whose segments split frames, hold several frames,
//       a stuffed length, noise and broken frames (see capture.sh).
#include <chanlink/chanlink.h>

#include <poll.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <iostream>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "support/Bytes.h"

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

using testing_support::bytes;

int craftedCapture(const std::string& path) {
    std::string error;
    auto file = PcapWriter::open(path, error);
    if (!file) {
        std::cerr << error << '\n';
        return 1;
    }
    Encoder encoder;
    const auto frame = [&](const std::shared_ptr<const Message>& message) {
        std::vector<unsigned char> out;
        encoder.injectFrame(message->write(), out);
        return out;
    };
    CaptureStream stream(file, CaptureStream::Endpoint::loopback(40001),
                         CaptureStream::Endpoint::loopback(7301));
    const auto send = [&](CaptureStream::Side from, const std::vector<unsigned char>& bytes) {
        stream.record(from, bytes.data(), bytes.size());
    };
    using Side = CaptureStream::Side;
    // A login split in three segments, one of them a single byte.
    const auto login = frame(LoginRequest::newInstance("admin", "******"));
    send(Side::Client, {login.begin(), login.begin() + 3});
    send(Side::Client, {login.begin() + 3, login.begin() + 4});
    send(Side::Client, {login.begin() + 4, login.end()});
    // Three frames in one segment.
    auto several = frame(LoginResponse::newInstance(LoginResponse::Success));
    for (const auto& more :
         {frame(SubscriptionResponse::newInstance({5})),
          frame(GetResponse::newInstance({std::make_shared<const ChannelValue>(5, 500)}))}) {
        several.insert(several.end(), more.begin(), more.end());
    }
    send(Side::Server, several);
    // A 253-byte payload, whose length byte FD is stuffed, of FF bytes that
    // are stuffed too; split in the middle.
    const auto big = frame(SetRequest::newInstance(7, std::vector<unsigned char>(246, 0xFF)));
    send(Side::Client, {big.begin(), big.begin() + 100});
    send(Side::Client, {big.begin() + 100, big.end()});
    // Noise, a wrong length, a bad escape and a lost end marker, each
    // followed by a good frame.
    send(Side::Server, bytes("01 02 FF 02 00 00 00 0C 07 00 FE FF 05 00 00 00 0C 07 00 00 00 FE"));
    send(Side::Server, bytes("FF FD 05 00 00 00 0C FE FF 05 00 00 00 0C 08 00 00 00 FE"));
    send(Side::Server, bytes("FF 02 00 00 00 0F 01 FF 02 00 00 00 0F 00 FE"));
    send(Side::Server, frame(ErrorResponse::newInstance(0, 17, 99)));
    stream.close(Side::Client);
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
    if (mode == "crafted-capture" && argc == 3) {
        return craftedCapture(argv[2]);
    }
    std::cerr << "usage: cli_test_helper silent-listener SECONDS | closed-port | check-json |"
                 " crafted-capture FILE\n";
    return 2;
}

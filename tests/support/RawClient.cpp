#include "support/RawClient.h"

#include "support/Bytes.h"

namespace testing_support {

RawClient::RawClient(const std::string& host, const std::string& service)
    : transport(std::make_shared<TCPClientTransport>(host, service, nullptr)),
      chain(MessageProductionChain::newClientInstance()) {
    transport->connect();
}

void RawClient::send(const std::shared_ptr<const Message>& message) {
    if (message) {
        encoder.injectFrame(message->write(), unsent);
    }
    pump();
}

void RawClient::sendBytes(const std::vector<unsigned char>& bytes) {
    unsent.insert(unsent.end(), bytes.begin(), bytes.end());
    pump();
}

void RawClient::pump() {
    transport->tick();
    if (!unsent.empty()) {
        const int written = transport->write(unsent.data(), static_cast<int>(unsent.size()));
        if (written > 0) {
            unsent.erase(unsent.begin(), unsent.begin() + written);
        }
    }
    std::vector<unsigned char> buffer(65536);
    for (int n; (n = transport->read(buffer.data(), static_cast<int>(buffer.size()))) > 0;) {
        decoder.injectBytes(std::vector<unsigned char>(buffer.begin(), buffer.begin() + n));
    }
    while (decoder.hasFrames()) {
        const std::shared_ptr<const Message> message =
            chain->produceMessageFromFrame(decoder.extractFrame());
        if (message) {
            received.push_back(hex(message->getPayload()));
        }
    }
}

bool RawClient::closed() const {
    return transport->state() == ConnectionOutcome::Closed ||
           transport->state() == ConnectionOutcome::ConnectionFailed;
}

std::vector<std::string> RawClient::take() {
    std::vector<std::string> taken;
    taken.swap(received);
    return taken;
}

std::string payloadHex(const std::shared_ptr<const Message>& message) {
    return message ? hex(message->getPayload()) : std::string("<empty>");
}

}  // namespace testing_support

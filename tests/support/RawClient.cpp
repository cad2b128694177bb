#include "support/RawClient.h"

#include <utility>

#include "support/Bytes.h"

namespace testing_support {

RawClient::RawClient(const std::shared_ptr<TCPClientTransport>& transport)
    : ScriptedPeer(transport, MessageProductionChain::newClientInstance()), tcp(transport) {
    tcp->connect();
}

std::vector<std::string> RawClient::take() {
    std::vector<std::string> taken;
    for (const auto& payload : std::exchange(received, {})) {
        taken.push_back(hex(payload));
    }
    return taken;
}

std::string payloadHex(const std::shared_ptr<const Message>& message) {
    return message ? hex(message->getPayload()) : std::string("<empty>");
}

}  // namespace testing_support

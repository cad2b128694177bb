#include "support/RawClient.h"

#include "support/Bytes.h"

namespace testing_support {

RawClient::RawClient(const std::shared_ptr<TCPClientTransport>& transport)
    : ScriptedPeer(transport, MessageProductionChain::newClientInstance()), tcp(transport) {
    tcp->connect();
}

std::string payloadHex(const std::shared_ptr<const Message>& message) {
    return message ? hex(message->getPayload()) : std::string("<empty>");
}

}  // namespace testing_support

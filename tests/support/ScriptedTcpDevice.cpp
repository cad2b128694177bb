#include "support/ScriptedTcpDevice.h"

namespace testing_support {

ScriptedTcpDevice::ScriptedTcpDevice(const std::string& service) : service(service) {
    restart();
}

void ScriptedTcpDevice::restart() {
    listener = std::make_unique<TCPServerTransportBuilder>(service, "");
    if (listener->isListening()) {
        service = listener->getListeningService();
    }
}

int ScriptedTcpDevice::serve() {
    if (listener) {
        if (std::shared_ptr<TCPTransport> accepted = listener->accept(0, 0)) {
            auto peer = std::make_unique<ScriptedPeer>(accepted);
            peer->loginResult = loginResult;
            peer->channels = channels;
            peer->handlers = handlers;
            transports.push_back(accepted);
            peers.push_back(std::move(peer));
        }
    }
    int handled = 0;
    for (std::size_t i = 0; i < peers.size(); ++i) {
        if (transports[i]->state() == ConnectionOutcome::Connected) {
            handled += peers[i]->serve();
        }
    }
    return handled;
}

void ScriptedTcpDevice::stop() {
    for (const auto& transport : transports) {
        transport->close();
    }
    listener.reset();
}

}  // namespace testing_support

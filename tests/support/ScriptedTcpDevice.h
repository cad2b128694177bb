#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "chanlink/transport/TCPServerTransportBuilder.h"
#include "support/ScriptedPeer.h"

namespace testing_support {

// A scripted device on a TCP port of this host: it accepts connections and
// answers each with its own ScriptedPeer, made from the settings below. It can
// be stopped and started again on the same port, as a device that restarts.
// Runs in the test's thread: serve() does one round of its work.
class ScriptedTcpDevice {
public:
    // service "0" lets the system choose the port.
    explicit ScriptedTcpDevice(const std::string& service = "0");

    // The port listened on, as decimal text (kept across stop and restart).
    const std::string& port() const { return service; }
    bool listening() const { return listener && listener->isListening(); }

    // Accepts a waiting connection, without waiting, and serves every open
    // one; the number of requests handled.
    int serve();
    // Closes every connection and the listener.
    void stop();
    // Listens again on the same port.
    void restart();

    // The peer of the newest connection, or nullptr before the first.
    ScriptedPeer* peer() { return peers.empty() ? nullptr : peers.back().get(); }
    std::size_t connections() const { return peers.size(); }

    // Settings each new connection's peer starts with.
    unsigned char loginResult = 1;
    std::map<unsigned int, std::vector<unsigned char>> channels;
    std::map<OpCode, ScriptedPeer::Handler> handlers;

private:
    std::string service;
    std::unique_ptr<TCPServerTransportBuilder> listener;
    std::vector<std::shared_ptr<TCPTransport>> transports;
    std::vector<std::unique_ptr<ScriptedPeer>> peers;
};

}  // namespace testing_support

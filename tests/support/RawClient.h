#pragma once

#include <memory>
#include <string>
#include <vector>

#include "chanlink/transport/TCPClientTransport.h"
#include "support/ScriptedPeer.h"

namespace testing_support {

// A client that speaks in raw frames over TCP, for driving a device request
// by request and checking its every answer: a scripted peer that reads
// responses, which it never answers, and keeps every well-formed one.
class RawClient : public ScriptedPeer {
public:
    // Starts connecting; pump() completes it.
    RawClient(const std::string& host, const std::string& service)
        : RawClient(std::make_shared<TCPClientTransport>(host, service, nullptr)) {}

    // Moves bytes both ways once: connects, writes what is pending, reads
    // what has arrived and decodes it.
    void pump() {
        tcp->tick();
        serve();
    }
    bool closed() const { return tcp->state() >= ConnectionOutcome::ConnectionFailed; }

    std::shared_ptr<TCPClientTransport> tcp;

private:
    explicit RawClient(const std::shared_ptr<TCPClientTransport>& transport);
};

// Hex text of a message's payload, as ScriptedPeer::take gives it ("<empty>"
// for an empty pointer).
std::string payloadHex(const std::shared_ptr<const Message>& message);

}  // namespace testing_support

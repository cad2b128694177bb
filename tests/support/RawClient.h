#pragma once

#include <memory>
#include <string>
#include <vector>

#include "chanlink/messages/Message.h"
#include "chanlink/messages/MessageProductionChain.h"
#include "chanlink/transport/TCPClientTransport.h"
#include "chanlink/wire/Decoder.h"
#include "chanlink/wire/Encoder.h"

namespace testing_support {

// A client that speaks in raw frames over TCP, for driving a device request
// by request and checking its every answer: messages go out exactly as
// given, bytes exactly as given, and every well-formed response that comes
// back is kept, as hex text of its payload, in arrival order.
class RawClient {
public:
    // Starts connecting; pump() completes it.
    RawClient(const std::string& host, const std::string& service);

    // Frames and sends message (what the socket does not take now is sent by
    // a later pump).
    void send(const std::shared_ptr<const Message>& message);
    // Sends bytes as they are, no framing.
    void sendBytes(const std::vector<unsigned char>& bytes);
    // Moves bytes both ways once: connects, writes what is pending, reads
    // what has arrived and decodes it.
    void pump();

    bool connected() const { return transport->state() == ConnectionOutcome::Connected; }
    bool closed() const;
    // Everything received since the last take(), and forgets it.
    std::vector<std::string> take();
    std::size_t receivedCount() const { return received.size(); }
    void close() { transport->close(); }

    std::shared_ptr<TCPClientTransport> transport;
    std::vector<std::string> received;

private:
    std::shared_ptr<MessageProductionChain> chain;
    Decoder decoder;
    Encoder encoder;
    std::vector<unsigned char> unsent;
};

// Hex text of a message's payload, as RawClient records it ("<empty>" for
// an empty pointer).
std::string payloadHex(const std::shared_ptr<const Message>& message);

}  // namespace testing_support

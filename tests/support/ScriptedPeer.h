#pragma once

#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "chanlink/messages/ChannelValue.h"
#include "chanlink/messages/Message.h"
#include "chanlink/messages/MessageProductionChain.h"
#include "chanlink/transport/Transport.h"
#include "chanlink/wire/Decoder.h"
#include "chanlink/wire/Encoder.h"

namespace testing_support {

// The device end of a connection, built from the library's own decoder,
// encoder and request producers. serve() reads everything the transport has,
// records each request and answers it: logins with loginResult, gets with the
// values in `channels` (an error response with reason 7 for unknown ones),
// sets by storing the data (an error with reason 9 for unknown channels),
// subscriptions with a subscription response and the current values. A test
// may replace the answer for any opcode with its own handler. Given the
// client's chain instead, it reads responses, none of which it answers.
class ScriptedPeer {
public:
    using Handler = std::function<void(const Message&)>;

    explicit ScriptedPeer(std::shared_ptr<Transport> transport,
                          std::shared_ptr<MessageProductionChain> chain =
                              MessageProductionChain::newDeviceInstance());

    // Reads, decodes and answers everything available; returns the number of
    // requests handled.
    int serve();
    // Frames and writes a message (whatever the transport does not take now
    // is written by the next serve or send).
    void send(const std::shared_ptr<const Message>& message);
    // Writes bytes as they are, unframed, behind anything still unsent: half
    // frames, garbage.
    void sendBytes(const std::vector<unsigned char>& bytes);
    // Bytes sent or given to send that the transport has not taken yet.
    std::size_t unsentBytes() const { return unsent.size(); }
    // Sends the channel's current value as a get response, as a push.
    void push(unsigned int channelId);

    // Opcodes of the requests received, in order (9 for a login).
    std::vector<OpCode> opcodes() const;
    // Payloads of the messages received, in order: requests, or responses
    // for a peer given the client's chain.
    std::vector<std::vector<unsigned char>> received;
    // Those received since the last take(), as hex text, and forgets them.
    std::vector<std::string> take();

    unsigned char loginResult = 1;
    std::map<unsigned int, std::vector<unsigned char>> channels;
    std::map<OpCode, Handler> handlers;

private:
    void answer(const Message& request);
    void flush();

    std::shared_ptr<Transport> transport;
    Decoder decoder;
    Encoder encoder;
    std::shared_ptr<MessageProductionChain> chain;
    std::vector<unsigned char> unsent;
};

}  // namespace testing_support

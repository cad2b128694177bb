#include "support/ScriptedPeer.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "chanlink/messages/ErrorResponse.h"
#include "chanlink/messages/GetRequest.h"
#include "chanlink/messages/GetResponse.h"
#include "chanlink/messages/LogPushRequest.h"
#include "chanlink/messages/LoginResponse.h"
#include "chanlink/messages/SetRequest.h"
#include "chanlink/messages/SetResponse.h"
#include "chanlink/messages/SubscriptionRequest.h"
#include "chanlink/messages/SubscriptionResponse.h"
#include "chanlink/messages/UserAccountRequest.h"
#include "support/Bytes.h"

namespace testing_support {

ScriptedPeer::ScriptedPeer(std::shared_ptr<Transport> transport,
                           std::shared_ptr<MessageProductionChain> chain)
    : transport(std::move(transport)), chain(std::move(chain)) {}

int ScriptedPeer::serve() {
    flush();
    int handled = 0;
    std::vector<unsigned char> buffer(4096);
    for (int n; (n = transport->read(buffer.data(), static_cast<int>(buffer.size()))) > 0;) {
        decoder.injectBytes(std::vector<unsigned char>(buffer.begin(), buffer.begin() + n));
        while (decoder.hasFrames()) {
            const std::shared_ptr<const Message> request =
                chain->produceMessageFromFrame(decoder.extractFrame());
            if (request) {
                received.push_back(request->write());
                answer(*request);
                ++handled;
            }
        }
    }
    return handled;
}

void ScriptedPeer::send(const std::shared_ptr<const Message>& message) {
    if (message) {
        encoder.injectFrame(message->write(), unsent);
    }
    flush();
}

void ScriptedPeer::sendBytes(const std::vector<unsigned char>& bytes) {
    unsent.insert(unsent.end(), bytes.begin(), bytes.end());
    flush();
}

void ScriptedPeer::flush() {
    const int written = transport->write(unsent.data(), static_cast<int>(unsent.size()));
    unsent.erase(unsent.begin(), unsent.begin() + std::max(written, 0));
}

void ScriptedPeer::push(unsigned int channelId) {
    send(GetResponse::newInstance({std::make_shared<ChannelValue>(
        channelId, std::vector<unsigned char>{}, channels[channelId])}));
}

std::vector<std::string> ScriptedPeer::take() {
    std::vector<std::string> taken;
    const auto payloads = std::exchange(received, {});
    std::transform(payloads.begin(), payloads.end(), std::back_inserter(taken), hex);
    return taken;
}

std::vector<OpCode> ScriptedPeer::opcodes() const {
    std::vector<OpCode> codes;
    std::transform(received.begin(), received.end(), std::back_inserter(codes),
                   [](const std::vector<unsigned char>& payload) { return payload.at(0); });
    return codes;
}

void ScriptedPeer::answer(const Message& request) {
    const OpCode code = request.getOpCode();
    const auto handler = handlers.find(code);
    if (handler != handlers.end()) {
        handler->second(request);
        return;
    }
    switch (code) {
        case UserAccountRequest::Code:
            send(LoginResponse::newInstance(static_cast<LoginResponse::Result>(loginResult)));
            break;
        case GetRequest::Code:
            for (unsigned int id : static_cast<const GetRequest&>(request).getChannelList()) {
                if (channels.count(id) != 0) {
                    push(id);
                } else {
                    send(ErrorResponse::newInstance(GetRequest::Code, 7, id));
                }
            }
            break;
        case SetRequest::Code: {
            const auto& set = static_cast<const SetRequest&>(request);
            if (channels.count(set.getChannelId()) != 0) {
                channels[set.getChannelId()] = set.getData();
                send(SetResponse::newInstance(set.getChannelId()));
            } else {
                send(ErrorResponse::newInstance(SetRequest::Code, 9, set.getChannelId()));
            }
            break;
        }
        case SubscriptionRequest::Code: {
            const auto ids = static_cast<const SubscriptionRequest&>(request).getChannelList();
            send(SubscriptionResponse::newInstance(ids));
            for (unsigned int id : ids) {
                if (channels.count(id) != 0) {
                    push(id);
                }
            }
            break;
        }
        default:
            break;  // log push: nothing to answer
    }
}

}  // namespace testing_support

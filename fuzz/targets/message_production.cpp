// Every message producer, through the client's and the device's production
// chains, fed an arbitrary frame payload.
//
// Two device chains differ only at opcode 3, which subscription and
// unsubscription requests share: one holds each. Invariants: both chains accept the same
// payloads; an accepted message has the class its opcode names, keeps the
// payload unchanged, survives framing and decoding, and is rebuilt byte for
// byte by its class's newInstance from what its getters read; one byte more or
// less makes a fixed-layout message unacceptable.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "FuzzCheck.h"
#include "chanlink/messages/ChannelValue.h"
#include "chanlink/messages/ErrorResponse.h"
#include "chanlink/messages/GetRequest.h"
#include "chanlink/messages/GetResponse.h"
#include "chanlink/messages/LogPushRequest.h"
#include "chanlink/messages/LoginRequest.h"
#include "chanlink/messages/LoginResponse.h"
#include "chanlink/messages/Message.h"
#include "chanlink/messages/MessageProductionChain.h"
#include "chanlink/messages/SetRequest.h"
#include "chanlink/messages/SetResponse.h"
#include "chanlink/messages/SubscriptionRequest.h"
#include "chanlink/messages/SubscriptionResponse.h"
#include "chanlink/messages/UnsubscriptionRequest.h"
#include "chanlink/messages/UserAccountRequest.h"
#include "support/Frames.h"

namespace {

using Bytes = std::vector<unsigned char>;
using MessagePtr = std::shared_ptr<const Message>;

// The device's chain and the client's hold every producer between them and
// share no opcode. The second device chain reads opcode 3 as unsubscriptions.
MessagePtr produce(const Bytes& payload, bool unsubscription = false) {
    static const auto responses = MessageProductionChain::newClientInstance();
    static const auto requests = MessageProductionChain::newDeviceInstance();
    static const auto unsubscriptions = [] {
        auto chain = MessageProductionChain::newDeviceInstance();
        chain->addProducer(UnsubscriptionRequest::Code, UnsubscriptionRequest::read);
        return chain;
    }();
    const MessagePtr request =
        (unsubscription ? unsubscriptions : requests)->produceMessageFromFrame(payload);
    return request ? request : responses->produceMessageFromFrame(payload);
}

template <typename T>
const T& as(const MessagePtr& message) {
    const T* typed = dynamic_cast<const T*>(message.get());
    FUZZ_CHECK(typed != nullptr);
    return *typed;
}

void checkRebuilt(const MessagePtr& rebuilt, const Bytes& payload) {
    FUZZ_CHECK(rebuilt != nullptr);
    FUZZ_CHECK(rebuilt->getPayload() == payload);
}

// A value whose header length exceeds its total length moves the reader back
// instead of on; such a payload is accepted but does not come back from its
// values. A value that did that has a header and no data.
bool mayHaveMovedBack(const std::vector<ChannelValue>& values) {
    return std::any_of(values.begin(), values.end(), [](const ChannelValue& value) {
        return !value.getHeader().empty() && value.getData().empty();
    });
}

void checkGetResponse(const MessagePtr& message, const Bytes& payload) {
    const std::vector<ChannelValue> values = as<GetResponse>(message).getChannelValues();
    std::vector<std::shared_ptr<const ChannelValue>> shared;
    for (const ChannelValue& value : values) {
        shared.push_back(std::make_shared<const ChannelValue>(value));
    }
    const MessagePtr rebuilt = GetResponse::newInstance(shared);
    FUZZ_CHECK(rebuilt != nullptr);
    FUZZ_CHECK(rebuilt->getPayload() == payload || mayHaveMovedBack(values));
}

void checkErrorResponse(const MessagePtr& message, const Bytes& payload) {
    const ErrorResponse& error = as<ErrorResponse>(message);
    const MessagePtr rebuilt = ErrorResponse::newInstance(
        error.getTriggeringOpCode(), error.getReasonCode(), error.getChannelId());
    // Trailing bytes are accepted and not rebuilt.
    FUZZ_CHECK(rebuilt != nullptr);
    const Bytes& head = rebuilt->getPayload();
    FUZZ_CHECK(head.size() <= payload.size());
    FUZZ_CHECK(std::equal(head.begin(), head.end(), payload.begin()));
}

void checkLoginRequest(const MessagePtr& message, const Bytes& payload) {
    const LoginRequest& login = as<LoginRequest>(message);
    FUZZ_CHECK(LoginRequest::read(payload) != nullptr);
    // The getters read one byte early, as deployed peers expect, so they do
    // not give the strings back; they run here for the sanitizers only.
    login.getUsername();
    login.getPassword();
    // Opcode, sub-message type, magic, the two lengths, then both strings.
    const std::size_t usernameLength = payload[3];
    const auto usernameStart = payload.begin() + 5;
    const auto passwordStart = usernameStart + static_cast<std::ptrdiff_t>(usernameLength);
    checkRebuilt(LoginRequest::newInstance(std::string(usernameStart, passwordStart),
                                           std::string(passwordStart, payload.end())),
                 payload);
}

// The class that the opcode names, and its newInstance round trip.
void checkByOpCode(const MessagePtr& message, const Bytes& payload, bool unsubscription) {
    switch (message->getOpCode()) {
        case GetRequest::Code:
            checkRebuilt(GetRequest::newInstance(as<GetRequest>(message).getChannelList()),
                         payload);
            break;
        case SetRequest::Code: {
            const SetRequest& set = as<SetRequest>(message);
            checkRebuilt(SetRequest::newInstance(set.getChannelId(), set.getData()), payload);
            break;
        }
        case SubscriptionRequest::Code:
            if (unsubscription) {
                checkRebuilt(UnsubscriptionRequest::newInstance(
                                 as<UnsubscriptionRequest>(message).getChannelList()),
                             payload);
            } else {
                checkRebuilt(SubscriptionRequest::newInstance(
                                 as<SubscriptionRequest>(message).getChannelList()),
                             payload);
            }
            break;
        case LogPushRequest::Code:
            checkRebuilt(LogPushRequest::newInstance(as<LogPushRequest>(message).getValue()),
                         payload);
            break;
        case UserAccountRequest::Code:
            checkLoginRequest(message, payload);
            break;
        case GetResponse::Code:
            checkGetResponse(message, payload);
            break;
        case SetResponse::Code:
            checkRebuilt(SetResponse::newInstance(as<SetResponse>(message).getChannelId()),
                         payload);
            break;
        case SubscriptionResponse::Code:
            checkRebuilt(SubscriptionResponse::newInstance(
                             as<SubscriptionResponse>(message).getChannelList()),
                         payload);
            break;
        case LoginResponse::Code:
            checkRebuilt(LoginResponse::newInstance(as<LoginResponse>(message).getResult()),
                         payload);
            break;
        case ErrorResponse::Code:
            checkErrorResponse(message, payload);
            break;
        default:
            FUZZ_CHECK(!"a message for an opcode that has no producer");
    }
}

void checkAccepted(const MessagePtr& message, const Bytes& payload, bool unsubscription) {
    FUZZ_CHECK(message->getOpCode() == payload[0]);
    FUZZ_CHECK(message->getPayload() == payload);
    FUZZ_CHECK(message->write() == payload);
    checkByOpCode(message, payload, unsubscription);
}

// What the peer receives when this message is sent: the same payload, accepted again.
void checkFramed(const Bytes& payload) {
    FUZZ_CHECK(testing_support::framesIn(testing_support::framed(payload)) ==
               std::vector<Bytes>{payload});
    FUZZ_CHECK(produce(payload) != nullptr);
}

// Every layout but two is exact: a byte more or less is rejected. Error
// responses take trailing bytes; a get response's values may move the reader
// back, so its length alone proves nothing.
void checkExactLength(const Bytes& payload) {
    const OpCode code = payload[0];
    if (code == ErrorResponse::Code || code == GetResponse::Code) {
        return;
    }
    Bytes longer = payload;
    longer.push_back(0);
    FUZZ_CHECK(produce(longer) == nullptr);
    const Bytes shorter(payload.begin(), payload.end() - 1);
    FUZZ_CHECK(produce(shorter) == nullptr);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const Bytes payload(data, data + size);
    const MessagePtr message = produce(payload);
    const MessagePtr other = produce(payload, true);
    FUZZ_CHECK((message == nullptr) == (other == nullptr));
    if (message == nullptr) {
        return 0;
    }
    FUZZ_CHECK(!payload.empty());
    checkAccepted(message, payload, false);
    checkAccepted(other, payload, true);
    checkFramed(payload);
    checkExactLength(payload);
    return 0;
}

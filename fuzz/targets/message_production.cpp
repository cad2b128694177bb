// Every message producer, through the client's and the device's production
// chains, fed an arbitrary frame payload.
//
// Two device chains differ only at opcode 3, which subscription and
// unsubscription requests share: one holds each. Invariants: both chains
// accept the same payloads; an accepted message has the class its opcode
// names, keeps the payload unchanged, and is rebuilt byte for byte by its
// class's newInstance from what its getters read; one byte more or less makes
// a fixed-layout message unacceptable. (That a payload survives framing is the
// decoder_chunking target's.)
#include <algorithm>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "FuzzCheck.h"
#include "chanlink/chanlink.h"

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
const T& as(const Message& message) {
    const T* typed = dynamic_cast<const T*>(&message);
    FUZZ_CHECK(typed != nullptr);
    return *typed;
}

// T's newInstance from what getters read from message, which must be a T.
template <typename T, typename... Result, typename... Class>
MessagePtr from(const Message& message, Result (Class::*... getters)() const) {
    const T& typed = as<T>(message);
    return T::newInstance((typed.*getters)()...);
}

MessagePtr login(const Message& message) {
    // The getters read one byte early, as deployed peers expect, so they do
    // not give the strings back; they run here for the sanitizers only.
    as<LoginRequest>(message).getUsername();
    as<LoginRequest>(message).getPassword();
    // Opcode, sub-message type, magic, the two lengths, then both strings.
    const Bytes& payload = message.getPayload();
    const auto passwordStart = payload.begin() + 5 + payload[3];
    return LoginRequest::newInstance(std::string(payload.begin() + 5, passwordStart),
                                     std::string(passwordStart, payload.end()));
}

// Each class's newInstance, from what its getters read.
MessagePtr rebuild(const Message& message, bool unsubscription) {
    switch (message.getOpCode()) {
        case GetRequest::Code:
            return from<GetRequest>(message, &GetRequest::getChannelList);
        case SetRequest::Code:
            return from<SetRequest>(message, &SetRequest::getChannelId, &SetRequest::getData);
        case SubscriptionRequest::Code:
            return unsubscription
                       ? from<UnsubscriptionRequest>(message, &ChannelListMessage::getChannelList)
                       : from<SubscriptionRequest>(message, &ChannelListMessage::getChannelList);
        case LogPushRequest::Code:
            return from<LogPushRequest>(message, &LogPushRequest::getValue);
        case UserAccountRequest::Code:
            return login(message);
        case GetResponse::Code: {
            std::vector<std::shared_ptr<const ChannelValue>> values;
            for (const ChannelValue& value : as<GetResponse>(message).getChannelValues()) {
                values.push_back(std::make_shared<const ChannelValue>(value));
            }
            return GetResponse::newInstance(values);
        }
        case SetResponse::Code:
            return from<SetResponse>(message, &SetResponse::getChannelId);
        case SubscriptionResponse::Code:
            return from<SubscriptionResponse>(message, &ChannelListMessage::getChannelList);
        case LoginResponse::Code:
            return from<LoginResponse>(message, &LoginResponse::getResult);
        case ErrorResponse::Code:
            return from<ErrorResponse>(message, &ErrorResponse::getTriggeringOpCode,
                                       &ErrorResponse::getReasonCode, &ErrorResponse::getChannelId);
        default:
            FUZZ_CHECK(!"a message for an opcode that has no producer");
            return nullptr;
    }
}

// A value whose header length exceeds its total length moves the reader back
// instead of on; such a payload is accepted but does not come back from its
// values. A value that did that has a header and no data.
bool mayHaveMovedBack(const Message& message) {
    const std::vector<ChannelValue> read = as<GetResponse>(message).getChannelValues();
    return std::any_of(read.begin(), read.end(), [](const ChannelValue& value) {
        return !value.getHeader().empty() && value.getData().empty();
    });
}

void checkAccepted(const MessagePtr& message, const Bytes& payload, bool unsubscription) {
    const OpCode code = payload[0];
    FUZZ_CHECK(message->getOpCode() == code && message->write() == payload);
    const MessagePtr rebuilt = rebuild(*message, unsubscription);
    FUZZ_CHECK(rebuilt != nullptr);
    const Bytes& again = rebuilt->getPayload();
    if (code == ErrorResponse::Code) {  // trailing bytes are accepted and not rebuilt
        FUZZ_CHECK(again.size() <= payload.size());
        FUZZ_CHECK(std::equal(again.begin(), again.end(), payload.begin()));
    } else {
        FUZZ_CHECK(again == payload || (code == GetResponse::Code && mayHaveMovedBack(*message)));
    }
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
    checkAccepted(message, payload, false);
    checkAccepted(other, payload, true);

    // Every layout but two is exact: a byte more or less is rejected. Error
    // responses take trailing bytes; a get response's values may move the
    // reader back, so its length alone proves nothing.
    if (payload[0] != ErrorResponse::Code && payload[0] != GetResponse::Code) {
        Bytes longer = payload;
        longer.push_back(0);
        FUZZ_CHECK(produce(longer) == nullptr);
        FUZZ_CHECK(produce(Bytes(payload.begin(), payload.end() - 1)) == nullptr);
    }
    return 0;
}

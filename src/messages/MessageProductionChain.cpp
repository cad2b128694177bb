#include "chanlink/messages/MessageProductionChain.h"

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

MessageProductionChain::MessageProductionChain() = default;

std::shared_ptr<MessageProductionChain> MessageProductionChain::newClientInstance() {
    auto chain = std::make_shared<MessageProductionChain>();
    chain->addProducer(LoginResponse::Code, &LoginResponse::read);
    chain->addProducer(GetResponse::Code, &GetResponse::read);
    chain->addProducer(SetResponse::Code, &SetResponse::read);
    chain->addProducer(SubscriptionResponse::Code, &SubscriptionResponse::read);
    chain->addProducer(ErrorResponse::Code, &ErrorResponse::read);
    return chain;
}

std::shared_ptr<MessageProductionChain> MessageProductionChain::newDeviceInstance() {
    auto chain = std::make_shared<MessageProductionChain>();
    chain->addProducer(GetRequest::Code, &GetRequest::read);
    chain->addProducer(SetRequest::Code, &SetRequest::read);
    // Opcode 3 serves subscriptions and unsubscriptions alike, byte for
    // byte; a device reads every such request as a subscription.
    chain->addProducer(SubscriptionRequest::Code, &SubscriptionRequest::read);
    chain->addProducer(LogPushRequest::Code, &LogPushRequest::read);
    chain->addProducer(UserAccountRequest::Code, &UserAccountRequest::read);
    return chain;
}

void MessageProductionChain::addProducer(OpCode code, Producer producer) {
    producers[code] = producer;
}

MessageProductionChain::Producer MessageProductionChain::getProducer(OpCode code) const {
    const auto entry = producers.find(code);
    return entry != producers.end() ? entry->second : nullptr;
}

std::shared_ptr<const Message> MessageProductionChain::produceMessageFromFrame(
    const std::vector<unsigned char>& frame) {
    if (frame.empty()) {
        return nullptr;
    }
    const Producer producer = producers[frame[Message::OpCodePosition]];
    return producer ? producer(frame) : nullptr;
}

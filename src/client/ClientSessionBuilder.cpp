#include "chanlink/client/ClientSessionBuilder.h"

#include "chanlink/client/GetOutcomeTransform.h"
#include "chanlink/client/LoginValveController.h"
#include "chanlink/client/SetOutcomeTransform.h"
#include "chanlink/flow/QueuedReceiver.h"
#include "chanlink/flow/TypedTransform.h"
#include "chanlink/flow/Valve.h"
#include "chanlink/messages/ErrorResponse.h"
#include "chanlink/messages/LoginResponse.h"
#include "chanlink/messages/MessageProductionChain.h"

namespace {

constexpr unsigned int EndPointCapacity = 1024;

}  // namespace

ClientSessionBuilder::ClientSessionBuilder() = default;

ClientSessionBuilder::~ClientSessionBuilder() = default;

ClientSessionBuilder& ClientSessionBuilder::setTransport(std::shared_ptr<Transport> newTransport) {
    transport = std::move(newTransport);
    return *this;
}

ClientSessionBuilder& ClientSessionBuilder::setUsername(const std::string& newUsername) {
    username = newUsername;
    usernameSet = true;
    return *this;
}

ClientSessionBuilder& ClientSessionBuilder::setPassword(const std::string& newPassword) {
    password = newPassword;
    passwordSet = true;
    return *this;
}

// The order of creation and of every receiver list below is what the
// session's behaviour rests on: login outcomes reach the get and subscription
// managers before the valve controller, so that their renewals join the held
// requests in one ordered burst when the valve opens.
std::shared_ptr<ClientSession> ClientSessionBuilder::build() {
    if (!transport || !usernameSet || !passwordSet) {
        return nullptr;
    }
    using MessagePointer = std::shared_ptr<const Message>;

    auto decoder = std::make_shared<Decoder>();
    auto productionChain = MessageProductionChain::newClientInstance();

    auto outgoingQueue = std::make_shared<QueuedReceiver<MessagePointer>>();
    auto encoder = std::make_shared<Encoder>();
    auto valve = std::make_shared<Valve<MessagePointer>>(outgoingQueue, false);

    auto getManager = std::make_shared<ClientGetManager>(valve);
    auto setManager = std::make_shared<ClientSetManager>(valve);
    auto subscriptionManager = std::make_shared<ClientSubscriptionManager>(valve);
    auto pushSubscriptionManager = std::make_shared<ClientPushSubscriptionManager>(valve);

    auto loginOutcomeDispatcher = std::make_shared<Dispatcher<LoginOutcome>>();
    // The login request goes to the queue itself, never held by the valve.
    auto loginManager = std::make_shared<ClientLoginManager>(outgoingQueue, username, password,
                                                             loginOutcomeDispatcher);
    loginOutcomeDispatcher->addReceiver(getManager);
    loginOutcomeDispatcher->addReceiver(subscriptionManager);
    loginOutcomeDispatcher->addReceiver(pushSubscriptionManager);
    loginOutcomeDispatcher->addReceiver(std::make_shared<LoginValveController>(valve));

    auto getOutcomeDispatcher = std::make_shared<Dispatcher<GetOutcome>>();
    getOutcomeDispatcher->addReceiver(getManager);
    getOutcomeDispatcher->addReceiver(subscriptionManager);
    getOutcomeDispatcher->addReceiver(pushSubscriptionManager);

    auto errorResponseDispatcher = std::make_shared<Dispatcher<ErrorResponse>>();

    auto getOutcomeTransform = std::make_shared<GetOutcomeTransform>(getOutcomeDispatcher);
    auto setOutcomeTransform = std::make_shared<SetOutcomeTransform>(setManager);
    auto loginResponseTransform =
        std::make_shared<TypedTransform<Message, LoginResponse>>(loginManager);
    auto errorResponseTransform =
        std::make_shared<TypedTransform<Message, ErrorResponse>>(errorResponseDispatcher);

    auto messageDispatcher = std::make_shared<Dispatcher<Message>>();
    messageDispatcher->addReceiver(getOutcomeTransform);
    messageDispatcher->addReceiver(setOutcomeTransform);
    messageDispatcher->addReceiver(loginResponseTransform);
    messageDispatcher->addReceiver(errorResponseTransform);

    auto incomingEndPoint = std::make_shared<IncomingEndPoint>(EndPointCapacity, decoder, transport,
                                                               productionChain, messageDispatcher);
    auto outgoingEndPoint = std::make_shared<OutgoingEndPoint>(static_cast<int>(EndPointCapacity),
                                                               transport, encoder, outgoingQueue);

    return std::make_shared<ClientSession>(transport, getManager, setManager, subscriptionManager,
                                           pushSubscriptionManager, loginManager,
                                           loginOutcomeDispatcher, errorResponseDispatcher,
                                           incomingEndPoint, outgoingEndPoint);
}

#include "chanlink/client/ClientSession.h"

#include "chanlink/flow/QueuedReceiver.h"

ClientSession::ClientSession(std::shared_ptr<Transport> transport,
                             std::shared_ptr<ClientGetManager> getManager,
                             std::shared_ptr<ClientSetManager> setManager,
                             std::shared_ptr<ClientSubscriptionManager> subscriptionManager,
                             std::shared_ptr<ClientPushSubscriptionManager> pushSubscriptionManager,
                             std::shared_ptr<ClientLoginManager> loginManager,
                             std::shared_ptr<Dispatcher<LoginOutcome>> loginOutcomeDispatcher,
                             std::shared_ptr<Dispatcher<ErrorResponse>> errorResponseDispatcher,
                             std::shared_ptr<IncomingEndPoint> incomingEndPoint,
                             std::shared_ptr<OutgoingEndPoint> outgoingEndPoint)
    : Session(std::move(transport), std::move(incomingEndPoint), std::move(outgoingEndPoint)),
      getManager(std::move(getManager)),
      setManager(std::move(setManager)),
      subscriptionManager(std::move(subscriptionManager)),
      pushSubscriptionManager(std::move(pushSubscriptionManager)),
      loginManager(std::move(loginManager)),
      loginOutcomeDispatcher(std::move(loginOutcomeDispatcher)),
      errorResponseDispatcher(std::move(errorResponseDispatcher)) {}

// Takes nothing over, on purpose: see the header.
ClientSession::ClientSession(const ClientSession& other) : Session(other) {}

ClientSession::~ClientSession() = default;

void ClientSession::tick() {
    Session::tick();
}

void ClientSession::reset() {
    if (setManager) {
        setManager->reset();
    }
    Session::reset();
}

LoginOutcome ClientSession::getLoginState() const {
    return loginManager ? loginManager->getState() : LoginOutcome(LoginOutcome::NotAttempted);
}

bool ClientSession::initiateLogin() {
    return loginManager && loginManager->initiateLogin();
}

LoginOutcome ClientSession::blockingLogin() {
    if (!initiateLogin()) {
        return LoginOutcome(LoginOutcome::Failure);
    }
    while (getLoginState().loginPending()) {
        tick();
    }
    return getLoginState();
}

GetOutcome ClientSession::blockingGet(unsigned int channelId) {
    if (!getManager) {
        return GetOutcome(channelId, SetOutcome::Discarded);
    }
    const auto queue = std::make_shared<QueuedReceiver<GetOutcome>>();
    requestChannel(channelId, queue);
    while (queue->empty()) {
        tick();
    }
    return queue->dequeue();
}

void ClientSession::requestChannel(unsigned int channelId,
                                   std::shared_ptr<Receiver<GetOutcome>> receiver) {
    if (getManager) {
        getManager->requestChannel(channelId, std::move(receiver));
    }
}

void ClientSession::setChannel(unsigned int channelId, const std::vector<unsigned char>& data,
                               std::shared_ptr<Receiver<SetOutcome>> receiver) {
    if (setManager) {
        setManager->setChannel(channelId, data, std::move(receiver));
    }
}

void ClientSession::addSubscription(unsigned int channelId,
                                    std::shared_ptr<Receiver<GetOutcome>> receiver) {
    if (subscriptionManager) {
        subscriptionManager->addSubscription(channelId, std::move(receiver));
    }
}

void ClientSession::removeSubscription(unsigned int channelId,
                                       std::shared_ptr<Receiver<GetOutcome>> receiver) {
    if (subscriptionManager) {
        subscriptionManager->removeSubscription(channelId, std::move(receiver));
    }
}

void ClientSession::addPushSubscription(unsigned int channelId,
                                        std::shared_ptr<Receiver<GetOutcome>> receiver) {
    if (pushSubscriptionManager) {
        pushSubscriptionManager->addSubscription(channelId, std::move(receiver));
    }
}

void ClientSession::removePushSubscription(unsigned int channelId,
                                           std::shared_ptr<Receiver<GetOutcome>> receiver) {
    if (pushSubscriptionManager) {
        pushSubscriptionManager->removeSubscription(channelId, std::move(receiver));
    }
}

void ClientSession::addLoginOutcomeReceiver(std::shared_ptr<Receiver<LoginOutcome>> receiver) {
    if (loginOutcomeDispatcher) {
        loginOutcomeDispatcher->addReceiver(std::move(receiver));
    }
}

void ClientSession::removeLoginOutcomeReceiver(std::shared_ptr<Receiver<LoginOutcome>> receiver) {
    if (loginOutcomeDispatcher) {
        loginOutcomeDispatcher->removeReceiver(std::move(receiver));
    }
}

void ClientSession::addErrorResponseReceiver(std::shared_ptr<Receiver<ErrorResponse>> receiver) {
    if (errorResponseDispatcher) {
        errorResponseDispatcher->addReceiver(std::move(receiver));
    }
}

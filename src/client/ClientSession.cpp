#include "chanlink/client/ClientSession.h"

#include "chanlink/flow/QueuedReceiver.h"
#include "chanlink/transport/TCPTransport.h"

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

std::optional<LoginOutcome> ClientSession::blockingLogin(std::chrono::milliseconds timeout) {
    if (!initiateLogin()) {
        return LoginOutcome(LoginOutcome::Failure);
    }
    if (!tickUntil([this] { return !getLoginState().loginPending(); }, timeout)) {
        return std::nullopt;
    }
    return getLoginState();
}

std::optional<GetOutcome> ClientSession::blockingGet(unsigned int channelId,
                                                     std::chrono::milliseconds timeout) {
    if (!getManager) {
        return GetOutcome(channelId, SetOutcome::Discarded);
    }
    const auto queue = std::make_shared<QueuedReceiver<GetOutcome>>();
    requestChannel(channelId, queue);
    if (!tickUntil([&queue] { return !queue->empty(); }, timeout)) {
        cancelRequest(channelId, queue);
        return std::nullopt;
    }
    return queue->dequeue();
}

std::optional<SetOutcome> ClientSession::blockingSet(unsigned int channelId,
                                                     const std::vector<unsigned char>& data,
                                                     std::chrono::milliseconds timeout) {
    if (!setManager) {
        return SetOutcome(channelId, SetOutcome::Discarded);
    }
    const auto queue = std::make_shared<QueuedReceiver<SetOutcome>>();
    setChannel(channelId, data, queue);
    // A set that cannot be built is reported from inside setChannel.
    if (queue->empty() && !tickUntil([&queue] { return !queue->empty(); }, timeout)) {
        cancelSet(queue);
        return std::nullopt;
    }
    return queue->dequeue();
}

bool ClientSession::tickUntil(const std::function<bool()>& done,
                              std::chrono::milliseconds timeout) {
    const std::shared_ptr<ClientClock> time = getClock();
    const ClientClock::TimePoint deadline = ClientClock::deadlineAfter(time->now(), timeout);
    for (;;) {
        tick();
        if (done()) {
            return true;
        }
        const std::chrono::milliseconds remaining =
            ClientClock::remainingUntil(time->now(), deadline);
        if (remaining.count() == 0) {
            return false;
        }
        waitForActivity(remaining);
    }
}

bool ClientSession::waitForActivity(std::chrono::milliseconds timeout) {
    const pollfd entry = getPollDescriptor();
    if (entry.fd >= 0) {
        return getClock()->waitFor(entry.fd, entry.events, timeout);
    }
    if (dynamic_cast<const TCPTransport*>(getTransport().get()) != nullptr) {
        getClock()->waitFor(-1, 0, timeout);
        return false;
    }
    return true;
}

pollfd ClientSession::getPollDescriptor() const {
    pollfd entry{};
    entry.fd = -1;
    const auto* tcp = dynamic_cast<const TCPTransport*>(getTransport().get());
    if (tcp == nullptr || tcp->getSocket() <= 0) {
        return entry;
    }
    switch (tcp->state()) {
        case ConnectionOutcome::Connecting:
            // A connect under way completes when the socket turns writable.
            entry.fd = tcp->getSocket();
            entry.events = POLLOUT;
            break;
        case ConnectionOutcome::Connected:
            entry.fd = tcp->getSocket();
            entry.events = static_cast<short>(POLLIN | (pendingOutputBytes() > 0 ? POLLOUT : 0));
            break;
        default:
            break;
    }
    return entry;
}

void ClientSession::cancelRequest(unsigned int channelId,
                                  std::shared_ptr<Receiver<GetOutcome>> receiver) {
    if (getManager) {
        getManager->cancelRequest(channelId, std::move(receiver));
    }
}

void ClientSession::cancelSet(const std::shared_ptr<Receiver<SetOutcome>>& receiver) {
    if (setManager) {
        setManager->cancelSet(receiver);
    }
}

void ClientSession::setClock(std::shared_ptr<ClientClock> newClock) {
    clock = std::move(newClock);
}

std::shared_ptr<ClientClock> ClientSession::getClock() const {
    return clock ? clock : ClientClock::system();
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

#include "chanlink/client/ClientSession.h"

#include "chanlink/client/PushedValueRelay.h"
#include "chanlink/client/SessionWaiter.h"
#include "chanlink/flow/QueuedReceiver.h"
#include "chanlink/messages/ReasonCode.h"

namespace {

// The untimed calls have no limit of any kind, the bounds included: they
// keep the plain loop's meaning and only sleep between its ticks.
SessionWaiter unboundedWaiter() {
    SessionWaiter waiter;
    waiter.setMaxUndecodedBytes(0);
    waiter.setMaxQueuedRequests(0);
    return waiter;
}

// The session's relay for addPushReceiver, among the receivers of its
// incoming messages; made there when create is set.
std::shared_ptr<PushedValueRelay> findPushRelay(const std::shared_ptr<IncomingEndPoint>& incoming,
                                                bool create) {
    const auto messages = std::dynamic_pointer_cast<Dispatcher<Message>>(
        incoming ? incoming->getMessageDistributor() : nullptr);
    if (!messages) {
        return nullptr;
    }
    auto relay = messages->findReceiverOfType<PushedValueRelay>();
    if (!relay && create) {
        relay = std::make_shared<PushedValueRelay>();
        messages->addReceiver(relay);
    }
    return relay;
}

}  // namespace

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

// Without a time limit or bounds, the timed calls wait until they are done.
LoginOutcome ClientSession::blockingLogin() {
    return *blockingLogin(std::chrono::milliseconds::max(), unboundedWaiter());
}

GetOutcome ClientSession::blockingGet(unsigned int channelId) {
    return *blockingGet(channelId, std::chrono::milliseconds::max(), unboundedWaiter());
}

std::optional<LoginOutcome> ClientSession::blockingLogin(std::chrono::milliseconds timeout,
                                                         const SessionWaiter& waiter) {
    if (!initiateLogin()) {
        return LoginOutcome(LoginOutcome::Failure);
    }
    const auto result = waiter.tickUntil(
        *this, [this] { return !getLoginState().loginPending(); }, timeout);
    if (result != SessionWaiter::Result::Done) {
        return std::nullopt;
    }
    return getLoginState();
}

std::optional<GetOutcome> ClientSession::blockingGet(unsigned int channelId,
                                                     std::chrono::milliseconds timeout,
                                                     const SessionWaiter& waiter) {
    if (!getManager) {
        return GetOutcome(channelId, SetOutcome::Discarded);
    }
    const auto queue = std::make_shared<QueuedReceiver<GetOutcome>>();
    requestChannel(channelId, queue);
    const auto result = waiter.tickUntil(
        *this, [&queue] { return !queue->empty(); }, timeout);
    if (result != SessionWaiter::Result::Done) {
        cancelRequest(channelId, queue);
        if (const auto reason = SessionWaiter::closingReason(result)) {
            return GetOutcome(channelId, *reason);
        }
        return std::nullopt;
    }
    return queue->dequeue();
}

std::optional<SetOutcome> ClientSession::blockingSet(unsigned int channelId,
                                                     const std::vector<unsigned char>& data,
                                                     std::chrono::milliseconds timeout,
                                                     const SessionWaiter& waiter) {
    if (!setManager) {
        return SetOutcome(channelId, SetOutcome::Discarded);
    }
    const auto queue = std::make_shared<QueuedReceiver<SetOutcome>>();
    setChannel(channelId, data, queue);
    // A set that cannot be built is reported from inside setChannel.
    if (!queue->empty()) {
        return queue->dequeue();
    }
    const auto result = waiter.tickUntil(
        *this, [&queue] { return !queue->empty(); }, timeout);
    if (result != SessionWaiter::Result::Done) {
        cancelSet(queue);
        if (const auto reason = SessionWaiter::closingReason(result)) {
            return SetOutcome(channelId, *reason);
        }
        return std::nullopt;
    }
    return queue->dequeue();
}

bool ClientSession::waitForActivity(std::chrono::milliseconds timeout) {
    return SessionWaiter().waitForActivity(*this, timeout);
}

pollfd ClientSession::getPollDescriptor() const {
    return SessionWaiter::pollDescriptor(*this);
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

void ClientSession::addPushReceiver(std::shared_ptr<Receiver<GetOutcome>> receiver) {
    const auto relay =
        receiver && pushSubscriptionManager ? findPushRelay(getIncomingEndPoint(), true) : nullptr;
    if (!relay) {
        return;
    }
    if (!relay->receivers().hasReceivers()) {
        pushSubscriptionManager->addSubscription(PushedValueRelay::HoldingChannel, relay);
    }
    relay->receivers().addReceiver(std::move(receiver));
}

void ClientSession::removePushReceiver(std::shared_ptr<Receiver<GetOutcome>> receiver) {
    const auto relay = findPushRelay(getIncomingEndPoint(), false);
    if (!relay || !relay->receivers().hasReceivers()) {
        return;
    }
    relay->receivers().removeReceiver(std::move(receiver));
    if (!relay->receivers().hasReceivers()) {
        pushSubscriptionManager->removeSubscription(PushedValueRelay::HoldingChannel, relay);
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

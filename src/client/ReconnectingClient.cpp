#include "chanlink/client/ReconnectingClient.h"

#include <algorithm>
#include <list>
#include <utility>

#include "chanlink/client/ChannelReceiverTable.h"
#include "chanlink/client/ClientSessionBuilder.h"
#include "chanlink/client/SessionWaiter.h"
#include "chanlink/flow/FunctionReceiver.h"
#include "chanlink/flow/QueuedReceiver.h"
#include "chanlink/messages/ReasonCode.h"
#include "chanlink/transport/TCPClientTransport.h"
#include "chanlink/transport/TransportPoll.h"

using Table = ChannelReceiverTable<GetOutcome>;

namespace {

// Stands between one set and the session that carries it, so that the set is
// answered exactly once: by the device, or by the client when the connection
// goes (after which the dying session's own reports are ignored).
class SetRelay : public Receiver<SetOutcome> {
public:
    SetRelay(unsigned int channelId, std::shared_ptr<Receiver<SetOutcome>> target)
        : channelId(channelId), target(std::move(target)) {}

    void receive(const SetOutcome& outcome) override {
        if (done) {
            return;
        }
        done = true;
        const std::shared_ptr<Receiver<SetOutcome>> answered = std::move(target);
        if (answered) {
            answered->receive(outcome);
        }
    }
    void cancel() {
        done = true;
        target.reset();
    }
    bool isDone() const { return done; }
    bool reportsTo(const std::shared_ptr<Receiver<SetOutcome>>& receiver) const {
        return !done && target == receiver;
    }

    const unsigned int channelId;

private:
    std::shared_ptr<Receiver<SetOutcome>> target;
    bool done = false;
};

// Gets and sets taken out of the client, to be answered once each.
struct Outstanding {
    Table::Table gets;
    std::list<std::shared_ptr<SetRelay>> sets;

    void answer(unsigned char reason) {
        for (auto& entry : gets) {
            entry.second.receive(GetOutcome(entry.first, reason));
        }
        for (const auto& relay : sets) {
            relay->receive(SetOutcome(relay->channelId, reason));
        }
    }
};

}  // namespace

// What the client keeps across sessions. The relays registered in each
// session reach it through a weak pointer: an application may hold a session
// longer than the client.
struct ReconnectingClient::Registry {
    Table::Table subscriptions;
    Table::Table pushSubscriptions;
    Table::Table pendingGets;
    std::list<std::shared_ptr<SetRelay>> pendingSets;
    Dispatcher<GetOutcome> pushReceivers;
    std::shared_ptr<Receiver<GetOutcome>> subscriptionRelay;
    std::shared_ptr<Receiver<GetOutcome>> pushSubscriptionRelay;
    std::shared_ptr<Receiver<GetOutcome>> pushReceiverRelay;
    std::shared_ptr<Receiver<GetOutcome>> getRelay;
    // Counts sessions; the relays of older ones are muted.
    unsigned long generation = 0;
    // The last settled login outcome of the current session, taken by the
    // next progress(); the state is never changed from inside a session's tick.
    std::optional<LoginOutcome> loginHeard;

    // Empties the tables of waiting gets and sets: requests made from then on
    // start new ones.
    Outstanding takeOutstanding() {
        return {Table::takeAll(pendingGets), std::exchange(pendingSets, {})};
    }
};

ReconnectingClient::ReconnectingClient(const std::string& host, const std::string& service,
                                       const std::string& username, const std::string& password,
                                       std::shared_ptr<ClientClock> clock)
    : ReconnectingClient(tcpFactory(host, service), username, password, std::move(clock)) {}

ReconnectingClient::ReconnectingClient(TransportFactory factory, const std::string& username,
                                       const std::string& password,
                                       std::shared_ptr<ClientClock> clock)
    : factory(std::move(factory)),
      username(username),
      password(password),
      clock(clock ? std::move(clock) : ClientClock::system()),
      waiter(this->clock),
      registry(std::make_shared<Registry>()),
      loginReceivers(std::make_shared<Dispatcher<LoginOutcome>>()),
      errorReceivers(std::make_shared<Dispatcher<ErrorResponse>>()) {}

ReconnectingClient::TransportFactory ReconnectingClient::tcpFactory(const std::string& host,
                                                                    const std::string& service) {
    return [host, service]() -> std::shared_ptr<Transport> {
        auto tcp = std::make_shared<TCPClientTransport>(host, service, nullptr);
        tcp->connect();
        return tcp;
    };
}

void ReconnectingClient::makeRelays() {
    const unsigned long generation = ++registry->generation;
    const std::weak_ptr<Registry> weak = registry;
    // What a session delivers counts only while it is the current one: the
    // rest of a dropped session's last tick reaches nobody.
    const auto current = [weak, generation]() -> std::shared_ptr<Registry> {
        auto shared = weak.lock();
        return shared && shared->generation == generation ? shared : nullptr;
    };
    const auto subscriptionRelay = [current](auto map) {
        return makeReceiver<GetOutcome>([current, map](const GetOutcome& outcome) {
            if (const auto shared = current()) {
                Table::deliver((*shared).*map, outcome.getChannelId(), outcome);
            }
        });
    };
    registry->subscriptionRelay = subscriptionRelay(&Registry::subscriptions);
    registry->pushSubscriptionRelay = subscriptionRelay(&Registry::pushSubscriptions);
    registry->pushReceiverRelay = makeReceiver<GetOutcome>([current](const GetOutcome& outcome) {
        if (const auto shared = current()) {
            shared->pushReceivers.receive(outcome);
        }
    });
    registry->getRelay = makeReceiver<GetOutcome>([current](const GetOutcome& outcome) {
        if (const auto shared = current()) {
            Table::answer(shared->pendingGets, outcome.getChannelId(), outcome);
        }
    });
    session->addLoginOutcomeReceiver(makeReceiver<LoginOutcome>(
        [current, receivers = loginReceivers](const LoginOutcome& outcome) {
            if (const auto shared = current()) {
                if (!outcome.loginPending()) {
                    shared->loginHeard = outcome;
                }
                receivers->receive(outcome);
            }
        }));
    session->addErrorResponseReceiver(makeReceiver<ErrorResponse>(
        [current, receivers = errorReceivers](const ErrorResponse& error) {
            if (current()) {
                receivers->receive(error);
            }
        }));
}

ReconnectingClient::~ReconnectingClient() {
    stop();
}

void ReconnectingClient::setBackOff(std::chrono::milliseconds initial,
                                    std::chrono::milliseconds maximum) {
    initialBackOff = std::max(initial, std::chrono::milliseconds(1));
    maximumBackOff = std::max(maximum, initialBackOff);
}

void ReconnectingClient::setAttemptTimeout(std::chrono::milliseconds timeout) {
    attemptTimeout = std::max(timeout, std::chrono::milliseconds(1));
}

const char* ReconnectingClient::stateName(State value) {
    switch (value) {
        case Stopped:
            return "Stopped";
        case Connecting:
            return "Connecting";
        case LoggingIn:
            return "LoggingIn";
        case Ready:
            return "Ready";
        case WaitingToReconnect:
            return "WaitingToReconnect";
    }
    return "Unknown";
}

void ReconnectingClient::start() {
    if (state == Stopped) {
        failedAttempts = 0;
        beginAttempt();
    }
}

void ReconnectingClient::stop() {
    const unsigned char reason = session ? ReasonCode::ConnectionLost : ReasonCode::NotConnected;
    // Released at the end, after every request has had its answer.
    const std::shared_ptr<ClientSession> dropped = dropSession();
    setState(Stopped);
    failOutstanding(reason);
}

void ReconnectingClient::beginAttempt() {
    registry->loginHeard.reset();
    transport = factory ? factory() : nullptr;
    if (!transport) {
        attemptDeadline = clock->now();
        setState(Connecting);
        connectionLost(ReasonCode::ConnectionLost);
        return;
    }
    session = ClientSessionBuilder()
                  .setTransport(transport)
                  .setUsername(username)
                  .setPassword(password)
                  .build();
    makeRelays();
    // Requests made while there was no connection have been answered; those
    // made from now on wait in this session for its login.
    attemptDeadline = ClientClock::deadlineAfter(clock->now(), attemptTimeout);
    const std::shared_ptr<ClientSession> attempt = session;
    setState(Connecting);
    if (session == attempt) {
        progress();
    }
}

void ReconnectingClient::tick() {
    workQueued = false;
    if (!session) {
        failOutstanding(ReasonCode::NotConnected);
        if (state == WaitingToReconnect && clock->now() >= retryAt) {
            beginAttempt();
        }
        return;
    }
    // Held here so that a receiver stopping the client cannot destroy the
    // session while it is being ticked.
    const std::shared_ptr<ClientSession> ticked = session;
    ticked->tick();
    if (session != ticked) {
        return;
    }
    const SessionWaiter::Result bound = waiter.enforceBounds(*ticked);
    if (const auto reason = SessionWaiter::closingReason(bound)) {
        lastDropReason = waiter.describeClosing(bound);
        connectionLost(*reason);
        return;
    }
    progress();
}

void ReconnectingClient::progress() {
    const ConnectionOutcome::ConnectionStates connection = TransportPoll::of(*transport).state;
    if (connection == ConnectionOutcome::ConnectionFailed ||
        connection == ConnectionOutcome::Closed) {
        connectionLost(ReasonCode::ConnectionLost);
        return;
    }
    if (state == Connecting && connection == ConnectionOutcome::Connected) {
        startLogin();
        return;
    }
    if (registry->loginHeard) {
        const LoginOutcome heard = *registry->loginHeard;
        registry->loginHeard.reset();
        if (!heard.loggedIn()) {
            // Refused: try again later, the device may change its mind.
            connectionLost(ReasonCode::ConnectionLost);
            return;
        }
        if (state == LoggingIn) {
            becomeReady();
            return;
        }
    }
    if ((state == Connecting || state == LoggingIn) && clock->now() >= attemptDeadline) {
        connectionLost(ReasonCode::ConnectionLost);
    }
}

void ReconnectingClient::startLogin() {
    if (!session->initiateLogin()) {
        stop();  // the credentials cannot be sent: no attempt can ever succeed
        return;
    }
    registry->loginHeard.reset();
    workQueued = true;
    setState(LoggingIn);
}

void ReconnectingClient::becomeReady() {
    readySince = clock->now();
    // The valve is open by now, so each channel is asked for exactly once.
    const std::shared_ptr<ClientSession> current = session;
    for (const auto& entry : registry->subscriptions) {
        current->addSubscription(entry.first, registry->subscriptionRelay);
    }
    for (const auto& entry : registry->pushSubscriptions) {
        current->addPushSubscription(entry.first, registry->pushSubscriptionRelay);
    }
    if (registry->pushReceivers.hasReceivers()) {
        current->addPushReceiver(registry->pushReceiverRelay);
    }
    workQueued = true;
    setState(Ready);
}

void ReconnectingClient::connectionLost(unsigned char reason) {
    // Only a connection that stayed up for the longest back-off, and was not
    // closed by a bound, starts the count over: a device that logs the client
    // in and then misbehaves at once is tried no more often than that.
    if (state == Ready && reason == ReasonCode::ConnectionLost &&
        std::chrono::duration_cast<std::chrono::milliseconds>(clock->now() - readySince) >=
            maximumBackOff) {
        failedAttempts = 0;
    }
    const std::shared_ptr<ClientSession> dropped = dropSession();

    retryDelay = initialBackOff;
    for (unsigned int i = 0; i < failedAttempts && retryDelay < maximumBackOff; ++i) {
        retryDelay = retryDelay > maximumBackOff / 2 ? maximumBackOff : retryDelay * 2;
    }
    ++failedAttempts;
    retryAt = ClientClock::deadlineAfter(clock->now(), retryDelay);

    // Taken before anyone hears of the loss: requests made from a receiver
    // from here on meet no connection and are answered as such.
    Outstanding waiting = registry->takeOutstanding();
    setState(WaitingToReconnect);
    waiting.answer(reason);
    // The dropped session goes last: its set manager reports the sets it
    // still held as discarded, to relays that have been answered already.
}

std::shared_ptr<ClientSession> ReconnectingClient::dropSession() {
    std::shared_ptr<ClientSession> dropped = std::move(session);
    const std::shared_ptr<Transport> closed = std::move(transport);
    if (closed) {
        TransportPoll::close(*closed);
    }
    ++registry->generation;
    return dropped;
}

void ReconnectingClient::failOutstanding(unsigned char reason) {
    registry->takeOutstanding().answer(reason);
}

void ReconnectingClient::setState(State newState) {
    if (newState == state) {
        return;
    }
    state = newState;
    stateReceivers.receive(newState);
}

bool ReconnectingClient::waitForActivity(std::chrono::milliseconds timeout) {
    if (workQueued) {
        return true;  // the next tick sends what was queued, or answers it
    }
    const std::chrono::milliseconds due = getTimeUntilDue();
    const bool dueFirst = due < timeout;
    const std::chrono::milliseconds wait = dueFirst ? due : timeout;
    if (session) {
        return waiter.waitForActivity(*session, wait) || dueFirst;
    }
    clock->waitFor(-1, 0, wait);
    return dueFirst;
}

pollfd ReconnectingClient::getPollDescriptor() const {
    return session ? session->getPollDescriptor() : pollfd{-1, 0, 0};
}

std::chrono::milliseconds ReconnectingClient::getTimeUntilDue() const {
    switch (state) {
        case WaitingToReconnect:
            return ClientClock::remainingUntil(clock->now(), retryAt);
        case Connecting:
        case LoggingIn:
            return ClientClock::remainingUntil(clock->now(), attemptDeadline);
        default:
            return std::chrono::milliseconds::max();
    }
}

bool ReconnectingClient::waitUntilReady(std::chrono::milliseconds timeout) {
    return state != Stopped &&
           tickUntil([this] { return state == Ready || state == Stopped; }, timeout) &&
           state == Ready;
}

bool ReconnectingClient::tickUntil(const std::function<bool()>& done,
                                   std::chrono::milliseconds timeout) {
    return waiter.run([this] { tick(); },
                      [this](std::chrono::milliseconds remaining) { waitForActivity(remaining); },
                      done, timeout) == SessionWaiter::Result::Done;
}

std::size_t ReconnectingClient::outstanding() const {
    const auto sets =
        std::count_if(registry->pendingSets.begin(), registry->pendingSets.end(),
                      [](const std::shared_ptr<SetRelay>& relay) { return !relay->isDone(); });
    return registry->pendingGets.size() + static_cast<std::size_t>(sets);
}

void ReconnectingClient::addStateReceiver(std::shared_ptr<Receiver<State>> receiver) {
    stateReceivers.addReceiver(std::move(receiver));
}

void ReconnectingClient::removeStateReceiver(std::shared_ptr<Receiver<State>> receiver) {
    stateReceivers.removeReceiver(std::move(receiver));
}

void ReconnectingClient::addLoginOutcomeReceiver(std::shared_ptr<Receiver<LoginOutcome>> receiver) {
    loginReceivers->addReceiver(std::move(receiver));
}

void ReconnectingClient::removeLoginOutcomeReceiver(
    std::shared_ptr<Receiver<LoginOutcome>> receiver) {
    loginReceivers->removeReceiver(std::move(receiver));
}

void ReconnectingClient::addErrorResponseReceiver(
    std::shared_ptr<Receiver<ErrorResponse>> receiver) {
    errorReceivers->addReceiver(std::move(receiver));
}

void ReconnectingClient::removeErrorResponseReceiver(
    std::shared_ptr<Receiver<ErrorResponse>> receiver) {
    errorReceivers->removeReceiver(std::move(receiver));
}

void ReconnectingClient::requestChannel(unsigned int channelId,
                                        std::shared_ptr<Receiver<GetOutcome>> receiver) {
    if (!receiver) {
        return;
    }
    Table::add(registry->pendingGets, channelId, std::move(receiver));
    workQueued = true;
    if (session) {
        session->requestChannel(channelId, registry->getRelay);
    }
}

void ReconnectingClient::cancelRequest(unsigned int channelId,
                                       std::shared_ptr<Receiver<GetOutcome>> receiver) {
    if (Table::remove(registry->pendingGets, channelId, std::move(receiver)) && session) {
        session->cancelRequest(channelId, registry->getRelay);
    }
}

void ReconnectingClient::setChannel(unsigned int channelId, const std::vector<unsigned char>& data,
                                    std::shared_ptr<Receiver<SetOutcome>> receiver) {
    auto& sets = registry->pendingSets;
    sets.remove_if([](const std::shared_ptr<SetRelay>& relay) { return relay->isDone(); });
    const auto relay = std::make_shared<SetRelay>(channelId, std::move(receiver));
    sets.push_back(relay);
    workQueued = true;
    if (session) {
        session->setChannel(channelId, data, relay);
    }
}

void ReconnectingClient::cancelSet(const std::shared_ptr<Receiver<SetOutcome>>& receiver) {
    if (!receiver) {
        return;
    }
    for (const auto& relay : registry->pendingSets) {
        if (relay->reportsTo(receiver)) {
            relay->cancel();
            if (session) {
                session->cancelSet(relay);
            }
        }
    }
}

void ReconnectingClient::addSubscription(unsigned int channelId,
                                         std::shared_ptr<Receiver<GetOutcome>> receiver) {
    if (receiver) {
        Table::add(registry->subscriptions, channelId, std::move(receiver));
        whenReady([&] { session->addSubscription(channelId, registry->subscriptionRelay); });
    }
}

void ReconnectingClient::removeSubscription(unsigned int channelId,
                                            std::shared_ptr<Receiver<GetOutcome>> receiver) {
    if (Table::remove(registry->subscriptions, channelId, std::move(receiver))) {
        whenReady([&] { session->removeSubscription(channelId, registry->subscriptionRelay); });
    }
}

void ReconnectingClient::addPushSubscription(unsigned int channelId,
                                             std::shared_ptr<Receiver<GetOutcome>> receiver) {
    if (receiver) {
        Table::add(registry->pushSubscriptions, channelId, std::move(receiver));
        whenReady(
            [&] { session->addPushSubscription(channelId, registry->pushSubscriptionRelay); });
    }
}

void ReconnectingClient::removePushSubscription(unsigned int channelId,
                                                std::shared_ptr<Receiver<GetOutcome>> receiver) {
    if (Table::remove(registry->pushSubscriptions, channelId, std::move(receiver))) {
        whenReady(
            [&] { session->removePushSubscription(channelId, registry->pushSubscriptionRelay); });
    }
}

void ReconnectingClient::addPushReceiver(std::shared_ptr<Receiver<GetOutcome>> receiver) {
    if (receiver && !registry->pushReceivers.hasReceiver(receiver)) {
        const bool first = !registry->pushReceivers.hasReceivers();
        registry->pushReceivers.addReceiver(std::move(receiver));
        if (first) {
            whenReady([&] { session->addPushReceiver(registry->pushReceiverRelay); });
        }
    }
}

void ReconnectingClient::removePushReceiver(std::shared_ptr<Receiver<GetOutcome>> receiver) {
    if (!registry->pushReceivers.hasReceivers()) {
        return;
    }
    registry->pushReceivers.removeReceiver(std::move(receiver));
    if (!registry->pushReceivers.hasReceivers()) {
        whenReady([&] { session->removePushReceiver(registry->pushReceiverRelay); });
    }
}

void ReconnectingClient::whenReady(const std::function<void()>& change) {
    // Before Ready the change is made by the renewal after the login.
    if (state == Ready && session) {
        workQueued = true;
        change();
    }
}

std::optional<GetOutcome> ReconnectingClient::blockingGet(unsigned int channelId,
                                                          std::chrono::milliseconds timeout) {
    const auto queue = std::make_shared<QueuedReceiver<GetOutcome>>();
    requestChannel(channelId, queue);
    if (!tickUntil([&queue] { return !queue->empty(); }, timeout)) {
        cancelRequest(channelId, queue);
        return std::nullopt;
    }
    return queue->dequeue();
}

std::optional<SetOutcome> ReconnectingClient::blockingSet(unsigned int channelId,
                                                          const std::vector<unsigned char>& data,
                                                          std::chrono::milliseconds timeout) {
    const auto queue = std::make_shared<QueuedReceiver<SetOutcome>>();
    setChannel(channelId, data, queue);
    if (queue->empty() && !tickUntil([&queue] { return !queue->empty(); }, timeout)) {
        cancelSet(queue);
        return std::nullopt;
    }
    return queue->dequeue();
}

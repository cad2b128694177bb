#include "PythonClient.h"

#include <pybind11/pybind11.h>

#include <algorithm>
#include <utility>

#include "chanlink/client/LoginOutcome.h"
#include "chanlink/flow/FunctionReceiver.h"
#include "chanlink/messages/ReasonCode.h"

namespace {

using Clock = std::chrono::steady_clock;
using Milliseconds = std::chrono::milliseconds;

// How often a long wait looks for Ctrl-C and other signals.
constexpr Milliseconds SignalInterval(100);

Milliseconds remaining(Clock::time_point start, Milliseconds timeout) {
    if (timeout == Milliseconds::max()) {
        return timeout;
    }
    const auto spent = std::chrono::duration_cast<Milliseconds>(Clock::now() - start);
    return std::max(Milliseconds(0), timeout - spent);
}

}  // namespace

PythonClient::PythonClient(const std::string& address, ReconnectingClient::TransportFactory factory,
                           const std::string& username, const std::string& password, bool reconnect,
                           std::size_t maxFrame)
    : address(address), reconnect(reconnect), reconnecting(std::move(factory), username, password) {
    reconnecting.setMaxUndecodedBytes(maxFrame);
    reconnecting.addLoginOutcomeReceiver(makeReceiver<LoginOutcome>([this](const LoginOutcome& o) {
        if (o.loginFailed() && !refusedLogin) {
            refusedLogin = o.getState();
        }
    }));
    reconnecting.addStateReceiver(
        makeReceiver<ReconnectingClient::State>([this](ReconnectingClient::State state) {
            if (state == ReconnectingClient::WaitingToReconnect && !this->reconnect) {
                reconnecting.stop();
            }
        }));
}

PythonClient::ConnectResult PythonClient::connect(Milliseconds timeout) {
    const std::lock_guard<std::mutex> guard(lock);
    reconnecting.start();
    const auto result = tickUntil(
        [this] {
            return refusedLogin || reconnecting.getState() == ReconnectingClient::Ready ||
                   reconnecting.getState() == ReconnectingClient::Stopped;
        },
        timeout);
    const auto state = reconnecting.getState();
    if (state == ReconnectingClient::Ready) {
        return ConnectResult::Ready;
    }
    reconnecting.stop();
    closed = true;
    if (result == SessionWaiter::Result::Stopped && !refusedLogin) {
        return ConnectResult::Interrupted;
    }
    if (refusedLogin) {
        return ConnectResult::LoginRefused;
    }
    return state == ReconnectingClient::LoggingIn ? ConnectResult::NoLoginAnswer
                                                  : ConnectResult::NoConnection;
}

SessionWaiter::Result PythonClient::tickUntil(const std::function<bool()>& done,
                                              Milliseconds timeout) {
    SessionWaiter waiter;
    auto lastCheck = Clock::now();
    waiter.setStopCheck([&lastCheck] {
        const auto now = Clock::now();
        if (now - lastCheck < SignalInterval) {
            return false;
        }
        lastCheck = now;
        const pybind11::gil_scoped_acquire gil;
        return PyErr_CheckSignals() != 0;
    });
    return waiter.run(
        [this] { reconnecting.tick(); },
        [this](Milliseconds wait) { reconnecting.waitForActivity(std::min(wait, SignalInterval)); },
        done, timeout);
}

bool PythonClient::waitReady(Milliseconds timeout) {
    tickUntil(
        [this] {
            return reconnecting.getState() == ReconnectingClient::Ready ||
                   reconnecting.getState() == ReconnectingClient::Stopped;
        },
        timeout);
    return reconnecting.getState() == ReconnectingClient::Ready;
}

std::optional<GetOutcome> PythonClient::get(unsigned int channel, Milliseconds timeout) {
    const std::lock_guard<std::mutex> guard(lock);
    const auto start = Clock::now();
    if (!waitReady(timeout)) {
        return GetOutcome(channel, ReasonCode::NotConnected);
    }
    return reconnecting.blockingGet(channel, remaining(start, timeout));
}

std::optional<SetOutcome> PythonClient::set(unsigned int channel,
                                            const std::vector<unsigned char>& data,
                                            Milliseconds timeout) {
    const std::lock_guard<std::mutex> guard(lock);
    const auto start = Clock::now();
    if (!waitReady(timeout)) {
        return SetOutcome(channel, ReasonCode::NotConnected);
    }
    return reconnecting.blockingSet(channel, data, remaining(start, timeout));
}

std::optional<std::map<unsigned int, GetOutcome>> PythonClient::getMany(
    const std::vector<unsigned int>& channels, Milliseconds timeout) {
    const std::lock_guard<std::mutex> guard(lock);
    const auto start = Clock::now();
    auto answers = std::make_shared<std::map<unsigned int, GetOutcome>>();
    if (!waitReady(timeout)) {
        return std::nullopt;
    }
    std::map<unsigned int, std::shared_ptr<Receiver<GetOutcome>>> asked;
    for (unsigned int channel : channels) {
        if (asked.count(channel) == 0) {
            auto receiver = makeReceiver<GetOutcome>([answers, channel](const GetOutcome& outcome) {
                answers->emplace(channel, outcome);
            });
            asked.emplace(channel, receiver);
            reconnecting.requestChannel(channel, receiver);
        }
    }
    tickUntil([&] { return answers->size() == asked.size(); }, remaining(start, timeout));
    for (const auto& [channel, receiver] : asked) {
        if (answers->count(channel) == 0) {
            reconnecting.cancelRequest(channel, receiver);
        }
    }
    return *answers;
}

void PythonClient::subscribe(unsigned int channel) {
    const std::lock_guard<std::mutex> guard(lock);
    if (subscriptions.insert(channel).second) {
        reconnecting.addSubscription(channel, pending);
    }
}

void PythonClient::unsubscribe(unsigned int channel) {
    const std::lock_guard<std::mutex> guard(lock);
    if (subscriptions.erase(channel) != 0) {
        reconnecting.removeSubscription(channel, pending);
    }
}

std::deque<GetOutcome> PythonClient::poll(Milliseconds timeout) {
    const std::lock_guard<std::mutex> guard(lock);
    if (pending->empty()) {
        tickUntil([this] { return !pending->empty(); }, timeout);
    }
    return pending->takeAll();
}

void PythonClient::requeue(const std::deque<GetOutcome>& values) {
    const std::lock_guard<std::mutex> guard(lock);
    pending->putBack(values);
}

void PythonClient::close() {
    const std::lock_guard<std::mutex> guard(lock);
    closed = true;
    reconnecting.stop();
}

bool PythonClient::isStopped() {
    const std::lock_guard<std::mutex> guard(lock);
    return closed || reconnecting.getState() == ReconnectingClient::Stopped;
}

std::string PythonClient::stateName() {
    const std::lock_guard<std::mutex> guard(lock);
    return ReconnectingClient::stateName(reconnecting.getState());
}

std::size_t PythonClient::droppedValues() {
    const std::lock_guard<std::mutex> guard(lock);
    return pending->dropped();
}

std::string PythonClient::describeNoConnection() {
    const std::lock_guard<std::mutex> guard(lock);
    if (closed) {
        return "the client is closed";
    }
    std::string text = "not connected to " + address;
    if (reconnecting.getState() == ReconnectingClient::Stopped) {
        text += " (connection lost; reconnect=False)";
    } else if (!reconnecting.getLastDropReason().empty()) {
        text += " (" + reconnecting.getLastDropReason() + ")";
    }
    return text;
}

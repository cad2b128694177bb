#include "SoakClient.h"

#include <utility>

#include "chanlink/client/ClientSessionBuilder.h"
#include "chanlink/flow/FunctionReceiver.h"
#include "chanlink/messages/ReasonCode.h"

namespace {

std::string hex(const std::vector<unsigned char>& bytes) {
    static const char digits[] = "0123456789ABCDEF";
    std::string text;
    for (unsigned char byte : bytes) {
        text += digits[byte >> 4];
        text += digits[byte & 15];
    }
    return text.empty() ? "(empty)" : text;
}

}  // namespace

SoakClient::SoakClient(unsigned int index, const std::string& host, const std::string& service,
                       const std::string& username, const std::string& password,
                       std::vector<unsigned int> channels)
    : index(index), channels(std::move(channels)) {
    auto states = makeReceiver<ConnectionOutcome>([this](const ConnectionOutcome& outcome) {
        if (outcome.getState() == ConnectionOutcome::Closed ||
            outcome.getState() == ConnectionOutcome::ConnectionFailed) {
            fail("connection " + std::string(outcome.getState() == ConnectionOutcome::Closed
                                                 ? "closed"
                                                 : "failed"));
        }
    });
    transport = std::make_shared<TCPClientTransport>(host, service, states);
    session = ClientSessionBuilder()
                  .setTransport(transport)
                  .setUsername(username)
                  .setPassword(password)
                  .build();
    setReceiver = makeReceiver<SetOutcome>([this](const SetOutcome& o) { onSet(o); });
    readReceiver = makeReceiver<GetOutcome>([this](const GetOutcome& o) { onRead(o); });
    pushReceiver = makeReceiver<GetOutcome>([this](const GetOutcome& o) { onPushed(o); });
    session->addLoginOutcomeReceiver(
        makeReceiver<LoginOutcome>([this](const LoginOutcome& o) { onLogin(o); }));
    session->addErrorResponseReceiver(makeReceiver<ErrorResponse>([this](const ErrorResponse& e) {
        fail(std::string("error response: ") + ReasonCode::describe(e.getReasonCode()));
    }));
}

void SoakClient::start() {
    transport->connect();
    // Sent once connected; the subscriptions wait in the session until the
    // login has succeeded.
    session->initiateLogin();
    for (unsigned int id : channels) {
        session->addSubscription(id, pushReceiver);
    }
}

void SoakClient::tick() {
    session->tick();
}

bool SoakClient::settled() const {
    if (step != Step::Idle) {
        return false;
    }
    for (const auto& entry : unseen) {
        if (!entry.second.empty()) {
            return false;
        }
    }
    for (const auto& entry : shown) {
        if (entry.second.set && entry.second.times != 2) {
            return false;
        }
    }
    return true;
}

void SoakClient::nextRound() {
    if (finishing || failed() || channels.empty()) {
        step = Step::Idle;
        return;
    }
    channel = channels[next];
    next = (next + 1) % channels.size();
    ++counter;
    value = {static_cast<unsigned char>(counter), static_cast<unsigned char>(counter >> 8),
             static_cast<unsigned char>(counter >> 16), static_cast<unsigned char>(index)};
    unseen[channel].push_back(value);
    step = Step::Setting;
    ++counts.sets;
    session->setChannel(channel, value, setReceiver);
}

void SoakClient::onLogin(const LoginOutcome& outcome) {
    if (outcome.loginPending()) {
        return;
    }
    if (!outcome.loggedIn()) {
        fail("login refused (state " + std::to_string(outcome.getState()) + ")");
    } else if (step == Step::Starting) {
        nextRound();
    }
}

void SoakClient::onSet(const SetOutcome& outcome) {
    if (step != Step::Setting || outcome.getChannelId() != channel) {
        fail("a set outcome for channel " + std::to_string(outcome.getChannelId()) +
             " that was not asked for");
        return;
    }
    if (!outcome.getSuccess()) {
        fail("set of channel " + std::to_string(channel) +
             " refused: " + ReasonCode::describe(outcome.getReasonCode()));
        return;
    }
    ++counts.acknowledged;
    step = Step::Reading;
    session->requestChannel(channel, readReceiver);
}

void SoakClient::onRead(const GetOutcome& outcome) {
    if (step != Step::Reading || outcome.getChannelId() != channel) {
        fail("a read-back of channel " + std::to_string(outcome.getChannelId()) +
             " that was not asked for");
        return;
    }
    if (!outcome.getSuccess() || outcome.getData() != value) {
        fail("read back " + hex(outcome.getData()) + " from channel " + std::to_string(channel) +
             " after setting " + hex(value));
        return;
    }
    ++counts.readBacks;
    nextRound();
}

void SoakClient::onPushed(const GetOutcome& outcome) {
    const unsigned int id = outcome.getChannelId();
    std::vector<unsigned char> data = outcome.getData();
    // The subscription's first value is the channel's value before the run.
    auto last = shown.find(id);
    if (last == shown.end()) {
        shown[id] = Shown{std::move(data), 1, false};
        return;
    }
    Shown& seen = last->second;
    if (data == seen.value) {
        ++seen.times;
        return;
    }
    // A new value: the one before, if ours, came as push and read-back, and
    // this one is the next value set.
    std::deque<std::vector<unsigned char>>& waiting = unseen[id];
    if (seen.set && seen.times != 2) {
        fail("channel " + std::to_string(id) + " showed " + hex(seen.value) + " " +
             std::to_string(seen.times) + " times, not twice");
    } else if (waiting.empty() || waiting.front() != data) {
        fail("channel " + std::to_string(id) + " showed " + hex(data) + " where " +
             (waiting.empty() ? std::string("no new value") : hex(waiting.front())) + " was due");
    } else {
        waiting.pop_front();
        seen = Shown{std::move(data), 1, true};
        ++counts.pushed;
    }
}

void SoakClient::fail(const std::string& why) {
    if (failure.empty()) {
        failure = "client " + std::to_string(index) + ": " + why;
    }
}

// The reconnecting client over in-memory connections: each connection it
// makes meets a scripted device of its own, served inside the client's ticks;
// while the device is down, connecting fails at once. The clock moves when a
// scenario moves it (or 1 ms per tick, where set). What the client reports
// goes to one log, state changes with the time in ms; what each device
// received, and whether its connection was closed, to another.
#include <gtest/gtest.h>

#include <functional>

#include "chanlink/client/ReconnectingClient.h"
#include "chanlink/flow/FunctionReceiver.h"
#include "chanlink/messages/GetRequest.h"
#include "chanlink/messages/LoginResponse.h"
#include "chanlink/messages/SetRequest.h"
#include "chanlink/messages/SetResponse.h"
#include "support/Bytes.h"
#include "support/ManualClock.h"
#include "support/ScriptedPeer.h"
#include "support/TransportPair.h"

using namespace std::chrono_literals;
using testing_support::MemoryTransport;
using testing_support::ScriptedPeer;
using Bytes = std::vector<unsigned char>;
using Strings = std::vector<std::string>;
using State = ReconnectingClient::State;

namespace {

const std::map<OpCode, ScriptedPeer::Handler> Silent = {{9, [](const Message&) {}},
                                                        {GetRequest::Code, [](const Message&) {}},
                                                        {SetRequest::Code, [](const Message&) {}}};

std::string text(const GetOutcome& o) {
    return std::to_string(o.getChannelId()) + " " + std::to_string(o.getReasonCode()) +
           (o.getData().empty() ? "" : " " + testing_support::hex(o.getData()));
}
std::string text(const SetOutcome& o) {
    return std::to_string(o.getChannelId()) + " " + std::to_string(o.getReasonCode());
}
std::string text(State state) {
    return ReconnectingClient::stateName(state);
}

struct Rig {
    Rig() {
        client.addStateReceiver(heard<State>(""));
        client.setMaxUndecodedBytes(64 * 1024);
    }

    std::shared_ptr<Transport> connect() {
        if (!up) {
            return nullptr;
        }
        auto [end, device] = testing_support::makeTransportPair();
        end->connecting = connecting;
        auto peer = std::make_shared<ScriptedPeer>(device);
        peer->loginResult = loginResult;
        peer->channels = channels;
        peer->handlers = handlers;
        // The first `hostile` devices open a frame that never ends once the
        // login is in, and keep what they answer inside it.
        const bool endless = ends.size() < hostile;
        if (endless) {
            peer->handlers = Silent;
            peer->handlers.erase(9);
        }
        end->onTick = [this, peer, endless, opened = false]() mutable {
            clock->advance(tickStep);
            peer->serve();
            if (endless && !peer->received.empty() && peer->unsentBytes() == 0) {
                peer->sendBytes(opened ? Bytes(4096, 0x00) : Bytes{0xFF, 0xFC, 0xFC, 0xFC, 0x7F});
                opened = true;
            }
        };
        ends.push_back(end);
        peers.push_back(peer);
        return end;
    }
    ScriptedPeer& device() { return *peers.back(); }

    template <typename T>
    std::shared_ptr<Receiver<T>> heard(const std::string& name) {
        return makeReceiver<T>([this, name](const T& item) {
            log.push_back(name.empty() ? text(item) + " " + std::to_string(clock->waited.count())
                                       : name + " " + text(item));
        });
    }
    // Ticks enough for a login, its renewals and their answers.
    void settle(std::chrono::milliseconds step = 0ms) {
        clock->advance(step);
        for (int i = 0; i < 100; ++i) {
            client.tick();
        }
    }

    // Opcodes each device received, and whether its connection was closed.
    Strings connections() const {
        Strings seen;
        for (std::size_t i = 0; i < peers.size(); ++i) {
            std::string codes;
            for (OpCode code : peers[i]->opcodes()) {
                codes += std::to_string(code) + " ";
            }
            seen.push_back(codes + (ends[i]->closed ? "closed" : "open"));
        }
        return seen;
    }

    std::shared_ptr<testing_support::ManualClock> clock =
        std::make_shared<testing_support::ManualClock>();
    bool up = true;
    bool connecting = false;  // connections stay connecting until the first write
    unsigned char loginResult = 1;
    std::map<unsigned int, Bytes> channels = {{10, {0x01}}, {11, {0x02}}};
    std::map<OpCode, ScriptedPeer::Handler> handlers;
    std::size_t hostile = 0;
    std::chrono::milliseconds tickStep{0};
    std::vector<std::shared_ptr<MemoryTransport>> ends;
    std::vector<std::shared_ptr<ScriptedPeer>> peers;
    Strings log;
    // Last: its destructor still reports to the log.
    ReconnectingClient client{[this] { return connect(); }, "u", "p", clock};
};

struct Scenario {
    const char* name;
    std::function<void(Rig&)> steps;
    Strings connections;
    const char* log;  // the log's entries, joined by ", "
};

const Scenario scenarios[] = {
    {"SubscriptionsComeBackOnEveryConnectionAndWhatWaitedIsAnsweredWhenItGoes",
     [](Rig& r) {
         const auto sub = r.heard<GetOutcome>("sub");
         const auto also = r.heard<GetOutcome>("also");
         const auto push = r.heard<GetOutcome>("push");
         r.client.addSubscription(10, sub);
         r.client.addSubscription(10, also);
         r.client.addPushSubscription(11, push);
         r.client.start();
         r.settle();
         r.device().push(11);
         r.settle();
         r.device().handlers = Silent;
         r.client.requestChannel(11, r.heard<GetOutcome>("get"));
         r.client.setChannel(10, {0x05}, r.heard<SetOutcome>("set"));
         r.settle();
         r.ends.back()->closed = true;  // the connection is gone
         r.settle();
         r.client.requestChannel(10, r.heard<GetOutcome>("away"));  // answered on the next tick
         r.client.tick();
         r.log.push_back("set " + text(r.client.blockingSet(10, {1}, 1000ms).value()));
         r.channels[10] = {0x07};
         r.settle(99ms);
         r.settle(1ms);
         // Only a channel's last receiver unsubscribes.
         r.client.removeSubscription(10, sub);
         r.client.removeSubscription(12, sub);
         r.client.removePushSubscription(11, push);
         r.settle();
         r.client.removeSubscription(10, also);
         r.settle();
     },
     {"9 3 4 0 2 closed", "9 3 4 4 3 open"},
     "Connecting 0, LoggingIn 0, Ready 0, sub 10 255 01, also 10 255 01, push 11 255 02, "
     "WaitingToReconnect 0, get 11 132, set 10 132, away 10 133, set 10 133, Connecting 100, "
     "LoggingIn 100, Ready 100, sub 10 255 07, also 10 255 07"},

    // Retries wait out a back-off that doubles up to the maximum. A drop for a
    // bound, or any drop soon after the login, counts as a failure; a login
    // that lasted for the longest back-off starts the count over.
    {"BacksOffDoublingToTheMaximumAndStartsOverAfterALastingLogin",
     [](Rig& r) {
         r.up = false;
         r.hostile = 2;
         r.client.setBackOff(100ms, 400ms);
         const auto pushed = r.heard<GetOutcome>("pushed");
         r.client.addPushReceiver(pushed);
         r.client.start();              // at 0: down
         for (int i = 0; i < 4; ++i) {  // at 100: down; 300 and 700: endless frames; 1100
             r.up = i > 0;
             r.client.waitForActivity(5000ms);  // until the attempt is due
             r.client.tick();
             r.client.requestChannel(10, r.heard<GetOutcome>("get"));
             r.settle();
         }
         r.log.push_back(r.client.getLastDropReason());
         r.device().push(11);
         r.settle(400ms);
         r.ends.back()->closed = true;
         r.settle();
         r.settle(r.client.getTimeUntilDue());
         r.ends.back()->closed = true;
         r.settle();
         r.settle(r.client.getTimeUntilDue());
         r.client.removePushReceiver(pushed);
         r.settle();
     },
     {"9 0 0 4 closed", "9 0 0 4 closed", "9 0 0 4 closed", "9 4 closed", "9 4 4 open"},
     "Connecting 0, WaitingToReconnect 0, Connecting 100, WaitingToReconnect 100, get 10 133, "
     "Connecting 300, LoggingIn 300, Ready 300, WaitingToReconnect 300, get 10 134, "
     "Connecting 700, LoggingIn 700, Ready 700, WaitingToReconnect 700, get 10 134, "
     "Connecting 1100, LoggingIn 1100, Ready 1100, get 10 255 01, pushed 10 255 01, "
     "pushed 10 255 01, the device sent a frame larger than 64 KiB; connection closed, "
     "pushed 11 255 02, WaitingToReconnect 1500, Connecting 1600, LoggingIn 1600, Ready 1600, "
     "WaitingToReconnect 1600, Connecting 1800, LoggingIn 1800, Ready 1800"},

    {"GivesUpOnUnansweredAndRefusedLoginsAndStopsForGood",
     [](Rig& r) {
         r.handlers = Silent;
         r.client.setAttemptTimeout(2000ms);
         r.client.addLoginOutcomeReceiver(makeReceiver<LoginOutcome>([&r](const LoginOutcome& o) {
             r.log.push_back(std::string("login ") + LoginOutcome::name(o.getState()));
         }));
         r.client.start();
         r.client.requestChannel(10, r.heard<GetOutcome>("get"));  // held for the login
         r.settle(1999ms);
         r.settle(1ms);
         r.handlers.clear();
         r.loginResult = 0;
         r.settle(100ms);
         r.client.setChannel(10, {0x01}, r.heard<SetOutcome>("set"));
         r.client.stop();
         r.settle(10000ms);
         r.log.push_back("ready " + std::to_string(r.client.waitUntilReady(1000ms)));
         // Credentials no login request can carry: stopped, not retried.
         ReconnectingClient unusable([&r] { return r.connect(); }, std::string(256, 'u'), "p",
                                     r.clock);
         unusable.addStateReceiver(r.heard<State>(""));
         unusable.start();
     },
     {"9 closed", "9 closed", "closed"},
     "Connecting 0, login Pending, LoggingIn 0, WaitingToReconnect 2000, get 10 132, "
     "Connecting 2100, login Pending, LoggingIn 2100, login Failure, WaitingToReconnect 2100, "
     "Stopped 2100, set 10 133, ready 0, Connecting 12100, Stopped 12100"},

    // A timed call that gives up withdraws its request from the session: a
    // get held for the login is not asked for again after it, and a set
    // queued behind an unanswered one never leaves.
    {"TimedCallsAnswerOrGiveUpLeavingNothingBehind",
     [](Rig& r) {
         r.handlers = Silent;
         r.tickStep = 1ms;
         r.client.start();
         r.log.push_back(r.client.blockingGet(11, 10ms) ? "get" : "none");
         r.device().handlers.clear();
         r.device().send(LoginResponse::newInstance(LoginResponse::Success));
         r.log.push_back("ready " + std::to_string(r.client.waitUntilReady(1000ms)));
         r.log.push_back("get " + text(r.client.blockingGet(10, 1000ms).value()));
         r.device().handlers = Silent;
         r.log.push_back(r.client.blockingGet(10, 10ms) ? "get" : "none");
         r.log.push_back(r.client.blockingSet(10, {0x01}, 10ms) ? "set" : "none");
         r.log.push_back(r.client.blockingSet(11, {0x02}, 10ms) ? "set" : "none");
         r.log.push_back("outstanding " + std::to_string(r.client.outstanding()));
         r.device().handlers.clear();
         r.device().send(SetResponse::newInstance(10));
         r.log.push_back("set " + text(r.client.blockingSet(10, {0x03}, 1000ms).value()));
     },
     {"9 0 0 0 2 2 open"},
     "Connecting 0, LoggingIn 0, none, Ready 11, ready 1, get 10 255 01, none, none, none, "
     "outstanding 0, set 10 255"},

    // The refusal that ends one connection, heard in the same tick as its
    // end, is not heard again by the next, which waits for its own connect.
    {"ARefusedLoginEndsOnlyItsOwnConnection",
     [](Rig& r) {
         r.loginResult = 0;
         r.client.addLoginOutcomeReceiver(makeReceiver<LoginOutcome>(
             [&r](const LoginOutcome& o) { r.ends.back()->closed = !o.loginPending(); }));
         r.client.setAttemptTimeout(2000ms);
         r.client.start();
         r.settle();
         r.connecting = true;
         r.settle(100ms);
         r.settle(2000ms);
     },
     {"9 closed", "closed"},
     "Connecting 0, LoggingIn 0, WaitingToReconnect 0, Connecting 100, WaitingToReconnect 2100"},

    {"AReceiverMayStopTheClientWhileItIsBeingTicked",
     [](Rig& r) {
         const auto got = r.heard<GetOutcome>("got");
         r.client.addSubscription(10, makeReceiver<GetOutcome>([&r, got](const GetOutcome&) {
                                      r.client.requestChannel(11, got);
                                      r.client.stop();
                                  }));
         r.client.addStateReceiver(makeReceiver<State>([&r, got](State state) {
             if (state == ReconnectingClient::Ready) {
                 r.client.addSubscription(11, got);  // registering from a state report
             }
         }));
         r.client.start();
         r.settle();
     },
     {"9 3 3 closed"},
     "Connecting 0, LoggingIn 0, Ready 0, Stopped 0, got 11 132"},
};

void PrintTo(const Scenario& scenario, std::ostream* out) {
    *out << scenario.name;
}

class ReconnectingScenario : public testing::TestWithParam<Scenario> {};

}  // namespace

TEST_P(ReconnectingScenario, ReportsTheseOutcomesAndMakesTheseConnections) {
    Rig r;
    GetParam().steps(r);
    std::string log;
    for (const std::string& entry : r.log) {
        log += (log.empty() ? "" : ", ") + entry;
    }
    EXPECT_EQ(log, GetParam().log);
    EXPECT_EQ(r.connections(), GetParam().connections);
}

INSTANTIATE_TEST_SUITE_P(Table, ReconnectingScenario, testing::ValuesIn(scenarios),
                         [](const auto& info) { return std::string(info.param.name); });

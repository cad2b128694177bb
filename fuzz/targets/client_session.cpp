// A built ClientSession, logged in over an in-memory transport, while the
// input decides what happens next: raw bytes from the device, well-formed
// responses of every kind, and the application's gets, sets, subscriptions,
// push subscriptions, cancellations, resets and new logins, interleaved.
//
// Input: a list of operations, each one byte (operation = byte mod 12)
// followed by its arguments (see run()); the input ending reads as zeros.
//
// Invariants: no exception leaves the session; every set receiver gets at
// most one outcome, for the channel it set, in call order, and after the final
// reset exactly one unless it was cancelled; every get receiver gets at most
// one outcome, for the channel it asked, and none once cancelled; subscription
// and push-subscription receivers hear only of channels they are subscribed
// to; before a login has succeeded only login requests are written, and
// everything written is a well-formed request the application asked for.
#include <algorithm>
#include <cstdint>
#include <set>
#include <utility>
#include <vector>

#include "FuzzCheck.h"
#include "chanlink/chanlink.h"
#include "support/Frames.h"
#include "support/TransportPair.h"

namespace {

using Bytes = std::vector<unsigned char>;
using testing_support::framed;

// The input, read front to back; zeros once it is used up.
struct Input {
    const std::uint8_t* data;
    std::size_t size;
    std::size_t position = 0;

    bool done() const { return position >= size; }
    unsigned char byte() { return position < size ? data[position++] : 0; }
    Bytes bytes(std::size_t count) {
        const Bytes taken(data + position, data + std::min(size, position + count));
        position += taken.size();
        return taken;
    }
    // Mostly one of four channels, so that requests and answers meet;
    // sometimes any 32-bit id.
    unsigned int channel() {
        const unsigned char choice = byte();
        if (choice < 0xF0) {
            return choice % 4;
        }
        unsigned int id = 0;
        for (int i = 0; i < 4; ++i) {
            id |= static_cast<unsigned int>(byte()) << (8 * i);
        }
        return id;
    }
};

// One get or set the application made, and what its receiver heard.
struct Call {
    unsigned int channel;
    int outcomes = 0;
    bool cancelled = false;
};

// What the application has asked for and what its receivers have heard.
// Outlives the session, whose destruction still reports outstanding sets.
struct Ledger {
    std::vector<Call> gets, sets;
    std::vector<std::shared_ptr<Receiver<GetOutcome>>> getReceivers;
    std::vector<std::shared_ptr<Receiver<SetOutcome>>> setReceivers;
    std::size_t nextSetToReport = 0;  // sets before it are reported or cancelled
    // Per kind (subscription, push subscription) and pool receiver: its channels.
    std::set<unsigned int> subscribed[2][3];
    std::set<unsigned int> everSubscribed, getsAsked;
    std::set<std::pair<unsigned int, Bytes>> setsAsked;
    bool loggedInOnce = false;

    static void heard(Call& call, unsigned int channel) {
        FUZZ_CHECK(!call.cancelled && ++call.outcomes == 1 && channel == call.channel);
    }
    void onSet(std::size_t index, unsigned int channel) {
        heard(sets[index], channel);
        // Sets are answered in call order: every earlier one that was not
        // given up on has had its outcome.
        for (std::size_t i = nextSetToReport; i < index; ++i) {
            FUZZ_CHECK(sets[i].outcomes == 1 || sets[i].cancelled);
        }
        nextSetToReport = index + 1;
    }
};

const char* const Username = "user";
const char* const Password = "secret";

// Every frame written since the last check is a request the application
// caused; before any successful login, only login requests. The transport
// takes every write whole, so the bytes written hold whole frames.
void checkWritten(testing_support::MemoryTransport& transport, const Ledger& ledger) {
    static const auto requests = MessageProductionChain::newDeviceInstance();
    static const Bytes login = LoginRequest::newInstance(Username, Password)->getPayload();
    for (const Bytes& frame : testing_support::framesIn(transport.takeWritten())) {
        const auto message = requests->produceMessageFromFrame(frame);
        FUZZ_CHECK(message != nullptr);
        FUZZ_CHECK(frame[0] == UserAccountRequest::Code ? frame == login : ledger.loggedInOnce);
        if (const auto* get = dynamic_cast<const GetRequest*>(message.get())) {
            const std::vector<unsigned int> ids = get->getChannelList();
            FUZZ_CHECK(ids.size() == 1 && ledger.getsAsked.count(ids[0]) == 1);
        } else if (const auto* set = dynamic_cast<const SetRequest*>(message.get())) {
            FUZZ_CHECK(ledger.setsAsked.count({set->getChannelId(), set->getData()}) == 1);
        } else if (const auto* sub = dynamic_cast<const SubscriptionRequest*>(message.get())) {
            const std::vector<unsigned int> ids = sub->getChannelList();
            FUZZ_CHECK(ids.size() == 1 && ledger.everSubscribed.count(ids[0]) == 1);
        }
    }
}

// A well-formed response of any kind, so that outcomes really arrive.
std::shared_ptr<const Message> makeResponse(Input& input) {
    switch (input.byte() % 6) {
        case 0: {
            std::vector<std::shared_ptr<const ChannelValue>> values(1 + input.byte() % 3);
            for (auto& value : values) {
                const unsigned int id = input.channel();
                Bytes header = input.bytes(input.byte() % 3);
                value = std::make_shared<const ChannelValue>(id, std::move(header),
                                                             input.bytes(input.byte() % 5));
            }
            return GetResponse::newInstance(values);
        }
        case 1:
            return SetResponse::newInstance(input.channel());
        case 2: {
            // Mostly errors about gets and sets, which carry a channel id.
            const unsigned char trigger = input.byte();
            const OpCode code = trigger < 0xC0 ? static_cast<OpCode>((trigger % 2) * 2) : trigger;
            const unsigned char reason = input.byte();
            return ErrorResponse::newInstance(code, reason, input.channel());
        }
        case 3:
            return LoginResponse::newInstance(static_cast<LoginResponse::Result>(input.byte() % 4));
        case 4:
            return SubscriptionResponse::newInstance({input.channel()});
        default:
            return LogPushRequest::newInstance(true);  // not a response: ignored
    }
}

// The bound every waiting helper applies, small enough for the fuzzer to
// reach with an open frame of noise.
constexpr std::size_t GuardLimit = 2048;

// Operations 4 to 7: add and remove a subscription, then a push subscription.
void (ClientSession::*const subscriptionCalls[])(unsigned int,
                                                 std::shared_ptr<Receiver<GetOutcome>>) = {
    &ClientSession::addSubscription, &ClientSession::removeSubscription,
    &ClientSession::addPushSubscription, &ClientSession::removePushSubscription};

void run(Input& input, Ledger& ledger) {
    auto transport = std::make_shared<testing_support::MemoryTransport>();
    auto session = ClientSessionBuilder()
                       .setTransport(transport)
                       .setUsername(Username)
                       .setPassword(Password)
                       .build();
    FUZZ_CHECK(session != nullptr);
    session->addLoginOutcomeReceiver(makeReceiver<LoginOutcome>([&ledger](const LoginOutcome& o) {
        ledger.loggedInOnce = ledger.loggedInOnce || o.loggedIn();
    }));
    const auto tick = [&] {
        session->tick();
        // A guarded session never holds more than the bound plus one read,
        // and holds nothing once the bound has cut the open frame off.
        FUZZ_CHECK(session->getIncomingEndPoint()->undecodedBytes() <= GuardLimit + 1024);
        if (SessionWaiter::exceedsUndecodedLimit(*session, GuardLimit)) {
            FUZZ_CHECK(session->getIncomingEndPoint()->undecodedBytes() == 0);
        }
        checkWritten(*transport, ledger);
    };
    // Pool receivers for subscriptions, each checking the channel it hears of.
    std::shared_ptr<Receiver<GetOutcome>> subscribers[2][3];
    for (int kind = 0; kind < 2; ++kind) {
        for (int i = 0; i < 3; ++i) {
            subscribers[kind][i] =
                makeReceiver<GetOutcome>([&ledger, kind, i](const GetOutcome& o) {
                    FUZZ_CHECK(ledger.subscribed[kind][i].count(o.getChannelId()) == 1);
                });
        }
    }

    FUZZ_CHECK(session->initiateLogin());
    tick();
    transport->feed(framed(LoginResponse::newInstance(LoginResponse::Success)));
    tick();
    FUZZ_CHECK(session->getLoginState().loggedIn());

    for (int operations = 0; operations < 4096 && !input.done(); ++operations) {
        const int operation = input.byte() % 12;
        if (operation == 2 || operation == 3) {  // a get or a set
            std::vector<Call>& calls = operation == 2 ? ledger.gets : ledger.sets;
            const std::size_t index = calls.size();
            calls.push_back({input.channel()});
            if (operation == 2) {
                ledger.getsAsked.insert(calls[index].channel);
                ledger.getReceivers.push_back(
                    makeReceiver<GetOutcome>([&ledger, index](const GetOutcome& o) {
                        Ledger::heard(ledger.gets[index], o.getChannelId());
                    }));
                session->requestChannel(calls[index].channel, ledger.getReceivers.back());
            } else {
                const Bytes data = input.bytes(input.byte() % 5);
                ledger.setsAsked.insert({calls[index].channel, data});
                ledger.setReceivers.push_back(
                    makeReceiver<SetOutcome>([&ledger, index](const SetOutcome& o) {
                        ledger.onSet(index, o.getChannelId());
                    }));
                session->setChannel(calls[index].channel, data, ledger.setReceivers.back());
            }
        } else if (operation >= 4 && operation <= 7) {
            const int kind = operation / 6;  // 0: subscription, 1: push subscription
            const int i = input.byte() % 3;
            const unsigned int channel = input.channel();
            if (operation % 2 == 1) {
                ledger.subscribed[kind][i].erase(channel);
            } else {
                ledger.subscribed[kind][i].insert(channel);
                if (kind == 0) {
                    ledger.everSubscribed.insert(channel);
                }
            }
            ((*session).*subscriptionCalls[operation - 4])(channel, subscribers[kind][i]);
        } else if (operation == 8) {
            session->reset();
        } else if (operation == 10) {  // give up on an earlier get or set
            const unsigned char which = input.byte();
            std::vector<Call>& calls = which % 2 == 0 ? ledger.gets : ledger.sets;
            if (!calls.empty()) {
                const std::size_t index = which / 2 % calls.size();
                calls[index].cancelled = calls[index].outcomes == 0;
                if (which % 2 == 0) {
                    session->cancelRequest(calls[index].channel, ledger.getReceivers[index]);
                } else {
                    session->cancelSet(ledger.setReceivers[index]);
                }
            }
        } else {
            if (operation == 0) {  // raw bytes from the device
                transport->feed(input.bytes(input.byte()));
            } else if (operation == 9) {
                transport->feed(framed(makeResponse(input)));
            } else if (operation == 11) {
                FUZZ_CHECK(session->initiateLogin());
            }
            tick();
        }
    }

    // Every set that was not given up on has been answered once now.
    session->reset();
    for (const Call& set : ledger.sets) {
        FUZZ_CHECK(set.outcomes == (set.cancelled ? 0 : 1));
    }
}

}  // namespace

// An exception that leaves the session leaves this function too, and ends the
// run as a crash.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Input input{data, size};
    Ledger ledger;
    run(input, ledger);
    return 0;
}

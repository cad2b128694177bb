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
#include <cstddef>
#include <cstdint>
#include <deque>
#include <exception>
#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "FuzzCheck.h"
#include "chanlink/client/ClientSessionBuilder.h"
#include "chanlink/client/SessionWaiter.h"
#include "chanlink/flow/FunctionReceiver.h"
#include "chanlink/messages/ChannelValue.h"
#include "chanlink/messages/ErrorResponse.h"
#include "chanlink/messages/GetRequest.h"
#include "chanlink/messages/GetResponse.h"
#include "chanlink/messages/LogPushRequest.h"
#include "chanlink/messages/LoginRequest.h"
#include "chanlink/messages/LoginResponse.h"
#include "chanlink/messages/MessageProductionChain.h"
#include "chanlink/messages/SetRequest.h"
#include "chanlink/messages/SetResponse.h"
#include "chanlink/messages/SubscriptionRequest.h"
#include "chanlink/messages/SubscriptionResponse.h"
#include "chanlink/messages/UserAccountRequest.h"
#include "chanlink/wire/Decoder.h"
#include "support/Frames.h"
#include "support/ScriptedTransport.h"

namespace {

using Bytes = std::vector<unsigned char>;
using testing_support::framed;
using testing_support::ScriptedTransport;

// The input, read front to back; zeros once it is used up.
class Input {
public:
    Input(const std::uint8_t* data, std::size_t size) : data(data), size(size) {}

    bool done() const { return position >= size; }
    unsigned char byte() { return position < size ? data[position++] : 0; }
    Bytes bytes(std::size_t count) {
        Bytes taken;
        while (count-- > 0 && !done()) {
            taken.push_back(byte());
        }
        return taken;
    }
    unsigned int uint32() {
        unsigned int value = 0;
        for (int i = 0; i < 4; ++i) {
            value |= static_cast<unsigned int>(byte()) << (8 * i);
        }
        return value;
    }
    // Mostly one of four channels, so that requests and answers meet;
    // sometimes any id.
    unsigned int channel() {
        const unsigned char choice = byte();
        return choice < 0xF0 ? choice % 4 : uint32();
    }

private:
    const std::uint8_t* data;
    std::size_t size;
    std::size_t position = 0;
};

struct SetRecord {
    unsigned int channel;
    int outcomes = 0;
    bool cancelled = false;
};

struct GetRecord {
    unsigned int channel;
    int outcomes = 0;
    bool cancelled = false;
};

// What the application has asked for and what its receivers have heard.
// Outlives the session, whose destruction still reports outstanding sets.
struct Ledger {
    std::vector<SetRecord> sets;
    std::vector<std::shared_ptr<Receiver<SetOutcome>>> setReceivers;
    std::size_t nextSetToReport = 0;  // sets before it are reported or cancelled
    std::vector<GetRecord> gets;
    std::vector<std::shared_ptr<Receiver<GetOutcome>>> getReceivers;
    // Per pool receiver: the channels it is subscribed to.
    std::set<unsigned int> subscribed[3];
    std::set<unsigned int> pushSubscribed[3];
    std::set<unsigned int> everSubscribed;
    std::set<std::pair<unsigned int, Bytes>> setsAsked;
    std::set<unsigned int> getsAsked;
    bool loggedInOnce = false;

    void onSet(std::size_t index, const SetOutcome& outcome) {
        SetRecord& record = sets[index];
        FUZZ_CHECK(!record.cancelled);
        FUZZ_CHECK(++record.outcomes == 1);
        FUZZ_CHECK(outcome.getChannelId() == record.channel);
        // Sets are answered in call order: every earlier one that was not
        // given up on has had its outcome.
        for (std::size_t i = nextSetToReport; i < index; ++i) {
            FUZZ_CHECK(sets[i].outcomes == 1 || sets[i].cancelled);
        }
        nextSetToReport = index + 1;
    }
};

MessageProductionChain& requestChain() {
    static MessageProductionChain chain = *MessageProductionChain::newDeviceInstance();
    return chain;
}

const char* const Username = "user";
const char* const Password = "secret";

// Every frame written since the last check is a request the application
// caused; before any successful login, only login requests.
void checkWritten(ScriptedTransport& transport, Decoder& decoder, const Ledger& ledger) {
    decoder.injectBytes(transport.takeWritten());
    static const Bytes login = LoginRequest::newInstance(Username, Password)->getPayload();
    while (decoder.hasFrames()) {
        const Bytes frame = decoder.extractFrame();
        const auto message = requestChain().produceMessageFromFrame(frame);
        FUZZ_CHECK(message != nullptr);
        if (frame[0] == UserAccountRequest::Code) {
            FUZZ_CHECK(frame == login);
            continue;
        }
        FUZZ_CHECK(ledger.loggedInOnce);
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
            std::vector<std::shared_ptr<const ChannelValue>> values;
            const int count = 1 + input.byte() % 3;
            for (int i = 0; i < count; ++i) {
                const unsigned int id = input.channel();
                Bytes header = input.bytes(input.byte() % 3);
                values.push_back(std::make_shared<const ChannelValue>(
                    id, std::move(header), input.bytes(input.byte() % 5)));
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

void tick(ClientSession& session, ScriptedTransport& transport, Decoder& written,
          const Ledger& ledger) {
    session.tick();
    // A guarded session never holds more than the bound plus one read, and
    // holds nothing once the bound has cut the open frame off.
    FUZZ_CHECK(session.getIncomingEndPoint()->undecodedBytes() <= GuardLimit + 1024);
    if (SessionWaiter::exceedsUndecodedLimit(session, GuardLimit)) {
        FUZZ_CHECK(session.getIncomingEndPoint()->undecodedBytes() == 0);
    }
    checkWritten(transport, written, ledger);
}

void run(Input& input, Ledger& ledger) {
    auto transport = std::make_shared<ScriptedTransport>();
    Decoder written;
    auto session = ClientSessionBuilder()
                       .setTransport(transport)
                       .setUsername(Username)
                       .setPassword(Password)
                       .build();
    FUZZ_CHECK(session != nullptr);
    session->addLoginOutcomeReceiver(makeReceiver<LoginOutcome>([&ledger](const LoginOutcome& o) {
        ledger.loggedInOnce = ledger.loggedInOnce || o.loggedIn();
    }));

    // Pool receivers for subscriptions, each checking the channel it hears of.
    std::shared_ptr<Receiver<GetOutcome>> subscribers[3];
    std::shared_ptr<Receiver<GetOutcome>> pushSubscribers[3];
    for (int i = 0; i < 3; ++i) {
        subscribers[i] = makeReceiver<GetOutcome>([&ledger, i](const GetOutcome& outcome) {
            FUZZ_CHECK(ledger.subscribed[i].count(outcome.getChannelId()) == 1);
        });
        pushSubscribers[i] = makeReceiver<GetOutcome>([&ledger, i](const GetOutcome& outcome) {
            FUZZ_CHECK(ledger.pushSubscribed[i].count(outcome.getChannelId()) == 1);
        });
    }

    FUZZ_CHECK(session->initiateLogin());
    tick(*session, *transport, written, ledger);
    transport->feed(framed(LoginResponse::newInstance(LoginResponse::Success)));
    tick(*session, *transport, written, ledger);
    FUZZ_CHECK(session->getLoginState().loggedIn());

    for (int operations = 0; operations < 4096 && !input.done(); ++operations) {
        switch (input.byte() % 12) {
            case 0:  // raw bytes from the device
                transport->feed(input.bytes(input.byte()));
                tick(*session, *transport, written, ledger);
                break;
            case 1:
                tick(*session, *transport, written, ledger);
                break;
            case 2: {
                const unsigned int channel = input.channel();
                const std::size_t index = ledger.gets.size();
                ledger.gets.push_back({channel});
                auto receiver = makeReceiver<GetOutcome>([&ledger, index](const GetOutcome& o) {
                    GetRecord& record = ledger.gets[index];
                    FUZZ_CHECK(!record.cancelled);
                    FUZZ_CHECK(++record.outcomes == 1);
                    FUZZ_CHECK(o.getChannelId() == record.channel);
                });
                ledger.getReceivers.push_back(receiver);
                ledger.getsAsked.insert(channel);
                session->requestChannel(channel, receiver);
                break;
            }
            case 3: {
                const unsigned int channel = input.channel();
                const Bytes data = input.bytes(input.byte() % 5);
                const std::size_t index = ledger.sets.size();
                ledger.sets.push_back({channel});
                auto receiver = makeReceiver<SetOutcome>(
                    [&ledger, index](const SetOutcome& o) { ledger.onSet(index, o); });
                ledger.setReceivers.push_back(receiver);
                ledger.setsAsked.insert({channel, data});
                session->setChannel(channel, data, receiver);
                break;
            }
            case 4: {
                const int i = input.byte() % 3;
                const unsigned int channel = input.channel();
                ledger.subscribed[i].insert(channel);
                ledger.everSubscribed.insert(channel);
                session->addSubscription(channel, subscribers[i]);
                break;
            }
            case 5: {
                const int i = input.byte() % 3;
                const unsigned int channel = input.channel();
                ledger.subscribed[i].erase(channel);
                session->removeSubscription(channel, subscribers[i]);
                break;
            }
            case 6: {
                const int i = input.byte() % 3;
                const unsigned int channel = input.channel();
                ledger.pushSubscribed[i].insert(channel);
                session->addPushSubscription(channel, pushSubscribers[i]);
                break;
            }
            case 7: {
                const int i = input.byte() % 3;
                const unsigned int channel = input.channel();
                ledger.pushSubscribed[i].erase(channel);
                session->removePushSubscription(channel, pushSubscribers[i]);
                break;
            }
            case 8:
                session->reset();
                break;
            case 9:
                transport->feed(framed(makeResponse(input)));
                tick(*session, *transport, written, ledger);
                break;
            case 10: {  // give up on an earlier get or set
                const unsigned char which = input.byte();
                if (which % 2 == 0 && !ledger.gets.empty()) {
                    const std::size_t index = which / 2 % ledger.gets.size();
                    ledger.gets[index].cancelled = ledger.gets[index].outcomes == 0;
                    session->cancelRequest(ledger.gets[index].channel, ledger.getReceivers[index]);
                } else if (which % 2 == 1 && !ledger.sets.empty()) {
                    const std::size_t index = which / 2 % ledger.sets.size();
                    ledger.sets[index].cancelled = ledger.sets[index].outcomes == 0;
                    session->cancelSet(ledger.setReceivers[index]);
                }
                break;
            }
            default:
                FUZZ_CHECK(session->initiateLogin());
                tick(*session, *transport, written, ledger);
                break;
        }
    }

    // Every set that was not given up on has been answered once now.
    session->reset();
    for (const SetRecord& record : ledger.sets) {
        FUZZ_CHECK(record.outcomes == (record.cancelled ? 0 : 1));
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Input input(data, size);
    Ledger ledger;
    try {
        run(input, ledger);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "exception: %s\n", error.what());
        FUZZ_CHECK(!"an exception left the session");
    } catch (...) {
        FUZZ_CHECK(!"an exception left the session");
    }
    return 0;
}

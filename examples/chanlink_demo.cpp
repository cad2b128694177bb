// A narrated tour of chanlink against a device with the default channel
// table of chanlink-device:
//
//   chanlink_demo HOST PORT
//
// 1 setpoint (4 bytes, read-write), 2 counter (read-only, counts live),
// 3 mode (1 byte, read-write), 4 status (read-only, bits 0..3 toggle live),
// 5 name (read-only, "chanlink"). Every wait has a deadline; the program
// exits 1 if anything does not go as told.
#include <poll.h>

#include <chanlink/chanlink.h>

#include <chrono>
#include <cstdio>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;
using Bytes = std::vector<unsigned char>;

int failures = 0;

void say(const char* text) {
    std::printf("\n== %s\n", text);
}

void check(bool ok, const std::string& what) {
    std::printf("   %s %s\n", ok ? "ok  " : "FAIL", what.c_str());
    failures += ok ? 0 : 1;
}

std::string hex(const Bytes& bytes) {
    std::string text;
    char buffer[4];
    for (unsigned char b : bytes) {
        std::snprintf(buffer, sizeof buffer, "%02X", b);
        text += text.empty() ? "" : " ";
        text += buffer;
    }
    return text.empty() ? "(empty)" : text;
}

std::string reason(unsigned char code) {
    const char* name = ReasonCode::name(code);
    return std::to_string(code) + " (" + (name != nullptr ? name : ReasonCode::describe(code)) +
           ")";
}

// One client connection: a TCP transport and a session on it, waited on with
// poll between ticks so the demo does not burn the processor.
class Client {
public:
    Client(const std::string& host, const std::string& port, const std::string& user,
           const std::string& password)
        : transport(std::make_shared<TCPClientTransport>(host, port, nullptr)) {
        transport->connect();
        session = ClientSessionBuilder()
                      .setTransport(transport)
                      .setUsername(user)
                      .setPassword(password)
                      .build();
    }

    // Ticks until done() or the time is up; false on time-out or a lost connection.
    bool runUntil(const std::function<bool()>& done,
                  std::chrono::milliseconds limit = std::chrono::milliseconds(3000)) {
        const auto deadline = Clock::now() + limit;
        while (!done()) {
            const auto state = transport->state();
            if (state == ConnectionOutcome::ConnectionFailed ||
                state == ConnectionOutcome::Closed || Clock::now() > deadline) {
                return false;
            }
            pollfd entry{
                transport->getSocket(),
                static_cast<short>(state == ConnectionOutcome::Connecting ? POLLOUT : POLLIN), 0};
            ::poll(&entry, 1, 20);
            session->tick();
        }
        return true;
    }

    // Ticks for the whole duration, delivering whatever arrives.
    void runFor(std::chrono::milliseconds duration) {
        runUntil([] { return false; }, duration);
    }

    LoginOutcome login() {
        session->initiateLogin();
        runUntil([&] { return !session->getLoginState().loginPending(); });
        return session->getLoginState();
    }

    GetOutcome get(unsigned int channel) {
        std::vector<GetOutcome> answers;
        session->requestChannel(
            channel, makeReceiver<GetOutcome>([&](const GetOutcome& o) { answers.push_back(o); }));
        if (!runUntil([&] { return !answers.empty(); })) {
            return GetOutcome(channel, ReasonCode::ConnectionLost);
        }
        return answers.front();
    }

    SetOutcome set(unsigned int channel, const Bytes& data) {
        std::vector<SetOutcome> answers;
        session->setChannel(channel, data, makeReceiver<SetOutcome>([&](const SetOutcome& o) {
                                answers.push_back(o);
                            }));
        if (!runUntil([&] { return !answers.empty(); })) {
            return SetOutcome(channel, ReasonCode::ConnectionLost);
        }
        return answers.front();
    }

    std::shared_ptr<TCPClientTransport> transport;
    std::shared_ptr<ClientSession> session;
};

// Prints each change a cache reports, and counts them per channel.
class ChangePrinter : public Receiver<ChannelCache::Change> {
public:
    explicit ChangePrinter(std::map<unsigned int, std::string> names) : names(std::move(names)) {}

    void receive(const ChannelCache::Change& change) override {
        const unsigned int channel = change.second->getChannelId();
        std::printf("   %-9s %s -> %s\n", names[channel].c_str(),
                    change.first ? hex(change.first->getData()).c_str() : "(none)",
                    hex(change.second->getData()).c_str());
        ++changes[channel];
    }

    std::map<unsigned int, std::string> names;
    std::map<unsigned int, int> changes;
};

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        std::fprintf(stderr, "usage: %s HOST PORT\n", argv[0]);
        return 2;
    }
    const std::string host = argv[1];
    const std::string port = argv[2];

    say("A wrong password is refused");
    {
        Client intruder(host, port, "admin", "guess");
        const LoginOutcome outcome = intruder.login();
        check(outcome.loginFailed(),
              std::string("login refused: ") + LoginOutcome::name(outcome.getState()));
    }

    say("Subscribing to the live counter (channel 2) before logging in");
    Client client(host, port, "admin", "secret");
    auto counterCache = std::make_shared<ChannelCache>();
    auto counterChanges =
        std::make_shared<ChangePrinter>(std::map<unsigned int, std::string>{{2, "counter"}});
    counterCache->addReceiver(counterChanges);
    client.session->addSubscription(2, counterCache);
    std::printf("   the subscription request waits until the login succeeds\n");

    say("Logging in as admin");
    check(client.login().loggedIn(), "logged in");

    say("The counter's changes arrive by themselves, through a change cache");
    client.runUntil([&] { return counterChanges->changes[2] >= 3; });
    check(counterChanges->changes[2] >= 3, "at least three changes of channel 2");
    client.session->removeSubscription(2, counterCache);  // quiet from here on

    say("Getting channels, one of them unknown");
    const GetOutcome name = client.get(5);
    check(name.getSuccess() && name.getData() == Bytes{'c', 'h', 'a', 'n', 'l', 'i', 'n', 'k'},
          "channel 5 (name) = " + hex(name.getData()) + " \"chanlink\"");
    const GetOutcome unknown = client.get(99);
    check(!unknown.getSuccess() && unknown.getReasonCode() == ReasonCode::UnknownChannel,
          "channel 99 refused with reason " + reason(unknown.getReasonCode()));

    say("Setting the setpoint (channel 1) and reading it back");
    const Bytes setpoint{0x2A, 0x00, 0x00, 0x00};
    check(client.set(1, setpoint).getSuccess(), "set channel 1 to " + hex(setpoint));
    const GetOutcome readBack = client.get(1);
    check(readBack.getData() == setpoint, "channel 1 reads back " + hex(readBack.getData()));

    say("Setting a read-only channel (5) is refused");
    const SetOutcome refused = client.set(5, {'x', 'x', 'x', 'x', 'x', 'x', 'x', 'x'});
    check(!refused.getSuccess() && refused.getReasonCode() == ReasonCode::ReadOnlyChannel,
          "refused with reason " + reason(refused.getReasonCode()));

    say("Splitting the status bits (channel 4) into virtual channels 400..403");
    auto bitCache = std::make_shared<ChannelCache>();
    auto bitChanges = std::make_shared<ChangePrinter>(std::map<unsigned int, std::string>{
        {400, "bit 0"}, {401, "bit 1"}, {402, "bit 2"}, {403, "bit 3"}});
    bitCache->addReceiver(bitChanges);
    auto split = std::make_shared<BitfieldMultiplexedTransform>(bitCache);
    for (unsigned int bit = 0; bit < 4; ++bit) {
        split->setBitfield(bit, 400 + bit);
    }
    client.session->addSubscription(4, split);  // subscribed after the login this time
    client.runUntil(
        [&] { return bitChanges->changes.size() == 4 && bitChanges->changes[400] >= 2; });
    check(bitChanges->changes[400] >= 2, "bit 0 seen toggling on its own virtual channel");

    say("Seeing the setpoint under the application's own id (1 -> 1001)");
    std::vector<GetOutcome> mapped;
    auto mapping = std::make_shared<ChannelIdMappingTransform>(
        makeReceiver<GetOutcome>([&](const GetOutcome& o) { mapped.push_back(o); }));
    mapping->addMapping(1, 1001);
    client.session->requestChannel(1, mapping);
    client.runUntil([&] { return !mapped.empty(); });
    check(!mapped.empty() && mapped.front().getChannelId() == 1001 &&
              mapped.front().getData() == setpoint,
          "channel 1 delivered as 1001 = " +
              (mapped.empty() ? std::string("nothing") : hex(mapped.front().getData())));

    say(failures == 0 ? "Done: everything went as told" : "Done, with failures");
    return failures == 0 ? 0 : 1;
}

#include "CliConnection.h"

#include <poll.h>

#include <algorithm>
#include <utility>

#include "CliOutput.h"
#include "StopSignal.h"
#include "chanlink/client/ClientSessionBuilder.h"
#include "chanlink/flow/FunctionReceiver.h"

namespace cli {

namespace {

// The longest a wait sleeps on the socket before looking again. A bound is
// needed because the session may hold bytes it could not write yet, and
// the socket says nothing about those.
constexpr std::chrono::milliseconds MaxSleep{50};

// Passes everything through to the real transport and shows the observer a
// copy of every run of bytes read.
class ObservedTransport : public Transport {
public:
    ObservedTransport(std::shared_ptr<Transport> inner, Connection::BytesObserver observer)
        : inner(std::move(inner)), observer(std::move(observer)) {}

    int read(void* buffer, int length) override {
        const int count = inner->read(buffer, length);
        if (count > 0) {
            const auto* bytes = static_cast<const unsigned char*>(buffer);
            observer(std::vector<unsigned char>(bytes, bytes + count));
        }
        return count;
    }
    int write(const void* buffer, int length) override { return inner->write(buffer, length); }
    void tick() override { inner->tick(); }

private:
    std::shared_ptr<Transport> inner;
    Connection::BytesObserver observer;
};

std::string idList(const std::vector<std::uint32_t>& ids) {
    std::string text;
    for (std::uint32_t id : ids) {
        text += (text.empty() ? "" : " ") + std::to_string(id);
    }
    return text;
}

}  // namespace

Connection::Connection(Options options, BytesObserver observer) : options(std::move(options)) {
    auto connected = makeReceiver<ConnectionOutcome>([this](const ConnectionOutcome& outcome) {
        if (outcome.getState() == ConnectionOutcome::Connected) {
            everConnected = true;
        }
    });
    std::shared_ptr<Transport> transport;
#ifdef CHANLINK_WITH_TLS
    if (this->options.tls) {
        TLSClientSettings settings;
        settings.caFile = this->options.caFile;
        settings.certificateFile = this->options.certificateFile;
        settings.keyFile = this->options.keyFile;
        settings.verifyPeer = !this->options.insecure;
        tls = std::make_shared<TLSClientTransport>(this->options.host, this->options.port,
                                                   connected, settings);
        transport = tls;
    }
#endif
    if (!transport) {
        tcp =
            std::make_shared<TCPClientTransport>(this->options.host, this->options.port, connected);
        transport = tcp;
    }
    if (observer) {
        transport = std::make_shared<ObservedTransport>(transport, std::move(observer));
    }
    clientSession = ClientSessionBuilder()
                        .setTransport(transport)
                        .setUsername(this->options.user)
                        .setPassword(this->options.password)
                        .build();
}

Connection::~Connection() {
    // The transport reports its closing to the receiver above, which must not
    // outlive this object: close while it still exists.
    close();
}

ConnectionOutcome::ConnectionStates Connection::state() const {
#ifdef CHANLINK_WITH_TLS
    if (tls) {
        return tls->state();
    }
#endif
    return tcp->state();
}

void Connection::close() {
#ifdef CHANLINK_WITH_TLS
    if (tls) {
        tls->close();
        return;
    }
#endif
    tcp->close();
}

Failure Connection::open() {
    const auto deadline = Clock::now() + options.timeout;
#ifdef CHANLINK_WITH_TLS
    if (tls) {
        tls->connect();
    }
#endif
    if (tcp) {
        tcp->connect();
    }
    if (!clientSession->initiateLogin()) {
        return {ExitCode::UsageError, "user name or password is too long"};
    }
    const WaitResult result =
        waitUntil([&] { return !clientSession->getLoginState().loginPending(); }, deadline);
    if (result != WaitResult::Done) {
        return waitFailure(result, "the login");
    }
    const LoginOutcome login = clientSession->getLoginState();
    if (login.loggedIn()) {
        return {};
    }
    return {ExitCode::LoginRefused,
            "login as '" + options.user + "' refused (" +
                (login.tooManyConnections() ? "the device serves no more clients"
                                            : "wrong user or password") +
                ")"};
}

Failure Connection::get(const std::vector<std::uint32_t>& ids, std::vector<GetOutcome>& outcomes,
                        const std::string& command) {
    // The receivers may stay registered in the session after a wait that
    // failed, so they share the answers rather than pointing into this call.
    auto answers = std::make_shared<std::vector<std::optional<GetOutcome>>>(ids.size());
    for (std::size_t i = 0; i < ids.size(); ++i) {
        clientSession->requestChannel(
            ids[i], makeReceiver<GetOutcome>([answers, i](const GetOutcome& outcome) {
                if (!(*answers)[i]) {
                    (*answers)[i] = outcome;
                }
            }));
    }
    const auto allAnswered = [&] {
        return std::all_of(answers->begin(), answers->end(),
                           [](const auto& answer) { return answer.has_value(); });
    };
    const WaitResult result = waitUntil(allAnswered, Clock::now() + options.timeout);
    if (result != WaitResult::Done) {
        std::vector<std::uint32_t> missing;
        for (std::size_t i = 0; i < ids.size(); ++i) {
            if (!(*answers)[i]) {
                missing.push_back(ids[i]);
            }
        }
        return waitFailure(result, command + " " + idList(missing));
    }
    outcomes.clear();
    for (auto& answer : *answers) {
        outcomes.push_back(*answer);
    }
    return {};
}

Failure Connection::set(std::uint32_t id, const std::vector<unsigned char>& data,
                        std::optional<SetOutcome>& outcome) {
    // Shared for the same reason as in get.
    auto answer = std::make_shared<std::optional<SetOutcome>>();
    clientSession->setChannel(id, data, makeReceiver<SetOutcome>([answer](const SetOutcome& o) {
                                  if (!*answer) {
                                      *answer = o;
                                  }
                              }));
    const WaitResult result =
        waitUntil([&] { return answer->has_value(); }, Clock::now() + options.timeout);
    if (result != WaitResult::Done) {
        return waitFailure(result, "set " + std::to_string(id));
    }
    outcome = *answer;
    return {};
}

Failure Connection::stream(const std::function<bool()>& done,
                           std::optional<std::chrono::milliseconds> limit) {
    std::optional<Clock::time_point> deadline;
    if (limit) {
        deadline = Clock::now() + *limit;
    }
    const WaitResult result = waitUntil(done, deadline);
    if (result == WaitResult::ConnectionLost) {
        return waitFailure(result, "");
    }
    return {};
}

Connection::WaitResult Connection::waitUntil(const std::function<bool()>& done,
                                             std::optional<Clock::time_point> deadline) {
    for (;;) {
        if (done()) {
            return WaitResult::Done;
        }
        if (connectionLost()) {
            return WaitResult::ConnectionLost;
        }
        if (tool::stopRequested()) {
            return WaitResult::Interrupted;
        }
        auto slice = MaxSleep;
        if (deadline) {
            const auto now = Clock::now();
            if (now >= *deadline) {
                return WaitResult::TimedOut;
            }
            slice = std::min(slice, std::chrono::ceil<std::chrono::milliseconds>(*deadline - now));
        }
        clientSession->tick();
        if (!done() && !connectionLost()) {
            waitForSocket(slice);
        }
    }
}

void Connection::waitForSocket(std::chrono::milliseconds slice) {
#ifdef CHANLINK_WITH_TLS
    // Decrypted input in hand: the socket may never tell of it.
    if (tls && TransportPoll::of(*tls).inputBuffered) {
        return;
    }
#endif
    pollfd descriptor{};
    if (tcp) {
        descriptor.fd = tcp->getSocket();
        descriptor.events = tcp->state() == ConnectionOutcome::Connecting ? POLLOUT : POLLIN;
    }
#ifdef CHANLINK_WITH_TLS
    if (tls) {
        descriptor = TransportPoll::of(*tls).entry(false);
    }
#endif
    // Without an open socket this only sleeps. A signal cuts the sleep short.
    poll(&descriptor, descriptor.fd > 0 ? 1 : 0, static_cast<int>(slice.count()));
}

bool Connection::connectionLost() const {
    const auto state = this->state();
    return state == ConnectionOutcome::ConnectionFailed || state == ConnectionOutcome::Closed;
}

Failure Connection::waitFailure(WaitResult result, const std::string& what) const {
    switch (result) {
        case WaitResult::TimedOut:
            if (state() != ConnectionOutcome::Connected) {
                return {ExitCode::TimedOut, "no connection to " + address() + " within " +
                                                describeDuration(options.timeout)};
            }
            return {ExitCode::TimedOut,
                    "no answer to " + what + " within " + describeDuration(options.timeout)};
        case WaitResult::ConnectionLost:
#ifdef CHANLINK_WITH_TLS
            // "certificate verify failed: ...", or the device's alert.
            if (tls && !tls->getFailureReason().empty()) {
                return {ExitCode::ConnectionFailed,
                        everConnected
                            ? "connection to " + address() + " closed: " + tls->getFailureReason()
                            : tls->getFailureReason()};
            }
#endif
            if (!everConnected) {
                return {ExitCode::ConnectionFailed, "cannot connect to " + address()};
            }
            return {ExitCode::ConnectionFailed,
                    "connection to " + address() + " closed" +
                        (what.empty() ? "" : " while waiting for " + what)};
        case WaitResult::Interrupted:
            return {ExitCode::Interrupted, "interrupted while waiting for " + what};
        case WaitResult::Done:
            break;
    }
    return {};
}

std::string Connection::address() const {
    // An IPv6 literal needs brackets to keep its port apart.
    if (options.host.find(':') != std::string::npos) {
        return "[" + options.host + "]:" + options.port;
    }
    return options.host + ":" + options.port;
}

}  // namespace cli

#include "CliConnection.h"

#include <algorithm>
#include <utility>

#include "CliOutput.h"
#include "StopSignal.h"
#include "chanlink/capture/CaptureTransport.h"
#include "chanlink/client/ClientSessionBuilder.h"
#include "chanlink/flow/FunctionReceiver.h"
#include "chanlink/transport/TransportPoll.h"

namespace cli {

Connection::Connection(Options given) : options(std::move(given)) {
    auto connected = makeReceiver<ConnectionOutcome>([this](const ConnectionOutcome& outcome) {
        if (outcome.getState() == ConnectionOutcome::Connected) {
            everConnected = true;
        }
    });
    std::shared_ptr<Transport> transport;
#ifdef CHANLINK_WITH_TLS
    if (options.tls) {
        TLSClientSettings settings;
        settings.caFile = options.caFile;
        settings.certificateFile = options.certificateFile;
        settings.keyFile = options.keyFile;
        settings.verifyPeer = !options.insecure;
        tls = std::make_shared<TLSClientTransport>(options.host, options.port, connected, settings);
        transport = tls;
    }
#endif
    if (!transport) {
        tcp = std::make_shared<TCPClientTransport>(options.host, options.port, connected);
        transport = tcp;
    }
    if (!options.captureFile.empty()) {
        std::string error;
        // A write error later is reported on standard error by the writer itself.
        if (auto file = PcapWriter::open(options.captureFile, error)) {
            transport = std::make_shared<CaptureTransport>(
                transport, file, CaptureStream::Side::Client, options.captureCredentials);
        } else {
            captureFailure = {ExitCode::UsageError, error};
        }
    }
    clientSession = ClientSessionBuilder()
                        .setTransport(transport)
                        .setUsername(options.user)
                        .setPassword(options.password)
                        .build();
    waiter.setEndOnConnectionLoss(true);
    waiter.setStopCheck(tool::stopRequested);
    waiter.setMaxUndecodedBytes(options.maxFrame);
}

Connection::~Connection() {
    // The transport reports its closing to the receiver above, which must not
    // outlive this object: close while it still exists.
    close();
}

ConnectionOutcome::ConnectionStates Connection::state() const {
    return TransportPoll::of(*clientSession->getTransport()).state;
}

void Connection::close() {
    TransportPoll::close(*clientSession->getTransport());
}

Failure Connection::open() {
    if (captureFailure) {
        return captureFailure;
    }
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
    const Result result = waiter.tickUntil(
        *clientSession, [&] { return !clientSession->getLoginState().loginPending(); },
        options.timeout);
    if (result != Result::Done) {
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
    const Result result = waiter.tickUntil(*clientSession, allAnswered, options.timeout);
    if (result != Result::Done) {
        std::string missing;  // "3 5"
        for (std::size_t i = 0; i < ids.size(); ++i) {
            if (!(*answers)[i]) {
                missing += (missing.empty() ? "" : " ") + std::to_string(ids[i]);
            }
        }
        return waitFailure(result, command + " " + missing);
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
    const Result result = waiter.tickUntil(
        *clientSession, [&] { return answer->has_value(); }, options.timeout);
    if (result != Result::Done) {
        return waitFailure(result, "set " + std::to_string(id));
    }
    outcome = *answer;
    return {};
}

Failure Connection::stream(const std::function<bool()>& done,
                           std::optional<std::chrono::milliseconds> limit) {
    const Result result =
        waiter.tickUntil(*clientSession, done, limit.value_or(std::chrono::milliseconds::max()));
    // Running out of time or being stopped is how a stream ends.
    if (result == Result::ConnectionEnded || SessionWaiter::closingReason(result)) {
        return waitFailure(result, "");
    }
    return {};
}

Failure Connection::waitFailure(Result result, const std::string& what) const {
    switch (result) {
        case Result::TimedOut:
            if (state() != ConnectionOutcome::Connected) {
                return {ExitCode::TimedOut, "no connection to " + address() + " within " +
                                                describeDuration(options.timeout)};
            }
            return {ExitCode::TimedOut,
                    "no answer to " + what + " within " + describeDuration(options.timeout)};
        case Result::ConnectionEnded:
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
        case Result::FrameTooLarge:
        case Result::DeviceNotReading:
            return {ExitCode::ConnectionFailed, waiter.describeClosing(result)};
        case Result::Stopped:
            return {ExitCode::Interrupted, "interrupted while waiting for " + what};
        case Result::Done:
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

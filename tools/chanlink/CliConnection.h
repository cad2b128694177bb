#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "CliExitCode.h"
#include "CliOptions.h"
#include "chanlink/client/ClientSession.h"
#include "chanlink/client/GetOutcome.h"
#include "chanlink/client/SessionWaiter.h"
#include "chanlink/client/SetOutcome.h"
#include "chanlink/transport/TCPClientTransport.h"
#ifdef CHANLINK_WITH_TLS
#include "chanlink/tls/TLSClientTransport.h"
#endif

namespace cli {

// Why a step could not be completed: the exit code and the one-line message
// (without "chanlink: "). A default Failure means there was none.
struct Failure {
    ExitCode code = ExitCode::Success;
    std::string message;

    explicit operator bool() const { return code != ExitCode::Success; }
};

// One logged-in session with a device, and every wait chanlink makes, all
// through the library's SessionWaiter: each wait has a deadline, ends early
// when the connection fails or closes or a stop signal comes, sleeps on the
// socket rather than spinning, and closes the connection when the device
// sends a frame larger than --max-frame or stops reading requests.
class Connection {
public:
    // Nothing is connected yet.
    explicit Connection(Options options);
    ~Connection();

    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    // Connects and logs in, within the timeout.
    Failure open();

    // Asks for the channels at once and waits, within one timeout, for an
    // outcome for each; outcomes come back in the order of ids. A refused
    // channel is an outcome, not a Failure. command names the request in
    // messages ("no answer to watch 3 within 5s").
    Failure get(const std::vector<std::uint32_t>& ids, std::vector<GetOutcome>& outcomes,
                const std::string& command = "get");

    // Writes the channel and waits, within the timeout, for its outcome.
    Failure set(std::uint32_t id, const std::vector<unsigned char>& data,
                std::optional<SetOutcome>& outcome);

    // Keeps the session running, delivering whatever arrives, until done()
    // is true, the time limit (if any) has passed, or a stop was requested;
    // all of these are a normal end. Fails only when the connection is lost
    // or closed by a bound (an oversized frame, requests left unread).
    Failure stream(const std::function<bool()>& done,
                   std::optional<std::chrono::milliseconds> limit);

    ClientSession& session() { return *clientSession; }

private:
    using Result = SessionWaiter::Result;

    // The Failure for a wait that ended without its answer; what names the
    // awaited answer ("get 3"), empty when there was none in particular.
    Failure waitFailure(Result result, const std::string& what) const;
    std::string address() const;

    Options options;
    // The session's transport, whatever wraps it (TransportPoll).
    ConnectionOutcome::ConnectionStates state() const;
    void close();

    // One of the two, by options.tls: connecting, and why TLS failed.
    std::shared_ptr<TCPClientTransport> tcp;
#ifdef CHANLINK_WITH_TLS
    std::shared_ptr<TLSClientTransport> tls;
#endif
    // Why the capture file could not be opened; open() reports it.
    Failure captureFailure;
    std::shared_ptr<ClientSession> clientSession;
    // Every wait: ends on a closed connection, a stop signal or a frame
    // larger than --max-frame.
    SessionWaiter waiter;
    bool everConnected = false;
};

}  // namespace cli

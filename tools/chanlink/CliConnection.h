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

// One logged-in session with a device, and every wait chanlink makes. Each
// wait has a deadline, ends early when the connection fails or closes, and
// sleeps on the socket rather than spinning.
//
// All waiting on the session happens in this class, so that the loops here
// can give way to the session's own timed blocking calls.
class Connection {
public:
    using Clock = std::chrono::steady_clock;
    using BytesObserver = std::function<void(const std::vector<unsigned char>&)>;

    // Nothing is connected yet. observer, if given, sees every run of bytes
    // the session reads, before the session handles them.
    explicit Connection(Options options, BytesObserver observer = {});
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
    // all of these are a normal end. Fails only when the connection is lost.
    Failure stream(const std::function<bool()>& done,
                   std::optional<std::chrono::milliseconds> limit);

    ClientSession& session() { return *clientSession; }

private:
    enum class WaitResult { Done, TimedOut, ConnectionLost, Interrupted };

    // Ticks until done() is true, the deadline (if any) passes, the
    // connection fails or closes, or a stop is requested.
    WaitResult waitUntil(const std::function<bool()>& done,
                         std::optional<Clock::time_point> deadline);
    // Sleeps until the socket has something for the session, at most slice.
    void waitForSocket(std::chrono::milliseconds slice);
    bool connectionLost() const;
    // The Failure for a wait that ended without its answer; what names the
    // awaited answer ("get 3"), empty when there was none in particular.
    Failure waitFailure(WaitResult result, const std::string& what) const;
    std::string address() const;

    Options options;
    ConnectionOutcome::ConnectionStates state() const;
    void close();

    // One of the two, by options.tls.
    std::shared_ptr<TCPClientTransport> tcp;
#ifdef CHANLINK_WITH_TLS
    std::shared_ptr<TLSClientTransport> tls;
#endif
    std::shared_ptr<ClientSession> clientSession;
    bool everConnected = false;
};

}  // namespace cli

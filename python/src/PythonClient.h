#pragma once

#include <chrono>
#include <cstddef>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "chanlink/client/GetOutcome.h"
#include "chanlink/client/ReconnectingClient.h"
#include "chanlink/client/SessionWaiter.h"
#include "chanlink/client/SetOutcome.h"
#include "chanlink/processing/LatestValueQueue.h"

// The client behind chanlink.Client: a ReconnectingClient and what the
// Python side needs around it. Every public operation takes one lock, so
// Python threads sharing a client take turns, and must be called WITHOUT the
// GIL: waits then let other Python threads run, and no thread can hold the
// GIL while waiting for the lock.
class PythonClient {
public:
    using Milliseconds = std::chrono::milliseconds;

    enum class ConnectResult {
        Ready,          // logged in
        LoginRefused,   // loginResult() says how
        NoLoginAnswer,  // connected, but the login was not answered in time
        NoConnection,   // no connection could be made in time
        Interrupted,    // a signal handler raised (the error is set in Python)
    };

    // reconnect false: the client stops at the first lost connection.
    // maxFrame: undecoded bytes allowed from the device, 0 for no bound.
    // factory: the transports of the connection attempts (TCP or TLS).
    PythonClient(const std::string& address, ReconnectingClient::TransportFactory factory,
                 const std::string& username, const std::string& password, bool reconnect,
                 std::size_t maxFrame);

    // Starts the client and ticks until it is logged in, refused, or the
    // time is up; afterwards the client is stopped unless Ready.
    ConnectResult connect(Milliseconds timeout);
    // Result of the refused login: 0 wrong credentials, 2 too many connections.
    int loginResult() const { return refusedLogin.value_or(0); }

    // Waits for the connection, then asks. Empty when the time ran out; a
    // failed outcome with ReasonCode::NotConnected or ConnectionLost when
    // there was no connection.
    std::optional<GetOutcome> get(unsigned int channel, Milliseconds timeout);
    std::optional<SetOutcome> set(unsigned int channel, const std::vector<unsigned char>& data,
                                  Milliseconds timeout);
    // The channels asked for in one go; those not answered in time are
    // missing from the result. None without a connection.
    std::optional<std::map<unsigned int, GetOutcome>> getMany(
        const std::vector<unsigned int>& channels, Milliseconds timeout);

    // Queues the channel's values for poll(), across reconnects. Past the
    // queue's bound only the latest value of each channel waits
    // (LatestValueQueue); droppedValues() counts the others.
    void subscribe(unsigned int channel);
    void unsubscribe(unsigned int channel);
    // Ticks until a value is queued or the timeout has passed, then hands
    // over every queued value.
    std::deque<GetOutcome> poll(Milliseconds timeout);
    // Puts values back in front of the queue (a callback raised before they
    // were delivered).
    void requeue(const std::deque<GetOutcome>& values);

    // Runs f with the lock held; f may use client() and tickUntil().
    template <typename F>
    auto locked(F&& f) {
        const std::lock_guard<std::mutex> guard(lock);
        return f();
    }
    ReconnectingClient& client() { return reconnecting; }
    // The library's tick-and-wait loop over the client; it also ends when a
    // signal handler raises (checked every 100 ms, with the GIL taken
    // briefly). Call with the lock held.
    SessionWaiter::Result tickUntil(const std::function<bool()>& done, Milliseconds timeout);

    void close();
    // Closed, or stopped after a lost connection with reconnect false: no
    // call can succeed any more.
    bool isStopped();
    std::string stateName();
    std::size_t droppedValues();
    // Why there is no connection, for ConnectionFailed.
    std::string describeNoConnection();

private:
    bool waitReady(Milliseconds timeout);

    std::mutex lock;
    std::string address;
    bool reconnect;
    ReconnectingClient reconnecting;
    std::optional<int> refusedLogin;
    bool closed = false;
    std::set<unsigned int> subscriptions;
    // Values of the subscribed channels waiting for poll().
    std::shared_ptr<LatestValueQueue> pending = std::make_shared<LatestValueQueue>();
};

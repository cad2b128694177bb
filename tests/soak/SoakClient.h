#pragma once

#include <poll.h>

#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "chanlink/client/ClientSession.h"
#include "chanlink/transport/TCPClientTransport.h"

// One client of the soak test: a session over TCP that, round after round,
// sets one of its own channels to a new value, waits for the acknowledgement,
// reads the channel back and compares. It is subscribed to each of its
// channels and checks that every value it set comes back through the
// subscription, in order, none missing: twice, as the device's push and as
// the read-back (which subscribers hear too). The first fault is kept as its
// failure; everything it keeps is bounded, so that its memory stays flat.
class SoakClient {
public:
    struct Counts {
        std::uint64_t sets = 0;          // set requests made
        std::uint64_t acknowledged = 0;  // successful set outcomes
        std::uint64_t readBacks = 0;     // read-backs equal to the value set
        std::uint64_t pushed = 0;        // set values seen through the subscription
    };

    // Values are 4 bytes; channels start at zero.
    SoakClient(unsigned int index, const std::string& host, const std::string& service,
               const std::string& username, const std::string& password,
               std::vector<unsigned int> channels);

    // Connects, logs in and subscribes; the rounds start once logged in.
    void start();
    void tick();
    pollfd getPollDescriptor() const { return session->getPollDescriptor(); }
    // No new round starts; the one under way finishes.
    void finish() { finishing = true; }

    bool loggedIn() const { return session->getLoginState().loggedIn(); }
    // Nothing under way and every value set seen through the subscription.
    bool settled() const;
    bool failed() const { return !failure.empty(); }
    const std::string& getFailure() const { return failure; }
    const Counts& getCounts() const { return counts; }

private:
    enum class Step { Starting, Setting, Reading, Idle };

    void nextRound();
    void onLogin(const LoginOutcome& outcome);
    void onSet(const SetOutcome& outcome);
    void onRead(const GetOutcome& outcome);
    void onPushed(const GetOutcome& outcome);
    void fail(const std::string& why);

    unsigned int index;
    std::vector<unsigned int> channels;
    std::shared_ptr<TCPClientTransport> transport;
    std::shared_ptr<ClientSession> session;
    std::shared_ptr<Receiver<SetOutcome>> setReceiver;
    std::shared_ptr<Receiver<GetOutcome>> readReceiver;
    std::shared_ptr<Receiver<GetOutcome>> pushReceiver;

    Step step = Step::Starting;
    bool finishing = false;
    std::size_t next = 0;       // index of the channel of the next round
    std::uint32_t counter = 0;  // makes every value differ from the one before
    unsigned int channel = 0;   // of the round under way
    std::vector<unsigned char> value;
    // Per channel: the last value the subscription showed, how often, and
    // whether it was one of ours; and the values set that it has not shown
    // yet (at most one in a round).
    struct Shown {
        std::vector<unsigned char> value;
        int times = 0;
        bool set = false;
    };
    std::map<unsigned int, Shown> shown;
    std::map<unsigned int, std::deque<std::vector<unsigned char>>> unseen;
    Counts counts;
    std::string failure;
};

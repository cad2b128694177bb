#pragma once

#include <memory>
#include <string>

#include "chanlink/client/LoginOutcome.h"
#include "chanlink/flow/Receiver.h"
#include "chanlink/messages/LoginResponse.h"
#include "chanlink/messages/Message.h"

// The login state machine: sends the login request and turns the server's
// response into a new state, reporting every state it enters (also a repeat
// of the same state) to the outcome receiver. It never retries by itself and
// has no time-out: a login without answer stays Pending.
class ClientLoginManager : public Receiver<LoginResponse> {
public:
    // messageReceiver: where the request goes (in a built session, the
    // outgoing queue itself, so the login is never held back).
    // outcomeReceiver may be empty; states then change unreported.
    ClientLoginManager(std::shared_ptr<Receiver<std::shared_ptr<const Message>>> messageReceiver,
                       const std::string& username, const std::string& password,
                       std::shared_ptr<Receiver<LoginOutcome>> outcomeReceiver);
    ~ClientLoginManager() override;

    ClientLoginManager(const ClientLoginManager&) = delete;
    ClientLoginManager& operator=(const ClientLoginManager&) = delete;

    // Sends a login request and enters Pending, whatever the current state.
    // A username or password of 256 bytes or more cannot be carried: nothing
    // is sent, the state becomes Failure and false is returned.
    bool initiateLogin();
    // Takes the server's answer, in any state (also when none was pending).
    void receive(const LoginResponse& response) override;
    // Sets the state and reports it.
    void progressState(const LoginOutcome& outcome);
    LoginOutcome getState() const { return state; }

private:
    std::shared_ptr<Receiver<std::shared_ptr<const Message>>> messageReceiver;
    std::string username;
    std::string password;
    LoginOutcome state;
    std::shared_ptr<Receiver<LoginOutcome>> outcomeReceiver;
};

#include "chanlink/client/ClientLoginManager.h"

#include "chanlink/messages/LoginRequest.h"

ClientLoginManager::ClientLoginManager(
    std::shared_ptr<Receiver<std::shared_ptr<const Message>>> messageReceiver,
    const std::string& username, const std::string& password,
    std::shared_ptr<Receiver<LoginOutcome>> outcomeReceiver)
    : messageReceiver(std::move(messageReceiver)),
      username(username),
      password(password),
      state(LoginOutcome::NotAttempted),
      outcomeReceiver(std::move(outcomeReceiver)) {}

ClientLoginManager::~ClientLoginManager() = default;

bool ClientLoginManager::initiateLogin() {
    const std::shared_ptr<const Message> request = LoginRequest::newInstance(username, password);
    if (!request) {
        progressState(LoginOutcome(LoginOutcome::Failure));
        return false;
    }
    // The request is handed on before the state becomes Pending.
    if (messageReceiver) {
        messageReceiver->receive(request);
    }
    progressState(LoginOutcome(LoginOutcome::Pending));
    return true;
}

void ClientLoginManager::receive(const LoginResponse& response) {
    progressState(LoginOutcome(response));
}

void ClientLoginManager::progressState(const LoginOutcome& outcome) {
    state = outcome;
    if (outcomeReceiver) {
        // A copy: a receiver that starts a new login must not change what
        // the receivers after it are told.
        const LoginOutcome reported = state;
        outcomeReceiver->receive(reported);
    }
}

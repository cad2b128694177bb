#include "chanlink/client/LoginValveController.h"

LoginValveController::LoginValveController(
    std::shared_ptr<Valve<std::shared_ptr<const Message>>> valve)
    : valve(std::move(valve)) {}

LoginValveController::~LoginValveController() = default;

void LoginValveController::receive(const LoginOutcome& outcome) {
    if (!valve) {
        return;
    }
    if (outcome.loggedIn()) {
        valve->open();
    } else {
        valve->close();
    }
}

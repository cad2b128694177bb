#include "chanlink/client/LoginOutcome.h"

#include "chanlink/messages/LoginResponse.h"

LoginOutcome::LoginOutcome(const StatePossibilities& state) : state(state) {}

LoginOutcome::LoginOutcome(const LoginResponse& response)
    : state(static_cast<StatePossibilities>(response.getResult())) {}

LoginOutcome::~LoginOutcome() = default;

const char* LoginOutcome::name(StatePossibilities state) {
    switch (state) {
        case Failure:
            return "Failure";
        case Success:
            return "Success";
        case TooManyConnections:
            return "TooManyConnections";
        case NotAttempted:
            return "NotAttempted";
        case Pending:
            return "Pending";
    }
    return "Unknown";
}

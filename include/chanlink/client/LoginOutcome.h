#pragma once

class LoginResponse;

// Where a login stands. The first three states are, on purpose, the very
// result codes a login response carries, so an outcome is made from a
// response by copying the number.
class LoginOutcome {
public:
    enum StatePossibilities : int {
        Failure = 0,             // refused by the server, or no request could be built
        Success = 1,             // logged in
        TooManyConnections = 2,  // refused: the server has too many connections
        NotAttempted = 3,        // no login started yet
        Pending = 4              // a request is out and no response has come back
    };

    explicit LoginOutcome(const StatePossibilities& state);
    // The response's result, copied unchanged.
    explicit LoginOutcome(const LoginResponse& response);
    LoginOutcome(const LoginOutcome&) = default;
    LoginOutcome& operator=(const LoginOutcome&) = default;
    virtual ~LoginOutcome();

    StatePossibilities getState() const { return state; }

    bool loginNotAttempted() const { return state == NotAttempted; }
    bool loginPending() const { return state == Pending; }
    bool loggedIn() const { return state == Success; }
    bool tooManyConnections() const { return state == TooManyConnections; }
    // True for Failure and also for TooManyConnections: both are refusals.
    bool loginFailed() const { return state == Failure || state == TooManyConnections; }

    bool operator==(const LoginOutcome& other) const { return state == other.state; }
    bool operator!=(const LoginOutcome& other) const { return state != other.state; }

    // "Failure", "Success", ...; "Unknown" for a number outside the enumeration.
    static const char* name(StatePossibilities state);

private:
    StatePossibilities state;
};

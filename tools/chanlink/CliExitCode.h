#pragma once

namespace cli {

// The exit status of chanlink, one per kind of failure, so that scripts can
// tell them apart. docs/CLI.md lists them.
enum ExitCode : int {
    Success = 0,
    // The device refused an operation (a get of an unknown channel, a set of a
    // read-only channel, ...) or the library could not carry it out.
    OperationFailed = 1,
    // The command line is wrong; nothing was sent.
    UsageError = 2,
    // The connection could not be made, or it closed before the work was done.
    ConnectionFailed = 3,
    // The device refused the login (wrong user or password, or too many clients).
    LoginRefused = 4,
    // An answer did not come within --timeout.
    TimedOut = 5,
    // SIGINT or SIGTERM ended a get, a set or the login before its answer came.
    Interrupted = 130
};

}  // namespace cli

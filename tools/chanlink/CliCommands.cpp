#include "CliCommands.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "CliConnection.h"
#include "CliExitCode.h"
#include "CliOutput.h"
#include "ToolSecrets.h"
#include "chanlink/flow/FunctionReceiver.h"
#include "chanlink/processing/ChannelCache.h"

namespace cli {

namespace {

// Where a command writes, in the format asked for.
struct Printer {
    std::ostream& out;
    std::ostream& err;
    Format format;

    // Flushed at once, so that a reader of a pipe sees each line as it comes.
    void line(const std::string& text) const { out << text << '\n' << std::flush; }
    // Ends a command: the failure's line, if there is one, and its exit code
    // (Success for none).
    int finish(const Failure& failure) const {
        if (failure) {
            err << "chanlink: " << failure.message << '\n' << std::flush;
        }
        return failure.code;
    }
    // A refused operation: the error line, and in JSON also a result object.
    void refused(const std::string& command, std::uint32_t id, unsigned char reason) const {
        if (format == Format::Json) {
            line(formatFailure(command, id, reason));
        }
        err << "chanlink: " << failureMessage(command, id, reason) << '\n' << std::flush;
    }
};

// Stops a stream after the count of printed lines, when a count was given.
struct LineBudget {
    std::optional<std::uint64_t> limit;
    std::uint64_t used = 0;

    bool exhausted() const { return limit && used >= *limit; }
};

int runGet(Connection& connection, const Options& options, const Printer& print) {
    std::vector<GetOutcome> outcomes;
    if (const Failure failure = connection.get(options.channels, outcomes)) {
        return print.finish(failure);
    }
    int code = ExitCode::Success;
    for (std::size_t i = 0; i < outcomes.size(); ++i) {
        if (outcomes[i].getSuccess()) {
            print.line(formatValue("get", outcomes[i], print.format));
        } else {
            print.refused("get", options.channels[i], outcomes[i].getReasonCode());
            code = ExitCode::OperationFailed;
        }
    }
    return code;
}

int runSet(Connection& connection, const Options& options, const Printer& print) {
    const std::uint32_t id = options.channels.front();
    std::optional<SetOutcome> outcome;
    if (const Failure failure = connection.set(id, options.data, outcome)) {
        return print.finish(failure);
    }
    if (!outcome->getSuccess()) {
        print.refused("set", id, outcome->getReasonCode());
        return ExitCode::OperationFailed;
    }
    print.line(formatSet(id, options.data, print.format));
    return ExitCode::Success;
}

// Subscribes through a ChannelCache, so that repeated pushes of an unchanged
// value print nothing. A get of each channel first proves that it exists and
// gives its current value; it is asked for after the subscription, so any
// change made after that value was read is also seen.
int runWatch(Connection& connection, const Options& options, const Printer& print,
             LineBudget& budget) {
    auto cache = std::make_shared<ChannelCache>();
    cache->addReceiver(
        makeReceiver<ChannelCache::Change>([&print, &budget](const ChannelCache::Change& change) {
            if (!budget.exhausted()) {
                print.line(formatChange(change, print.format));
                ++budget.used;
            }
        }));
    for (std::uint32_t id : options.channels) {
        connection.session().addSubscription(id, cache);
    }
    std::vector<GetOutcome> outcomes;
    if (const Failure failure = connection.get(options.channels, outcomes, "watch")) {
        return print.finish(failure);
    }
    int code = ExitCode::Success;
    for (std::size_t i = 0; i < outcomes.size(); ++i) {
        if (!outcomes[i].getSuccess()) {
            print.refused("watch", options.channels[i], outcomes[i].getReasonCode());
            code = ExitCode::OperationFailed;
        }
    }
    if (code != ExitCode::Success) {
        return code;
    }
    return print.finish(
        connection.stream([&budget] { return budget.exhausted(); }, options.duration));
}

int runPush(Connection& connection, const Options& options, const Printer& print,
            LineBudget& budget) {
    const auto printer = makeReceiver<GetOutcome>([&print, &budget](const GetOutcome& value) {
        if (value.getSuccess() && !budget.exhausted()) {
            print.line(formatValue("push", value, print.format));
            ++budget.used;
        }
    });
    if (options.channels.empty()) {
        connection.session().addPushReceiver(printer);  // every channel
    }
    for (std::uint32_t id : options.channels) {
        connection.session().addPushSubscription(id, printer);
    }
    return print.finish(
        connection.stream([&budget] { return budget.exhausted(); }, options.duration));
}

}  // namespace

int runCommand(const Options& options, std::ostream& out, std::ostream& err) {
    using Command = Options::Command;
    const Printer print{out, err, options.json ? Format::Json : Format::Plain};
    LineBudget budget{options.count};
    if (options.passwordOnCommandLine) {
        err << "chanlink: warning: other users of this machine can read --password; use "
               "--password-file or CHANLINK_PASSWORD\n";
    }
    if (options.tls && options.insecure) {
        err << "chanlink: warning: --insecure: the device's certificate is not checked\n";
    }
    if (!options.tls && !tool::isLoopback(options.host)) {
        err << "chanlink: warning: sending the password unencrypted to " << options.host
#ifdef CHANLINK_WITH_TLS
            << "; use --tls\n";
#else
            << " (this chanlink is built without TLS)\n";
#endif
    }
    err << std::flush;
    Connection connection(options);
    if (const Failure failure = connection.open()) {
        return print.finish(failure);
    }
    switch (options.command) {
        case Command::Get:
            return runGet(connection, options, print);
        case Command::Set:
            return runSet(connection, options, print);
        case Command::Watch:
            return runWatch(connection, options, print, budget);
        case Command::Push:
            return runPush(connection, options, print, budget);
    }
    return ExitCode::UsageError;
}

}  // namespace cli

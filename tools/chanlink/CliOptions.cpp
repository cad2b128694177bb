#include "CliOptions.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <cstddef>
#include <limits>
#include <map>
#include <utility>

#include "ToolCommandLine.h"
#include "ToolSecrets.h"

#ifndef CHANLINK_VERSION
#define CHANLINK_VERSION "unknown"
#endif

namespace cli {

namespace {

// A channel id: decimal, or hexadecimal after 0x (or 0X), up to 2^32 - 1.
// Nothing else is accepted: no sign, no spaces, no trailing characters.
std::optional<std::uint32_t> parseChannelId(const std::string& text) {
    const auto value = tool::number(text, 0, std::numeric_limits<std::uint32_t>::max());
    return value ? std::optional<std::uint32_t>(static_cast<std::uint32_t>(*value)) : std::nullopt;
}

// Bytes written as hexadecimal digit pairs ("0A0B0C0D"), optionally after 0x;
// spaces, ':' and '-' between pairs are ignored ("0a:0b", "0A 0B"). Empty
// when there are no digits, an odd number of them, or another character.
std::optional<std::vector<unsigned char>> parseHexData(const std::string& text) {
    auto bytes = tool::hexBytes(text.substr(tool::hasHexPrefix(text) ? 2 : 0), " :-");
    if (!bytes || bytes->empty()) {
        return std::nullopt;
    }
    return bytes;
}

// text split where its leading characters from numberCharacters end: the
// number and its unit ("1.5s" is "1.5" and "s").
std::pair<std::string, std::string> splitUnit(const std::string& text,
                                              const char* numberCharacters) {
    const std::size_t end = std::min(text.find_first_not_of(numberCharacters), text.size());
    return {text.substr(0, end), text.substr(end)};
}

// A positive duration: a decimal number, optionally with a fraction, and a
// unit ms, s or m; seconds when there is none ("5", "500ms", "2s", "1.5s").
// Rounded down to whole milliseconds; empty when that is zero, when it is
// longer than a billion seconds, or when the text is anything else.
std::optional<std::chrono::milliseconds> parseDuration(const std::string& text) {
    const auto [number, unit] = splitUnit(text, "0123456789.");
    static const std::map<std::string, std::uint64_t> unitMilliseconds = {
        {"", 1000}, {"ms", 1}, {"s", 1000}, {"m", 60000}};
    const auto found = unitMilliseconds.find(unit);
    const std::size_t point = number.find('.');
    if (found == unitMilliseconds.end() || number.empty() || number == "." ||
        std::count(number.begin(), number.end(), '.') > 1) {
        return std::nullopt;
    }
    constexpr std::uint64_t maxMilliseconds = 1000ULL * 1000 * 1000 * 1000;
    const std::string whole = number.substr(0, point);
    const std::string fraction = point == std::string::npos ? "" : number.substr(point + 1);
    const auto wholeValue = whole.empty() ? std::optional<std::uint64_t>(0)
                                          : tool::decimalNumber(whole, 0, maxMilliseconds);
    if (!wholeValue || *wholeValue > maxMilliseconds / found->second) {
        return std::nullopt;
    }
    std::uint64_t milliseconds = *wholeValue * found->second;
    // The fraction adds at most one unit; digits below a millisecond are dropped.
    std::uint64_t scale = found->second;
    for (char digit : fraction) {
        milliseconds += static_cast<std::uint64_t>(digit - '0') * scale / 10;
        scale /= 10;
    }
    if (milliseconds == 0 || milliseconds > maxMilliseconds) {
        return std::nullopt;
    }
    return std::chrono::milliseconds(static_cast<std::chrono::milliseconds::rep>(milliseconds));
}

// A size in bytes, with an optional K, M or G suffix (powers of 1024; "KiB",
// "MiB" and "GiB" too): "65536", "64K", "16MiB". At least 1.
std::optional<std::size_t> parseSize(const std::string& text) {
    const auto [digits, suffix] = splitUnit(text, "0123456789");
    static const std::map<std::string, std::size_t> units = {
        {"", 1},          {"K", 1 << 10}, {"KiB", 1 << 10}, {"M", 1 << 20},
        {"MiB", 1 << 20}, {"G", 1 << 30}, {"GiB", 1 << 30}};
    const auto unit = units.find(suffix);
    if (unit == units.end()) {
        return std::nullopt;
    }
    const auto number =
        tool::decimalNumber(digits, 1, std::numeric_limits<std::size_t>::max() / unit->second);
    if (!number) {
        return std::nullopt;
    }
    return static_cast<std::size_t>(*number) * unit->second;
}

constexpr const char* Footer =
    "IDs are decimal or 0x-hexadecimal; HEXDATA is byte pairs such as 0A0B0C0D.\n"
    "Exit codes: 0 done, 1 operation refused, 2 usage, 3 connection failed,\n"
    "4 login refused, 5 timed out, 130 interrupted.";

constexpr const char* ChannelIdMeaning = "a channel id (decimal or 0x-hexadecimal)";

// The ID operands of get, watch and push.
void addChannelIds(CLI::App& command, std::vector<std::uint32_t>& channels, bool required) {
    command
        .add_option_function<std::vector<std::string>>(
            "ID",
            [&channels](const std::vector<std::string>& texts) {
                for (const std::string& text : texts) {
                    channels.push_back(
                        tool::parsedOrThrow("ID", parseChannelId, text, ChannelIdMeaning));
                }
            },
            "channel ids")
        ->type_name("")
        ->required(required);
}

// Calls subcommands commands, and shows the command as needed: CLI11
// brackets it because the callback below, not CLI11, checks for it.
class Formatter : public CLI::Formatter {
public:
    Formatter() { label("SUBCOMMAND", "COMMAND"); }
    std::string make_usage(const CLI::App* app, std::string name) const override {
        std::string usage = CLI::Formatter::make_usage(app, std::move(name));
        const std::size_t at = usage.find("[COMMAND]");
        return at == std::string::npos ? usage : usage.replace(at, 9, "COMMAND");
    }
};

}  // namespace

ParseResult parseArguments(const std::vector<std::string>& arguments, std::ostream& out,
                           std::ostream& err) {
    using Command = Options::Command;
    Options options;
    CLI::App app("Gets, sets, watches and pushes channel values of a chanlink device.", "chanlink");
    app.set_version_flag("--version", std::string("chanlink ") + CHANLINK_VERSION);
    app.footer(Footer);
    app.formatter(std::make_shared<Formatter>());

    const auto port = [](const std::string& text) { return tool::portNumber(text, 1); };
    const std::string duration = "a duration (e.g. 5, 500ms, 2s)";
    tool::addParsed(app, "--host", options.host, tool::nonEmpty, "a host name or address",
                    "device address (default localhost)")
        ->type_name("HOST");
    tool::addParsed(app, "--port", options.port, port, "a port (1 to 65535)",
                    std::string("device port (default ") + tool::DefaultPort + ")")
        ->type_name("PORT");
    app.add_option("--user", options.user, "login user (default admin)")->type_name("USER");
    app.add_option("--password", options.password,
                   "login password (default $CHANLINK_PASSWORD, else secret); other local "
                   "users can read it here, prefer --password-file")
        ->envname("CHANLINK_PASSWORD")
        ->type_name("PASS");
    std::string passwordFile;
    app.add_option("--password-file", passwordFile,
                   "read the login password from the first line of FILE")
        ->type_name("FILE");
#ifdef CHANLINK_WITH_TLS
    app.add_flag("--tls", options.tls, "connect over TLS, checking the device's certificate");
    app.add_option("--ca", options.caFile,
                   "--tls: trust the CA certificates in FILE (default: the system's)")
        ->type_name("FILE");
    CLI::Option* certificate =
        app.add_option("--cert", options.certificateFile, "--tls: client certificate (PEM)")
            ->type_name("FILE");
    CLI::Option* key =
        app.add_option("--key", options.keyFile, "--tls: key of --cert (PEM)")->type_name("FILE");
    certificate->needs(key);
    key->needs(certificate);
    app.add_flag("--insecure", options.insecure,
                 "--tls: do not check the device's certificate (tests only)");
#endif
    tool::addParsed(app, "--timeout", options.timeout, parseDuration, duration,
                    "limit for each wait (default 5s; e.g. 500ms, 2s, 1m)")
        ->type_name("DURATION");
    tool::addParsed(app, "--max-frame", options.maxFrame, parseSize,
                    "a size (e.g. 65536, 64K, 16M)",
                    "close the connection when the device sends a larger frame (default 16M)")
        ->type_name("SIZE");
    tool::addParsed(app, "--count", options.count,
                    tool::decimalAs<std::uint64_t>(1, std::numeric_limits<std::uint64_t>::max()),
                    "a positive count", "watch, push: stop after N lines")
        ->type_name("N");
    tool::addParsed(app, "--seconds", options.duration, parseDuration, duration,
                    "watch, push: stop after this long")
        ->type_name("DURATION");
    app.add_flag("--json", options.json, "one JSON object per line");
    tool::addParsed(app, "--capture", options.captureFile, tool::nonEmpty, "a file name",
                    "record the connection into FILE, a pcap file (password masked)")
        ->type_name("FILE");
    app.add_flag("--capture-credentials", options.captureCredentials,
                 "with --capture: record the password as sent");

    const std::pair<Command, const char*> commands[] = {{Command::Get, "get"},
                                                        {Command::Set, "set"},
                                                        {Command::Watch, "watch"},
                                                        {Command::Push, "push"}};
    CLI::App* get = app.add_subcommand("get", "print the values of the channels");
    CLI::App* set = app.add_subcommand("set", "write the bytes to the channel");
    CLI::App* watch =
        app.add_subcommand("watch", "subscribe and print each change as previous -> new");
    CLI::App* push = app.add_subcommand(
        "push", "switch log push on and print the values pushed, of the channels or of all");
    addChannelIds(*get, options.channels, true);
    addChannelIds(*watch, options.channels, true);
    addChannelIds(*push, options.channels, false);
    std::uint32_t setId = 0;
    tool::addParsed(*set, "ID", setId, parseChannelId, ChannelIdMeaning, "channel id")
        ->required()
        ->type_name("");
    tool::addParsed(*set, "HEXDATA", options.data, parseHexData,
                    "hexadecimal byte pairs (e.g. 0A0B)", "bytes to write")
        ->required()
        ->type_name("");
    for (CLI::App* command : {get, set, watch, push}) {
        // Options may follow the command and its operands.
        command->fallthrough()->group("Commands");
    }
    // Extras are allowed only so that they are reported here, after a
    // missing or unknown command.
    app.allow_extras();
    app.callback([&] {
        const std::vector<std::string> rest = app.remaining(true);
        const bool named = !rest.empty() && rest.front().rfind('-', 0) != 0;
        if (app.get_subcommands().empty() && (rest.empty() || named)) {
            throw CLI::ValidationError((named ? "unknown command '" + rest.front() + "'"
                                              : std::string("no command given")) +
                                       " (get, set, watch or push)");
        }
        if (!rest.empty()) {
            throw CLI::ExtrasError(rest);
        }
        for (const auto& [command, name] : commands) {
            if (app.got_subcommand(name)) {
                options.command = command;
            }
        }
        if (options.command == Command::Set) {
            options.channels = {setId};
        }
        if (!options.tls &&
            (!options.caFile.empty() || !options.certificateFile.empty() || options.insecure)) {
            throw CLI::ValidationError("--ca, --cert, --key and --insecure need --tls");
        }
        // Others could read --password even when the file's password wins.
        options.passwordOnCommandLine = tool::hasOption(arguments, "--password");
        std::string error;
        if (!passwordFile.empty() &&
            !tool::readPasswordFile(passwordFile, options.password, error)) {
            throw CLI::ValidationError(error);
        }
        const bool streams = options.command == Command::Watch || options.command == Command::Push;
        if (!streams && (options.count || options.duration)) {
            throw CLI::ValidationError(options.count ? "--count" : "--seconds",
                                       "applies to watch and push only");
        }
    });
    if (const auto exitCode = tool::parseCommandLine(app, arguments, out, err)) {
        return ParseResult{std::nullopt, *exitCode};
    }
    return ParseResult{options, 0};
}

}  // namespace cli

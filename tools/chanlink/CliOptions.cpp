#include "CliOptions.h"

#include <cstddef>
#include <limits>
#include <map>

namespace cli {

namespace {

bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

int hexDigitValue(char c) {
    if (isDigit(c)) {
        return c - '0';
    }
    if (c >= 'a' && c <= 'f') {
        return c - 'a' + 10;
    }
    if (c >= 'A' && c <= 'F') {
        return c - 'A' + 10;
    }
    return -1;
}

bool hasHexPrefix(const std::string& text) {
    return text.size() >= 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X');
}

// Digits in the given base, accumulated without ever exceeding limit.
std::optional<std::uint64_t> parseUnsigned(const std::string& digits, unsigned int base,
                                           std::uint64_t limit) {
    if (digits.empty()) {
        return std::nullopt;
    }
    std::uint64_t value = 0;
    for (char c : digits) {
        const int digit = hexDigitValue(c);
        if (digit < 0 || static_cast<unsigned int>(digit) >= base) {
            return std::nullopt;
        }
        if (value > (limit - static_cast<std::uint64_t>(digit)) / base) {
            return std::nullopt;
        }
        value = value * base + static_cast<std::uint64_t>(digit);
    }
    return value;
}

enum class Takes { Nothing, Value };

const std::map<std::string, Takes>& knownOptions() {
    static const std::map<std::string, Takes> options = {{"--host", Takes::Value},
                                                         {"--port", Takes::Value},
                                                         {"--user", Takes::Value},
                                                         {"--password", Takes::Value},
                                                         {"--timeout", Takes::Value},
                                                         {"--count", Takes::Value},
                                                         {"--seconds", Takes::Value},
                                                         {"--json", Takes::Nothing},
                                                         {"--help", Takes::Nothing},
                                                         {"-h", Takes::Nothing},
                                                         {"--version", Takes::Nothing},
                                                         {"--capture", Takes::Value},
                                                         {"--capture-credentials", Takes::Nothing}};
    return options;
}

ParseResult fail(std::string error) {
    return ParseResult{std::nullopt, std::move(error)};
}

// Stores one option's value; an error text, empty when it was fine.
std::string applyOption(Options& options, const std::string& name, const std::string& value) {
    if (name == "--host") {
        if (value.empty()) {
            return "--host needs a host name or address";
        }
        options.host = value;
    } else if (name == "--port") {
        const auto port = parsePort(value);
        if (!port) {
            return "invalid port '" + value + "' (1 to 65535)";
        }
        options.port = *port;
    } else if (name == "--user") {
        options.user = value;
    } else if (name == "--password") {
        options.password = value;
    } else if (name == "--timeout" || name == "--seconds") {
        const auto duration = parseDuration(value);
        if (!duration) {
            return "invalid duration '" + value + "' for " + name + " (e.g. 5, 500ms, 2s)";
        }
        if (name == "--timeout") {
            options.timeout = *duration;
        } else {
            options.duration = *duration;
        }
    } else if (name == "--count") {
        const auto count = parseCount(value);
        if (!count) {
            return "invalid count '" + value + "' (a positive number)";
        }
        options.count = *count;
    } else if (name == "--json") {
        options.json = true;
    } else if (name == "--capture") {
        if (value.empty()) {
            return "--capture needs a file name";
        }
        options.captureFile = value;
    } else if (name == "--capture-credentials") {
        options.captureCredentials = true;
    } else if (name == "--help" || name == "-h") {
        options.command = Options::Command::Help;
    } else if (name == "--version") {
        options.command = Options::Command::Version;
    }
    return {};
}

// Checks the operands against the command and stores them.
std::string applyOperands(Options& options, const std::string& command,
                          const std::vector<std::string>& operands) {
    using Command = Options::Command;
    static const std::map<std::string, Command> commands = {{"get", Command::Get},
                                                            {"set", Command::Set},
                                                            {"watch", Command::Watch},
                                                            {"push", Command::Push}};
    const auto found = commands.find(command);
    if (found == commands.end()) {
        return "unknown command '" + command + "' (get, set, watch or push)";
    }
    options.command = found->second;

    std::size_t idCount = operands.size();
    if (options.command == Command::Set) {
        if (operands.size() != 2) {
            return "set needs a channel id and the data: set ID HEXDATA";
        }
        const auto data = parseHexData(operands[1]);
        if (!data) {
            return "invalid data '" + operands[1] + "' (hexadecimal byte pairs, e.g. 0A0B)";
        }
        options.data = *data;
        idCount = 1;
    }
    if (operands.empty() && options.command != Command::Push) {
        return command + " needs at least one channel id";
    }
    for (std::size_t i = 0; i < idCount; ++i) {
        const auto id = parseChannelId(operands[i]);
        if (!id) {
            return "invalid channel id '" + operands[i] + "' (decimal or 0x-hexadecimal)";
        }
        options.channels.push_back(*id);
    }
    const bool streams = options.command == Command::Watch || options.command == Command::Push;
    if (!streams && (options.count || options.duration)) {
        return std::string(options.count ? "--count" : "--seconds") +
               " applies to watch and push only";
    }
    return {};
}

}  // namespace

ParseResult parseArguments(const std::vector<std::string>& arguments) {
    Options options;
    std::vector<std::string> positional;
    bool optionsEnded = false;
    bool helpOrVersion = false;

    for (std::size_t i = 0; i < arguments.size(); ++i) {
        const std::string& argument = arguments[i];
        if (optionsEnded || argument.empty() || argument[0] != '-' || argument == "-") {
            positional.push_back(argument);
            continue;
        }
        if (argument == "--") {
            optionsEnded = true;
            continue;
        }
        const std::size_t equals = argument.find('=');
        const std::string name = argument.substr(0, equals);
        const auto known = knownOptions().find(name);
        if (known == knownOptions().end()) {
            return fail("unknown option '" + name + "'");
        }
        std::string value;
        if (known->second == Takes::Value) {
            if (equals != std::string::npos) {
                value = argument.substr(equals + 1);
            } else if (i + 1 < arguments.size()) {
                value = arguments[++i];
            } else {
                return fail(name + " needs a value");
            }
        } else if (equals != std::string::npos) {
            return fail(name + " takes no value");
        }
        std::string error = applyOption(options, name, value);
        if (!error.empty()) {
            return fail(std::move(error));
        }
        helpOrVersion = helpOrVersion || name == "--help" || name == "-h" || name == "--version";
    }

    // --help and --version win over everything else on the line.
    if (helpOrVersion) {
        return ParseResult{options, {}};
    }
    if (positional.empty()) {
        return fail("no command given (get, set, watch or push)");
    }
    const std::vector<std::string> operands(positional.begin() + 1, positional.end());
    std::string error = applyOperands(options, positional[0], operands);
    if (!error.empty()) {
        return fail(std::move(error));
    }
    return ParseResult{options, {}};
}

std::optional<std::uint32_t> parseChannelId(const std::string& text) {
    const bool hex = hasHexPrefix(text);
    const auto value = parseUnsigned(hex ? text.substr(2) : text, hex ? 16 : 10,
                                     std::numeric_limits<std::uint32_t>::max());
    if (!value) {
        return std::nullopt;
    }
    return static_cast<std::uint32_t>(*value);
}

std::optional<std::vector<unsigned char>> parseHexData(const std::string& text) {
    std::vector<unsigned char> bytes;
    int high = -1;
    for (std::size_t i = hasHexPrefix(text) ? 2 : 0; i < text.size(); ++i) {
        const char c = text[i];
        if (high < 0 && (c == ' ' || c == ':' || c == '-')) {
            continue;
        }
        const int digit = hexDigitValue(c);
        if (digit < 0) {
            return std::nullopt;
        }
        if (high < 0) {
            high = digit;
        } else {
            bytes.push_back(static_cast<unsigned char>(high * 16 + digit));
            high = -1;
        }
    }
    if (bytes.empty() || high >= 0) {
        return std::nullopt;
    }
    return bytes;
}

std::optional<std::chrono::milliseconds> parseDuration(const std::string& text) {
    std::size_t end = 0;
    while (end < text.size() && (isDigit(text[end]) || text[end] == '.')) {
        ++end;
    }
    const std::string number = text.substr(0, end);
    const std::string unit = text.substr(end);
    static const std::map<std::string, std::uint64_t> unitMilliseconds = {
        {"", 1000}, {"ms", 1}, {"s", 1000}, {"m", 60000}};
    const auto found = unitMilliseconds.find(unit);
    const std::size_t point = number.find('.');
    if (found == unitMilliseconds.end() || number.empty() || number == "." ||
        number.find('.', point == std::string::npos ? point : point + 1) != std::string::npos) {
        return std::nullopt;
    }
    constexpr std::uint64_t maxMilliseconds = 1000ULL * 1000 * 1000 * 1000;
    const std::string whole = number.substr(0, point);
    const std::string fraction = point == std::string::npos ? "" : number.substr(point + 1);
    const auto wholeValue =
        whole.empty() ? std::optional<std::uint64_t>(0) : parseUnsigned(whole, 10, maxMilliseconds);
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

std::optional<std::uint64_t> parseCount(const std::string& text) {
    const auto value = parseUnsigned(text, 10, std::numeric_limits<std::uint64_t>::max());
    if (!value || *value == 0) {
        return std::nullopt;
    }
    return value;
}

std::optional<std::string> parsePort(const std::string& text) {
    const auto value = parseUnsigned(text, 10, 65535);
    if (!value || *value == 0) {
        return std::nullopt;
    }
    return std::to_string(*value);
}

std::string usageText() {
    return "usage: chanlink [OPTIONS] COMMAND [ARGUMENTS]\n"
           "\n"
           "Commands:\n"
           "  get ID...           print the values of the channels\n"
           "  set ID HEXDATA      write the bytes to the channel\n"
           "  watch ID...         subscribe and print each change as previous -> new\n"
           "  push [ID...]        switch log push on and print the values pushed\n"
           "                      (of the given channels, or of every channel)\n"
           "\n"
           "Options:\n"
           "  --host HOST         device address (default localhost)\n"
           "  --port PORT         device port (default 7300)\n"
           "  --user USER         login user (default admin)\n"
           "  --password PASS     login password (default $CHANLINK_PASSWORD, else secret)\n"
           "  --timeout DURATION  limit for each wait (default 5s; e.g. 500ms, 2s, 1m)\n"
           "  --count N           watch, push: stop after N lines\n"
           "  --seconds DURATION  watch, push: stop after this long\n"
           "  --json              one JSON object per line\n"
           "  --capture FILE      record the connection into FILE (pcap; password masked)\n"
           "  --capture-credentials  leave the password readable in the capture\n"
           "  --help, --version\n"
           "\n"
           "IDs are decimal or 0x-hexadecimal; HEXDATA is byte pairs such as 0A0B0C0D.\n"
           "Exit codes: 0 done, 1 operation refused, 2 usage, 3 connection failed,\n"
           "4 login refused, 5 timed out, 130 interrupted.\n";
}

}  // namespace cli

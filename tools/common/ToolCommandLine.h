#pragma once

#include <CLI/CLI.hpp>
#include <cstdint>
#include <optional>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "ToolDefaults.h"

namespace tool {

// The value of one hexadecimal digit (either case); -1 for any other character.
int hexDigit(char c);

// Bytes written as pairs of hexadecimal digits, with any of separators
// allowed between (never inside) pairs. Empty when a character is neither,
// or the digits are odd in number; oddDigits then says which.
std::optional<std::vector<unsigned char>> hexBytes(const std::string& text,
                                                   const std::string& separators,
                                                   bool* oddDigits = nullptr);

// Whether text starts with 0x or 0X.
bool hasHexPrefix(const std::string& text);

// A decimal number from lowest to highest: digits only, no sign, no 0x.
std::optional<std::uint64_t> decimalNumber(const std::string& text, std::uint64_t lowest,
                                           std::uint64_t highest);

// The same, or hexadecimal digits (either case) after 0x or 0X.
std::optional<std::uint64_t> number(const std::string& text, std::uint64_t lowest,
                                    std::uint64_t highest);

// A parse for addParsed: decimalNumber's value as a T.
template <typename T>
auto decimalAs(std::uint64_t lowest, std::uint64_t highest) {
    return [lowest, highest](const std::string& text) -> std::optional<T> {
        const auto value = decimalNumber(text, lowest, highest);
        return value ? std::optional<T>(static_cast<T>(*value)) : std::nullopt;
    };
}

// A parse for addParsed: any text but the empty one, such as a file name.
std::optional<std::string> nonEmpty(const std::string& text);

// A TCP port from lowest to 65535, as getaddrinfo wants it ("007" is "7").
std::optional<std::string> portNumber(const std::string& text, std::uint64_t lowest);

// The value parse makes of text; when it refuses, the usage error
// "NAME: 'TEXT' is not WHAT".
template <typename Parse>
auto parsedOrThrow(const std::string& name, Parse parse, const std::string& text,
                   const std::string& what) {
    auto value = parse(text);
    if (!value) {
        throw CLI::ValidationError(name, "'" + text + "' is not " + what);
    }
    return std::move(*value);
}

// Adds an option (or, for a name without dashes, a positional) whose text
// parse turns into the value for target, as parsedOrThrow does.
template <typename Target, typename Parse>
CLI::Option* addParsed(CLI::App& app, const std::string& name, Target& target, Parse parse,
                       const std::string& what, const std::string& help) {
    return app.add_option_function<std::string>(
        name,
        [&target, parse, what, name](const std::string& text) {
            target = parsedOrThrow(name, parse, text, what);
        },
        help);
}

// Parses the arguments after the program name. Returns the exit status when
// the program is to end now: 0 after printing --help or --version to out,
// UsageStatus after printing one line "NAME: MESSAGE (see NAME --help)" to
// err. Empty when the bound options are filled in and the program goes on.
std::optional<int> parseCommandLine(CLI::App& app, std::vector<std::string> arguments,
                                    std::ostream& out, std::ostream& err);

}  // namespace tool

#include "ToolCommandLine.h"

#include <algorithm>

namespace tool {

int hexDigit(char c) {
    if (c >= '0' && c <= '9') {
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

std::optional<std::vector<unsigned char>> hexBytes(const std::string& text,
                                                   const std::string& separators, bool* oddDigits) {
    std::vector<unsigned char> bytes;
    int high = -1;
    for (const char c : text) {
        if (high < 0 && separators.find(c) != std::string::npos) {
            continue;
        }
        const int digit = hexDigit(c);
        if (digit < 0) {
            if (oddDigits != nullptr) {
                *oddDigits = high >= 0 && separators.find(c) != std::string::npos;
            }
            return std::nullopt;
        }
        if (high < 0) {
            high = digit;
        } else {
            bytes.push_back(static_cast<unsigned char>(high * 16 + digit));
            high = -1;
        }
    }
    if (oddDigits != nullptr) {
        *oddDigits = high >= 0;
    }
    if (high >= 0) {
        return std::nullopt;
    }
    return bytes;
}

namespace {

// Digits in the given base, accumulated without ever exceeding highest.
std::optional<std::uint64_t> digitsIn(unsigned int base, const std::string& digits,
                                      std::uint64_t lowest, std::uint64_t highest) {
    if (digits.empty()) {
        return std::nullopt;
    }
    std::uint64_t value = 0;
    for (char c : digits) {
        const auto digit = static_cast<std::uint64_t>(hexDigit(c));
        // Any other character's -1 turns into the largest number of all.
        if (digit >= base || digit > highest || value > (highest - digit) / base) {
            return std::nullopt;
        }
        value = value * base + digit;
    }
    if (value < lowest) {
        return std::nullopt;
    }
    return value;
}

}  // namespace

bool hasHexPrefix(const std::string& text) {
    return text.size() >= 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X');
}

std::optional<std::uint64_t> decimalNumber(const std::string& text, std::uint64_t lowest,
                                           std::uint64_t highest) {
    return digitsIn(10, text, lowest, highest);
}

std::optional<std::uint64_t> number(const std::string& text, std::uint64_t lowest,
                                    std::uint64_t highest) {
    return hasHexPrefix(text) ? digitsIn(16, text.substr(2), lowest, highest)
                              : digitsIn(10, text, lowest, highest);
}

std::optional<std::string> nonEmpty(const std::string& text) {
    return text.empty() ? std::nullopt : std::optional<std::string>(text);
}

std::optional<std::string> portNumber(const std::string& text, std::uint64_t lowest) {
    const auto value = decimalNumber(text, lowest, 65535);
    return value ? std::optional<std::string>(std::to_string(*value)) : std::nullopt;
}

std::optional<int> parseCommandLine(CLI::App& app, std::vector<std::string> arguments,
                                    std::ostream& out, std::ostream& err) {
    // CLI11 reads "--name=" as "--name" and takes the next argument as the
    // value; an empty value is meant.
    for (auto at = arguments.begin(); at != arguments.end() && *at != "--"; ++at) {
        if (at->size() > 3 && at->compare(0, 2, "--") == 0 && at->back() == '=' &&
            at->find('=') == at->size() - 1) {
            at->pop_back();
            at = arguments.insert(at + 1, std::string());
        }
    }
    // CLI11 takes the arguments last first.
    std::reverse(arguments.begin(), arguments.end());
    try {
        app.parse(arguments);
    } catch (const CLI::Success& request) {
        // --help or --version: printed to out, exit 0.
        return app.exit(request, out, err);
    } catch (const CLI::ParseError& error) {
        const std::string name = app.get_name();
        err << name << ": " << error.what() << " (see " << name << " --help)\n" << std::flush;
        return UsageStatus;
    }
    return std::nullopt;
}

}  // namespace tool

#include "support/Bytes.h"

#include <cctype>
#include <cstdio>
#include <stdexcept>

namespace testing_support {

Bytes bytes(const std::string& hex) {
    Bytes result;
    int high = -1;
    for (char c : hex) {
        if (std::isspace(static_cast<unsigned char>(c))) {
            continue;
        }
        if (!std::isxdigit(static_cast<unsigned char>(c))) {
            throw std::invalid_argument("not a hex digit in: " + hex);
        }
        const int digit = std::isdigit(static_cast<unsigned char>(c))
                              ? c - '0'
                              : std::tolower(static_cast<unsigned char>(c)) - 'a' + 10;
        if (high < 0) {
            high = digit;
        } else {
            result.push_back(static_cast<unsigned char>(high << 4 | digit));
            high = -1;
        }
    }
    if (high >= 0) {
        throw std::invalid_argument("odd number of hex digits in: " + hex);
    }
    return result;
}

std::string hex(const Bytes& value) {
    std::string result;
    char buffer[4];
    for (unsigned char b : value) {
        std::snprintf(buffer, sizeof buffer, "%02X", b);
        if (!result.empty()) {
            result += ' ';
        }
        result += buffer;
    }
    return result;
}

}  // namespace testing_support

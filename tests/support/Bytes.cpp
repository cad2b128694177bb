#include "support/Bytes.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <iterator>
#include <stdexcept>

namespace testing_support {

Bytes bytes(const std::string& hex) {
    std::string digits;
    std::copy_if(hex.begin(), hex.end(), std::back_inserter(digits),
                 [](unsigned char c) { return std::isspace(c) == 0; });
    if (digits.size() % 2 != 0 ||
        digits.find_first_not_of("0123456789ABCDEFabcdef") != digits.npos) {
        throw std::invalid_argument("not pairs of hex digits: " + hex);
    }
    Bytes result;
    for (std::size_t i = 0; i < digits.size(); i += 2) {
        result.push_back(static_cast<unsigned char>(std::stoul(digits.substr(i, 2), nullptr, 16)));
    }
    return result;
}

std::string hex(const Bytes& value) {
    std::string result;
    char buffer[4];
    for (unsigned char b : value) {
        std::snprintf(buffer, sizeof buffer, result.empty() ? "%02X" : " %02X", b);
        result += buffer;
    }
    return result;
}

}  // namespace testing_support

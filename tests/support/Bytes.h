#pragma once

#include <string>
#include <vector>

namespace testing_support {

using Bytes = std::vector<unsigned char>;

// Parses hex byte pairs, ignoring spaces: bytes("FF 01 00") gives {0xFF, 0x01, 0x00}.
Bytes bytes(const std::string& hex);

// "FF 01 00": for readable failure messages.
std::string hex(const Bytes& value);

}  // namespace testing_support

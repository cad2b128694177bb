#pragma once

#include <pybind11/pybind11.h>

#include <chrono>
#include <vector>

// Checks and converts the arguments Python code passes, with the GIL held.
// Wrong types raise TypeError and values out of range ValueError, each with
// a one-line message naming the argument.
namespace arguments {

// An int (or anything with __index__) from minimum to maximum.
unsigned long long integer(pybind11::handle value, const char* what, unsigned long long minimum,
                           unsigned long long maximum);
// A channel id: 0 to 4294967295.
unsigned int channelId(pybind11::handle value);
// bytes, bytearray, memoryview or any other buffer of bytes; not str.
std::vector<unsigned char> data(pybind11::handle value, const char* what = "data");
// Seconds as a non-negative number; math.inf waits without limit. None gives
// fallback.
std::chrono::milliseconds timeout(pybind11::handle value, std::chrono::milliseconds fallback);

}  // namespace arguments

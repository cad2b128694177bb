#pragma once

#include <chrono>
#include <istream>
#include <optional>
#include <string>
#include <vector>

#include "chanlink/server/LiveChannel.h"
#include "chanlink/server/MemoryChannelStore.h"

// One line of a channel file: a channel of the simulated device.
struct ChannelSpec {
    unsigned int id = 0;
    std::vector<unsigned char> initial;  // its size is the channel's size
    bool readOnly = false;
    enum Live { Fixed, Counter, Toggle } live = Fixed;
    std::chrono::milliseconds period{0};  // Counter and Toggle
    unsigned int bits = 0;                // Toggle: bits 0 .. bits-1 take turns
    std::string name;
};

// The channel file format, one channel per line (docs/DEVICE.md):
//
//   # id  size  initial           access  live          name
//   1     4     00000000          rw      -             setpoint
//   2     4     -                 ro      counter:200   counter
//   4     1     00                ro      toggle:300:4  status
//
// Fields are separated by blanks; '#' starts a comment; blank lines are
// skipped. The name is optional.
class ChannelTable {
public:
    // The table, or nothing with error set to "LINE: what is wrong".
    static std::optional<std::vector<ChannelSpec>> parse(std::istream& text, std::string& error);
    // The built-in table, as channel-file text.
    static const char* defaultText();
    // The table in channel-file text: a header line, then one line per
    // channel, columns aligned. defaultText() is its own format.
    static std::string format(const std::vector<ChannelSpec>& channels);

    // Adds every channel to store, and returns the live ones, not started.
    static std::vector<LiveChannel> install(const std::vector<ChannelSpec>& channels,
                                            MemoryChannelStore& store);
};

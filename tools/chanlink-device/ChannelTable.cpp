#include "ChannelTable.h"

#include <algorithm>
#include <cstdio>
#include <limits>
#include <set>
#include <sstream>

#include "ToolCommandLine.h"

namespace {

const char* const DefaultTable =
    "# id  size  initial           access  live          name\n"
    "1     4     00000000          rw      -             setpoint\n"
    "2     4     00000000          ro      counter:200   counter\n"
    "3     1     00                rw      -             mode\n"
    "4     1     00                ro      toggle:300:4  status\n"
    "5     8     6368616e6c696e6b  ro      -             name\n";

// Exactly size bytes as hexadecimal digit pairs, or "-" for zeros.
bool parseHex(const std::string& text, std::size_t size, std::vector<unsigned char>& bytes) {
    if (text == "-") {
        bytes.assign(size, 0);
        return true;
    }
    auto parsed = tool::hexBytes(text, "");
    if (text.size() != 2 * size || !parsed) {
        return false;
    }
    bytes = std::move(*parsed);
    return true;
}

// "-", "counter:MS", "toggle:MS" or "toggle:MS:BITS"; an error text or "".
std::string parseLive(const std::string& text, ChannelSpec& spec) {
    if (text == "-") {
        return "";
    }
    std::vector<std::string> parts;
    std::stringstream stream(text);
    for (std::string part; std::getline(stream, part, ':');) {
        parts.push_back(part);
    }
    const std::size_t maxBits = spec.initial.size() * 8;
    std::optional<std::uint64_t> bits = maxBits;
    if (parts.size() == 2 && parts[0] == "counter") {
        spec.live = ChannelSpec::Counter;
    } else if ((parts.size() == 2 || parts.size() == 3) && parts[0] == "toggle") {
        spec.live = ChannelSpec::Toggle;
        if (parts.size() == 3) {
            bits = tool::number(parts[2], 1, maxBits);
        }
        if (!bits) {
            return "toggle bits must be 1 to " + std::to_string(maxBits) + " (8 per byte)";
        }
    } else {
        return "live behaviour must be -, counter:MS or toggle:MS[:BITS], not '" + text + "'";
    }
    const auto period = tool::number(parts[1], 1, 86400000);
    if (!period) {
        return "period must be 1 to 86400000 milliseconds, not '" + parts[1] + "'";
    }
    spec.period = std::chrono::milliseconds(*period);
    spec.bits = spec.live == ChannelSpec::Toggle ? static_cast<unsigned int>(*bits) : 0;
    return "";
}

// One channel from its fields; an error text or "".
std::string parseLine(const std::vector<std::string>& fields, ChannelSpec& spec) {
    if (fields.size() < 5 || fields.size() > 6) {
        return "expected: id size initial access live [name]";
    }
    const auto id = tool::number(fields[0], 0, std::numeric_limits<unsigned int>::max());
    if (!id) {
        return "id must be a number from 0 to 4294967295, not '" + fields[0] + "'";
    }
    const auto size = tool::number(fields[1], 1, MemoryChannelStore::MaxChannelSize);
    if (!size) {
        return "size must be 1 to 65535 bytes, not '" + fields[1] + "'";
    }
    spec.id = static_cast<unsigned int>(*id);
    if (!parseHex(fields[2], *size, spec.initial)) {
        return "initial value must be - or exactly " + std::to_string(2 * *size) +
               " hex digits, not '" + fields[2] + "'";
    }
    if (fields[3] != "rw" && fields[3] != "ro") {
        return "access must be rw or ro, not '" + fields[3] + "'";
    }
    spec.readOnly = fields[3] == "ro";
    spec.name = fields.size() == 6 ? fields[5] : std::string();
    return parseLive(fields[4], spec);
}

std::string toHex(const std::vector<unsigned char>& bytes) {
    std::string text;
    char digits[3];
    for (unsigned char byte : bytes) {
        std::snprintf(digits, sizeof digits, "%02x", byte);
        text += digits;
    }
    return text;
}

}  // namespace

std::optional<std::vector<ChannelSpec>> ChannelTable::parse(std::istream& text,
                                                            std::string& error) {
    std::vector<ChannelSpec> channels;
    std::set<unsigned int> ids;
    std::string line;
    for (int number = 1; std::getline(text, line); ++number) {
        line = line.substr(0, line.find('#'));
        std::istringstream words(line);
        std::vector<std::string> fields;
        for (std::string word; words >> word;) {
            fields.push_back(word);
        }
        if (fields.empty()) {
            continue;
        }
        ChannelSpec spec;
        std::string problem = parseLine(fields, spec);
        if (problem.empty() && !ids.insert(spec.id).second) {
            problem = "channel " + std::to_string(spec.id) + " is listed twice";
        }
        if (!problem.empty()) {
            error = std::to_string(number) + ": " + problem;
            return std::nullopt;
        }
        channels.push_back(std::move(spec));
    }
    if (text.bad()) {
        error = "cannot be read";
        return std::nullopt;
    }
    return channels;
}

const char* ChannelTable::defaultText() {
    return DefaultTable;
}

std::string ChannelTable::format(const std::vector<ChannelSpec>& channels) {
    std::vector<std::vector<std::string>> rows{
        {"# id", "size", "initial", "access", "live", "name"}};
    for (const ChannelSpec& spec : channels) {
        std::string live = "-";
        if (spec.live == ChannelSpec::Counter) {
            live = "counter:" + std::to_string(spec.period.count());
        } else if (spec.live == ChannelSpec::Toggle) {
            live =
                "toggle:" + std::to_string(spec.period.count()) + ":" + std::to_string(spec.bits);
        }
        rows.push_back({std::to_string(spec.id), std::to_string(spec.initial.size()),
                        toHex(spec.initial), spec.readOnly ? "ro" : "rw", live, spec.name});
    }
    // Columns aligned two blanks apart, as a person would write the file.
    std::vector<std::size_t> widths(rows[0].size(), 0);
    for (const auto& row : rows) {
        for (std::size_t i = 0; i < row.size(); ++i) {
            widths[i] = std::max(widths[i], row[i].size());
        }
    }
    std::string text;
    for (const auto& row : rows) {
        std::string line;
        for (std::size_t i = 0; i < row.size(); ++i) {
            line += row[i];
            if (i + 1 < row.size()) {
                line += std::string(widths[i] - row[i].size() + 2, ' ');
            }
        }
        line.erase(line.find_last_not_of(' ') + 1);
        text += line + "\n";
    }
    return text;
}

std::vector<LiveChannel> ChannelTable::install(const std::vector<ChannelSpec>& channels,
                                               MemoryChannelStore& store) {
    std::vector<LiveChannel> live;
    for (const ChannelSpec& spec : channels) {
        store.addChannel(spec.id, spec.initial, spec.readOnly, spec.name);
        if (spec.live == ChannelSpec::Counter) {
            live.emplace_back(spec.id, LiveChannel::Counter, spec.period);
        } else if (spec.live == ChannelSpec::Toggle) {
            live.emplace_back(spec.id, LiveChannel::Toggle, spec.period, spec.bits);
        }
    }
    return live;
}

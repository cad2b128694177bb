#include "CliOutput.h"

#include <cstddef>
#include <cstdio>

#include "chanlink/messages/ReasonCode.h"

namespace cli {

namespace {

// Length of the valid UTF-8 sequence starting at text[i], or 0 if there is none.
std::size_t utf8SequenceLength(const std::string& text, std::size_t i) {
    const auto byte = [&](std::size_t at) { return static_cast<unsigned char>(text[at]); };
    const unsigned char lead = byte(i);
    std::size_t length = 0;
    unsigned int lowest = 0;
    if (lead >= 0xC2 && lead <= 0xDF) {
        length = 2;
        lowest = 0x80;
    } else if (lead >= 0xE0 && lead <= 0xEF) {
        length = 3;
        lowest = 0x800;
    } else if (lead >= 0xF0 && lead <= 0xF4) {
        length = 4;
        lowest = 0x10000;
    } else {
        return 0;
    }
    if (i + length > text.size()) {
        return 0;
    }
    unsigned int codePoint = lead & (0x3FU >> (length - 1));
    for (std::size_t k = 1; k < length; ++k) {
        if ((byte(i + k) & 0xC0) != 0x80) {
            return 0;
        }
        codePoint = (codePoint << 6) | (byte(i + k) & 0x3FU);
    }
    const bool surrogate = codePoint >= 0xD800 && codePoint <= 0xDFFF;
    if (codePoint < lowest || codePoint > 0x10FFFF || surrogate) {
        return 0;
    }
    return length;
}

std::string jsonHexOrNull(const ChannelCache::Value& value, bool header) {
    if (!value) {
        return "null";
    }
    return jsonString(hexBytes(header ? value->getHeader() : value->getData()));
}

}  // namespace

std::string hexBytes(const std::vector<unsigned char>& bytes) {
    static const char digits[] = "0123456789ABCDEF";
    std::string text;
    text.reserve(bytes.size() * 2);
    for (unsigned char b : bytes) {
        text += digits[b >> 4];
        text += digits[b & 0x0F];
    }
    return text;
}

std::string jsonString(const std::string& text) {
    std::string out = "\"";
    for (std::size_t i = 0; i < text.size();) {
        const auto c = static_cast<unsigned char>(text[i]);
        if (c >= 0x80) {
            const std::size_t length = utf8SequenceLength(text, i);
            out += length > 0 ? text.substr(i, length) : "\\ufffd";
            i += length > 0 ? length : 1;
            continue;
        }
        switch (c) {
            case '"':
                out += "\\\"";
                break;
            case '\\':
                out += "\\\\";
                break;
            case '\n':
                out += "\\n";
                break;
            case '\r':
                out += "\\r";
                break;
            case '\t':
                out += "\\t";
                break;
            case '\b':
                out += "\\b";
                break;
            case '\f':
                out += "\\f";
                break;
            default:
                if (c < 0x20 || c == 0x7F) {
                    char escaped[8];
                    std::snprintf(escaped, sizeof escaped, "\\u%04x", c);
                    out += escaped;
                } else {
                    out += static_cast<char>(c);
                }
        }
        ++i;
    }
    return out + "\"";
}

std::string describeDuration(std::chrono::milliseconds duration) {
    const auto count = duration.count();
    if (count % 1000 == 0) {
        return std::to_string(count / 1000) + "s";
    }
    return std::to_string(count) + "ms";
}

std::string reasonText(unsigned char reasonCode) {
    const char* name = ReasonCode::name(reasonCode);
    const std::string description = ReasonCode::describe(reasonCode);
    if (name == nullptr) {
        return "reason " + std::to_string(reasonCode) + " (" + description + ")";
    }
    return std::string(name) + " (" + description + ")";
}

std::string failureMessage(const std::string& command, std::uint32_t channelId,
                           unsigned char reasonCode) {
    return command + " " + std::to_string(channelId) +
           (ReasonCode::madeLocally(reasonCode) ? " failed: " : " refused: ") +
           reasonText(reasonCode);
}

std::string formatValue(const std::string& command, const GetOutcome& outcome, Format format) {
    const std::string channel = std::to_string(outcome.getChannelId());
    if (format == Format::Plain) {
        return channel + " " + hexBytes(outcome.getData());
    }
    return "{\"command\":" + jsonString(command) + ",\"channel\":" + channel +
           (command == "get" ? ",\"ok\":true" : "") +
           ",\"header\":" + jsonString(hexBytes(outcome.getHeader())) +
           ",\"data\":" + jsonString(hexBytes(outcome.getData())) + "}";
}

std::string formatSet(std::uint32_t channelId, const std::vector<unsigned char>& data,
                      Format format) {
    const std::string channel = std::to_string(channelId);
    if (format == Format::Plain) {
        return channel + " set to " + hexBytes(data);
    }
    return "{\"command\":\"set\",\"channel\":" + channel +
           ",\"ok\":true,\"data\":" + jsonString(hexBytes(data)) + "}";
}

std::string formatFailure(const std::string& command, std::uint32_t channelId,
                          unsigned char reasonCode) {
    const char* name = ReasonCode::name(reasonCode);
    return "{\"command\":" + jsonString(command) + ",\"channel\":" + std::to_string(channelId) +
           ",\"ok\":false,\"reason\":" + std::to_string(reasonCode) +
           ",\"reasonName\":" + (name != nullptr ? jsonString(name) : "null") +
           ",\"description\":" + jsonString(ReasonCode::describe(reasonCode)) + "}";
}

std::string formatChange(const ChannelCache::Change& change, Format format) {
    const ChannelCache::Value& previous = change.first;
    const ChannelCache::Value& current = change.second;
    const ChannelCache::Value& named = current ? current : previous;
    const std::string channel = named ? std::to_string(named->getChannelId()) : "?";
    if (format == Format::Plain) {
        const std::string now = current ? hexBytes(current->getData()) : "-";
        return previous ? channel + " " + hexBytes(previous->getData()) + " -> " + now
                        : channel + " " + now;
    }
    return "{\"command\":\"watch\",\"channel\":" + (named ? channel : "null") +
           ",\"previous\":" + jsonHexOrNull(previous, false) +
           ",\"header\":" + jsonHexOrNull(current, true) +
           ",\"data\":" + jsonHexOrNull(current, false) + "}";
}

}  // namespace cli

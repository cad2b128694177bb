#include "CliOutput.h"

#include <nlohmann/json.hpp>

#include "chanlink/messages/ReasonCode.h"

namespace cli {

namespace {

using Json = nlohmann::ordered_json;

// One line: the members in the order they were added.
std::string line(const Json& object) {
    return object.dump(-1, ' ', false, Json::error_handler_t::replace);
}

Json hexOrNull(const ChannelCache::Value& value, bool header) {
    if (!value) {
        return nullptr;
    }
    return hexBytes(header ? value->getHeader() : value->getData());
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

std::string describeDuration(std::chrono::milliseconds duration) {
    const auto count = duration.count();
    if (count % 1000 == 0) {
        return std::to_string(count / 1000) + "s";
    }
    return std::to_string(count) + "ms";
}

std::string reasonText(unsigned char reasonCode) {
    const char* name = ReasonCode::name(reasonCode);
    return (name != nullptr ? std::string(name) : "reason " + std::to_string(reasonCode)) + " (" +
           ReasonCode::describe(reasonCode) + ")";
}

std::string failureMessage(const std::string& command, std::uint32_t channelId,
                           unsigned char reasonCode) {
    return command + " " + std::to_string(channelId) +
           (ReasonCode::madeLocally(reasonCode) ? " failed: " : " refused: ") +
           reasonText(reasonCode);
}

std::string formatValue(const std::string& command, const GetOutcome& outcome, Format format) {
    if (format == Format::Plain) {
        return std::to_string(outcome.getChannelId()) + " " + hexBytes(outcome.getData());
    }
    Json object = {{"command", command}, {"channel", outcome.getChannelId()}};
    if (command == "get") {
        object["ok"] = true;
    }
    object["header"] = hexBytes(outcome.getHeader());
    object["data"] = hexBytes(outcome.getData());
    return line(object);
}

std::string formatSet(std::uint32_t channelId, const std::vector<unsigned char>& data,
                      Format format) {
    if (format == Format::Plain) {
        return std::to_string(channelId) + " set to " + hexBytes(data);
    }
    return line(
        {{"command", "set"}, {"channel", channelId}, {"ok", true}, {"data", hexBytes(data)}});
}

std::string formatFailure(const std::string& command, std::uint32_t channelId,
                          unsigned char reasonCode) {
    const char* name = ReasonCode::name(reasonCode);
    return line({{"command", command},
                 {"channel", channelId},
                 {"ok", false},
                 {"reason", reasonCode},
                 {"reasonName", name != nullptr ? Json(name) : Json(nullptr)},
                 {"description", ReasonCode::describe(reasonCode)}});
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
    return line({{"command", "watch"},
                 {"channel", named ? Json(named->getChannelId()) : Json(nullptr)},
                 {"previous", hexOrNull(previous, false)},
                 {"header", hexOrNull(current, true)},
                 {"data", hexOrNull(current, false)}});
}

}  // namespace cli

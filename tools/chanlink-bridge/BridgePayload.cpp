#include "BridgePayload.h"

#include <ctime>
#include <nlohmann/json.hpp>

#include "ToolCommandLine.h"
#include "chanlink/messages/ChannelValue.h"
#include "chanlink/messages/ReasonCode.h"

namespace BridgePayload {

namespace {

// The most data a set can carry: its length field is 16 bits.
constexpr std::size_t MaxSetBytes = 65535;

std::optional<std::vector<unsigned char>> parseHex(const std::string& text, std::string& error) {
    bool oddDigits = false;
    const auto parsed = tool::hexBytes(text, " \t\n\r", &oddDigits);
    if (!parsed) {
        error = oddDigits ? "hex data must have an even number of digits, two per byte"
                          : "payload must be hex digits or {\"data\":\"HEX\"}";
        return std::nullopt;
    }
    const std::vector<unsigned char>& bytes = *parsed;
    if (bytes.empty()) {
        error = "payload holds no data";
        return std::nullopt;
    }
    if (bytes.size() > MaxSetBytes) {
        error = "data longer than 65535 bytes";
        return std::nullopt;
    }
    return bytes;
}

}  // namespace

std::string toHex(const std::vector<unsigned char>& bytes) {
    static const char digits[] = "0123456789ABCDEF";
    std::string text;
    text.reserve(bytes.size() * 2);
    for (unsigned char byte : bytes) {
        text += digits[byte >> 4];
        text += digits[byte & 0x0F];
    }
    return text;
}

std::string timestamp(std::chrono::system_clock::time_point time) {
    const auto sinceEpoch =
        std::chrono::duration_cast<std::chrono::milliseconds>(time.time_since_epoch());
    const std::time_t seconds = static_cast<std::time_t>(sinceEpoch.count() / 1000);
    std::tm utc{};
    ::gmtime_r(&seconds, &utc);
    char text[32];
    const std::size_t length = std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S", &utc);
    char millis[8];
    std::snprintf(millis, sizeof millis, ".%03dZ", static_cast<int>(sinceEpoch.count() % 1000));
    return std::string(text, length) + millis;
}

std::string value(const ChannelValue& value, std::chrono::system_clock::time_point received) {
    // Keys in alphabetical order, as nlohmann::json writes them too.
    return "{\"data\":\"" + toHex(value.getData()) + "\",\"header\":\"" + toHex(value.getHeader()) +
           "\",\"ts\":\"" + timestamp(received) + "\"}";
}

std::optional<std::vector<unsigned char>> parseSet(const std::string& payload, std::string& error) {
    const std::size_t first = payload.find_first_not_of(" \t\r\n");
    if (first == std::string::npos || payload[first] != '{') {
        return parseHex(payload, error);
    }
    const nlohmann::json document = nlohmann::json::parse(payload, nullptr, false);
    if (document.is_discarded() || !document.is_object() || document.size() != 1 ||
        !document.contains("data") || !document["data"].is_string()) {
        error = "JSON payload must be {\"data\":\"HEX\"}";
        return std::nullopt;
    }
    return parseHex(document["data"].get<std::string>(), error);
}

std::optional<unsigned int> parseChannelLevel(const std::string& level) {
    if (level.empty() || level.size() > 10) {
        return std::nullopt;
    }
    unsigned long long id = 0;
    for (char c : level) {
        if (c < '0' || c > '9') {
            return std::nullopt;
        }
        id = id * 10 + static_cast<unsigned>(c - '0');
    }
    if (id > 0xFFFFFFFFull) {
        return std::nullopt;
    }
    return static_cast<unsigned int>(id);
}

std::string setSucceeded() {
    return "{\"ok\":true}";
}

std::string setRefused(unsigned char reasonCode) {
    nlohmann::ordered_json result = {{"ok", false}, {"reason", reasonCode}};
    const char* name = ReasonCode::name(reasonCode);
    if (name != nullptr) {
        result["name"] = name;
    }
    return result.dump();
}

std::string setRejected(const std::string& error) {
    return nlohmann::ordered_json({{"ok", false}, {"error", error}}).dump();
}

}  // namespace BridgePayload

#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <vector>

class ChannelValue;

// The MQTT payloads of the bridge (docs/BRIDGE.md, "Topics and payloads").
namespace BridgePayload {

// Upper-case hex, two digits a byte, no separators.
std::string toHex(const std::vector<unsigned char>& bytes);
// UTC with milliseconds: "2026-11-23T12:00:00.123Z".
std::string timestamp(std::chrono::system_clock::time_point time);
// {"data":"0A000000","header":"","ts":"..."}
std::string value(const ChannelValue& value, std::chrono::system_clock::time_point received);
// The data of a /set message: hex digits (either case, blanks between bytes
// allowed) or {"data":"HEX"}; nothing, with error set, for anything else.
std::optional<std::vector<unsigned char>> parseSet(const std::string& payload, std::string& error);
// A channel id as a topic level: decimal, 0 to 4294967295.
std::optional<unsigned int> parseChannelLevel(const std::string& level);
// Results on /set/result.
std::string setSucceeded();
std::string setRefused(unsigned char reasonCode);
std::string setRejected(const std::string& error);

}  // namespace BridgePayload

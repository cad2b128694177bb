#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include "chanlink/client/GetOutcome.h"
#include "chanlink/processing/ChannelCache.h"

namespace cli {

// Plain lines for people, or one JSON object per line for programs.
enum class Format { Plain, Json };

// Upper-case hexadecimal digit pairs without separators ("0A0B"); empty for
// no bytes. The same form that set accepts.
std::string hexBytes(const std::vector<unsigned char>& bytes);

// "5s" for whole seconds, "500ms" otherwise.
std::string describeDuration(std::chrono::milliseconds duration);

// The reason's name and description, "ReadOnlyChannel (channel is
// read-only)"; "reason 42 (device-specific reason)" for a code without a name.
std::string reasonText(unsigned char reasonCode);

// The error line (without "chanlink: ") for an operation that did not
// succeed: "set 5 refused: ReadOnlyChannel (channel is read-only)", or
// "... failed: ..." when the library itself gave up on it.
std::string failureMessage(const std::string& command, std::uint32_t channelId,
                           unsigned char reasonCode);

// One line for a channel's value, as get and push print it:
//   plain  "2 0A000000"
//   json   {"command":"get","channel":2,"ok":true,"header":"00000000","data":"0A000000"}
// ("ok" appears for get only).
std::string formatValue(const std::string& command, const GetOutcome& outcome, Format format);

// One line for a successful set:
//   plain  "1 set to 01020304"
//   json   {"command":"set","channel":1,"ok":true,"data":"01020304"}
std::string formatSet(std::uint32_t channelId, const std::vector<unsigned char>& data,
                      Format format);

// One line for a failed get or set, as JSON (plain output reports failures
// on standard error only):
//   {"command":"set","channel":5,"ok":false,"reason":18,"reasonName":"ReadOnlyChannel",
//    "description":"channel is read-only"}
// reasonName is null for a code without a name.
std::string formatFailure(const std::string& command, std::uint32_t channelId,
                          unsigned char reasonCode);

// One line of watch for a change reported by a ChannelCache. A channel's
// first value has no previous one:
//   plain  "1 00000000"            then  "1 00000000 -> 01020304"
//   json   {"command":"watch","channel":1,"previous":null,"header":"...","data":"00000000"}
// An empty pair member is printed as no value at all.
std::string formatChange(const ChannelCache::Change& change, Format format);

}  // namespace cli

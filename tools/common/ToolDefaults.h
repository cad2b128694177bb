#pragma once

namespace tool {

// The port a device listens on and a client connects to unless told otherwise.
inline constexpr const char* DefaultPort = "7300";

// The exit status of either program for a wrong command line.
inline constexpr int UsageStatus = 2;

}  // namespace tool

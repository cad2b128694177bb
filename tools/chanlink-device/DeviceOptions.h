#pragma once

#include <cstddef>
#include <string>
#include <vector>

// The command line of chanlink-device (docs/DEVICE.md).
struct DeviceOptions {
    static constexpr const char* DefaultPort = "7300";

    std::string port = DefaultPort;
    std::string host;  // empty: every local address, IPv4 and IPv6
    std::string user = "admin";
    std::string password = "secret";
    std::size_t maxClients = 4;
    std::string channelsFile;  // empty: the built-in table
    std::string captureFile;   // empty: no capture
    bool captureCredentials = false;
    bool help = false;
    bool version = false;
    bool printChannels = false;

    // Reads the arguments after the program name. False, with error set to
    // a one-line message, on an unknown option, a missing or bad value.
    bool parse(const std::vector<std::string>& arguments, std::string& error);

    static const char* usage();
};

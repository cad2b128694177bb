#pragma once

#include <cstddef>
#include <string>

#include "ToolDefaults.h"

namespace CLI {
class App;
}

// The command line of chanlink-device (docs/DEVICE.md).
struct DeviceOptions {
    std::string port = tool::DefaultPort;
    std::string host;  // empty: every local address, IPv4 and IPv6
    std::string user = "admin";
    std::string password = "secret";
    std::size_t maxClients = 4;
    std::string channelsFile;  // empty: the built-in table
    std::string captureFile;   // empty: no capture
    bool captureCredentials = false;
    bool printChannels = false;

    // Declares every option, with its help line, on app, bound to these fields.
    void addTo(CLI::App& app);
};

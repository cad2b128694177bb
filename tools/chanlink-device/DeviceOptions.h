#pragma once

#include <chrono>
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
    // --password-file's first line, else --password, else
    // $CHANLINK_DEVICE_PASSWORD, else secret. main reads the file.
    std::string password = "secret";
    std::string passwordFile;
    std::size_t maxClients = 4;
    std::string channelsFile;  // empty: the built-in table
    std::string captureFile;   // empty: no capture
    bool captureCredentials = false;
    bool printChannels = false;
    // Against hostile clients (docs/SECURITY.md); 0 turns either off.
    std::chrono::milliseconds loginTimeout{10000};
    std::size_t maxPending = 64;
    // TLS only on the port when both are set (builds with chanlink_tls).
    std::string tlsCertificate;
    std::string tlsKey;
    std::string tlsClientCa;

    // Declares every option, with its help line, on app, bound to these fields.
    void addTo(CLI::App& app);
};

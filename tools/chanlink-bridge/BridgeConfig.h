#pragma once

#include <chrono>
#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "ToolDefaults.h"

// One device the bridge serves (docs/BRIDGE.md, "Configuration file").
struct DeviceConfig {
    std::string name;  // one topic level: letters, digits, '-', '_', '.'
    std::string host;
    std::string port = tool::DefaultPort;
    std::string user = "admin";
    std::string password;  // resolved from passwordFile / passwordEnv; never logged
    std::string passwordFile;
    std::string passwordEnv;
    std::vector<unsigned int> channels;  // subscribed
    bool push = false;                   // publish everything the device pushes
    std::vector<unsigned int> poll;      // read every pollInterval instead
    std::chrono::milliseconds pollInterval{1000};
    // Channels kept (and published) at most, so that a device pushing ever
    // new ids cannot make the bridge grow; the configured ones always are.
    std::size_t maxChannels = 10000;
};

// The broker connection and the topic layout.
struct BrokerConfig {
    std::string host = "localhost";
    int port = 1883;
    std::string clientId;  // empty: "chanlink-bridge-<hostname>"
    std::string topicPrefix = "chanlink";
    std::string user;
    std::string passwordFile;
    std::string password;  // read from passwordFile
    std::string caFile;    // TLS to the broker when set
    int qos = 1;           // of value and status messages
    bool retain = true;    // of value messages
    std::chrono::seconds keepAlive{30};
};

struct BridgeConfig {
    BrokerConfig broker;
    std::vector<DeviceConfig> devices;
};

// Parsing of the configuration file and of the option values that describe
// devices. Each parser returns nothing, with error set to a one-line
// message, on bad input.
namespace BridgeConfigParser {

// The JSON text of a configuration file, merged into config.
bool parseJson(const std::string& text, BridgeConfig& config, std::string& error);
// "1,2,0x10": a list of channel ids.
std::optional<std::vector<unsigned int>> parseChannelList(const std::string& text,
                                                          std::string& error);
// "HOST[:PORT]" or "[IPV6]:PORT"; port stays as given when absent.
bool parseHostPort(const std::string& text, std::string& host, std::string& port,
                   std::string& error);
// "NAME=HOST:PORT" of --device.
std::optional<DeviceConfig> parseDeviceSpec(const std::string& text, std::string& error);
// Names, topic prefix, QoS, at least one device with something to publish;
// passwords are resolved (files read, environment looked up) here.
bool finish(BridgeConfig& config, std::string& error);
// The first line of a file, without its line end.
bool readSecretFile(const std::string& path, std::string& secret, std::string& error);

}  // namespace BridgeConfigParser

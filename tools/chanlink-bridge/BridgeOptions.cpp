#include "BridgeOptions.h"

#include <fstream>
#include <sstream>

#include "ToolCommandLine.h"

#ifndef CHANLINK_VERSION
#define CHANLINK_VERSION "unknown"
#endif

namespace {

struct CommandLine {
    std::string configFile;
    std::string broker;
    std::string topicPrefix;
    std::string clientId;
    std::string brokerUser;
    std::string brokerPasswordFile;
    std::string brokerCa;
    int qos = -1;
    std::vector<std::string> devices;
    std::string deviceUser = "admin";
    std::string devicePasswordFile;
    std::string channels;
    bool push = false;
};

bool loadFile(const std::string& path, BridgeConfig& config, std::string& error) {
    std::ifstream file(path);
    if (!file) {
        error = path + ": cannot be opened";
        return false;
    }
    std::ostringstream text;
    text << file.rdbuf();
    if (!BridgeConfigParser::parseJson(text.str(), config, error)) {
        error = path + ": " + error;
        return false;
    }
    return true;
}

bool apply(const CommandLine& line, BridgeConfig& config, std::string& error) {
    if (!line.configFile.empty() && !loadFile(line.configFile, config, error)) {
        return false;
    }
    BrokerConfig& broker = config.broker;
    if (!line.broker.empty()) {
        std::string port = std::to_string(broker.port);
        if (!BridgeConfigParser::parseHostPort(line.broker, broker.host, port, error)) {
            error = "--broker " + error;
            return false;
        }
        broker.port = std::stoi(port);
    }
    if (!line.topicPrefix.empty()) {
        broker.topicPrefix = line.topicPrefix;
    }
    if (!line.clientId.empty()) {
        broker.clientId = line.clientId;
    }
    if (!line.brokerUser.empty()) {
        broker.user = line.brokerUser;
    }
    if (!line.brokerPasswordFile.empty()) {
        broker.passwordFile = line.brokerPasswordFile;
    }
    if (!line.brokerCa.empty()) {
        broker.caFile = line.brokerCa;
    }
    if (line.qos >= 0) {
        broker.qos = line.qos;
    }
    std::vector<unsigned int> channels;
    if (!line.channels.empty()) {
        auto parsed = BridgeConfigParser::parseChannelList(line.channels, error);
        if (!parsed) {
            error = "--channels: " + error;
            return false;
        }
        channels = *parsed;
    }
    if (line.devices.empty() && (!channels.empty() || line.push)) {
        error = "--channels and --push apply to devices given with --device";
        return false;
    }
    for (const std::string& spec : line.devices) {
        auto device = BridgeConfigParser::parseDeviceSpec(spec, error);
        if (!device) {
            return false;
        }
        device->user = line.deviceUser;
        device->passwordFile = line.devicePasswordFile;
        device->channels = channels;
        device->push = line.push;
        config.devices.push_back(std::move(*device));
    }
    return BridgeConfigParser::finish(config, error);
}

}  // namespace

namespace BridgeOptions {

std::optional<BridgeConfig> parse(int argc, const char* const* argv, std::ostream& out,
                                  std::ostream& err, int& exitCode) {
    CommandLine line;
    CLI::App app{
        "chanlink-bridge: publishes the channels of chanlink devices on an MQTT broker and "
        "writes what is sent to their /set topics.",
        "chanlink-bridge"};
    app.add_option("--config", line.configFile, "JSON configuration file (docs/BRIDGE.md)");
    app.add_option("--broker", line.broker, "Broker as HOST[:PORT] (default localhost:1883)");
    app.add_option("--topic-prefix", line.topicPrefix, "First topic levels (default chanlink)");
    app.add_option("--client-id", line.clientId,
                   "MQTT client id, also names the bridge's status topic "
                   "(default chanlink-bridge-HOSTNAME)");
    app.add_option("--broker-user", line.brokerUser, "Username at the broker");
    app.add_option("--broker-password-file", line.brokerPasswordFile,
                   "File whose first line is the broker password");
    app.add_option("--broker-ca", line.brokerCa, "Connect with TLS, trusting this CA file");
    app.add_option("--qos", line.qos, "QoS of published messages (default 1)")
        ->check(CLI::Range(0, 2));
    app.add_option("--device", line.devices, "A device as NAME=HOST:PORT (repeatable)");
    app.add_option("--device-user", line.deviceUser,
                   "Username at --device devices (default admin)");
    app.add_option("--device-password-file", line.devicePasswordFile,
                   "File whose first line is the password of --device devices "
                   "(default: $CHANLINK_PASSWORD, else secret)");
    app.add_option("--channels", line.channels,
                   "Channels to subscribe at every --device device, as 1,2,3");
    app.add_flag("--push", line.push, "Publish every value --device devices push");
    app.set_version_flag("--version", std::string("chanlink-bridge ") + CHANLINK_VERSION);
    const std::vector<std::string> arguments(argv + (argc > 0 ? 1 : 0), argv + argc);
    if (const auto status = tool::parseCommandLine(app, arguments, out, err)) {
        exitCode = *status;
        return std::nullopt;
    }
    BridgeConfig config;
    std::string error;
    if (!apply(line, config, error)) {
        err << "chanlink-bridge: " << error << "\n";
        exitCode = tool::UsageStatus;
        return std::nullopt;
    }
    return config;
}

}  // namespace BridgeOptions

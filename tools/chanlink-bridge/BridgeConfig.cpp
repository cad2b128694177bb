#include "BridgeConfig.h"

#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <nlohmann/json.hpp>
#include <set>

#include "ToolCommandLine.h"

namespace {

using nlohmann::json;

bool parseUnsigned(const std::string& text, unsigned long long high, unsigned long long& value) {
    const bool hex = text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X');
    const std::string digits = hex ? text.substr(2) : text;
    if (digits.empty() || digits.size() > (hex ? 8u : 10u)) {
        return false;
    }
    value = 0;
    for (char c : digits) {
        const int digit = c >= '0' && c <= '9'          ? c - '0'
                          : hex && c >= 'a' && c <= 'f' ? c - 'a' + 10
                          : hex && c >= 'A' && c <= 'F' ? c - 'A' + 10
                                                        : -1;
        if (digit < 0) {
            return false;
        }
        value = value * (hex ? 16 : 10) + static_cast<unsigned>(digit);
    }
    return value <= high;
}

bool validName(const std::string& name) {
    if (name.empty() || name.size() > 64) {
        return false;
    }
    for (char c : name) {
        const bool ok = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
                        (c >= '0' && c <= '9') || c == '-' || c == '_' || c == '.';
        if (!ok) {
            return false;
        }
    }
    return true;
}

// The keys of object, each one of allowed; error names the first other.
bool onlyKeys(const json& object, const std::set<std::string>& allowed, const std::string& where,
              std::string& error) {
    if (!object.is_object()) {
        error = where + " must be a JSON object";
        return false;
    }
    for (const auto& item : object.items()) {
        if (allowed.count(item.key()) == 0) {
            error = where + ": unknown key '" + item.key() + "'";
            return false;
        }
    }
    return true;
}

bool getString(const json& object, const char* key, std::string& target, const std::string& where,
               std::string& error) {
    if (!object.contains(key)) {
        return true;
    }
    if (!object[key].is_string()) {
        error = where + ": '" + key + "' must be a string";
        return false;
    }
    target = object[key].get<std::string>();
    return true;
}

bool getNumber(const json& object, const char* key, unsigned long long high,
               unsigned long long& target, const std::string& where, std::string& error) {
    if (!object.contains(key)) {
        return true;
    }
    const json& value = object[key];
    if (!value.is_number_unsigned() || value.get<unsigned long long>() > high) {
        error = where + ": '" + key + "' must be a whole number from 0 to " + std::to_string(high);
        return false;
    }
    target = value.get<unsigned long long>();
    return true;
}

bool getChannels(const json& object, const char* key, std::vector<unsigned int>& target,
                 const std::string& where, std::string& error) {
    if (!object.contains(key)) {
        return true;
    }
    const json& list = object[key];
    const std::string message =
        where + ": '" + key + "' must be a list of channel ids from 0 to 4294967295";
    if (!list.is_array()) {
        error = message;
        return false;
    }
    for (const json& id : list) {
        if (!id.is_number_unsigned() || id.get<unsigned long long>() > 0xFFFFFFFFull) {
            error = message;
            return false;
        }
        target.push_back(static_cast<unsigned int>(id.get<unsigned long long>()));
    }
    return true;
}

bool parseBroker(const json& object, BrokerConfig& broker, std::string& error) {
    const std::string where = "broker";
    unsigned long long port = static_cast<unsigned long long>(broker.port);
    unsigned long long qos = static_cast<unsigned long long>(broker.qos);
    unsigned long long keepAlive = static_cast<unsigned long long>(broker.keepAlive.count());
    if (!onlyKeys(object,
                  {"host", "port", "clientId", "topicPrefix", "user", "passwordFile", "caFile",
                   "qos", "retain", "keepAliveSeconds"},
                  where, error) ||
        !getString(object, "host", broker.host, where, error) ||
        !getNumber(object, "port", 65535, port, where, error) ||
        !getString(object, "clientId", broker.clientId, where, error) ||
        !getString(object, "topicPrefix", broker.topicPrefix, where, error) ||
        !getString(object, "user", broker.user, where, error) ||
        !getString(object, "passwordFile", broker.passwordFile, where, error) ||
        !getString(object, "caFile", broker.caFile, where, error) ||
        !getNumber(object, "qos", 2, qos, where, error) ||
        !getNumber(object, "keepAliveSeconds", 65535, keepAlive, where, error)) {
        return false;
    }
    if (object.contains("retain")) {
        if (!object["retain"].is_boolean()) {
            error = where + ": 'retain' must be true or false";
            return false;
        }
        broker.retain = object["retain"].get<bool>();
    }
    broker.port = static_cast<int>(port);
    broker.qos = static_cast<int>(qos);
    broker.keepAlive = std::chrono::seconds(keepAlive);
    return true;
}

bool parseDevice(const json& object, std::size_t index, DeviceConfig& device, std::string& error) {
    const std::string where = "devices[" + std::to_string(index) + "]";
    unsigned long long interval = static_cast<unsigned long long>(device.pollInterval.count());
    unsigned long long maxChannels = device.maxChannels;
    if (!onlyKeys(object,
                  {"name", "host", "port", "user", "passwordFile", "passwordEnv", "channels",
                   "push", "poll", "pollIntervalMs", "maxChannels"},
                  where, error) ||
        !getString(object, "name", device.name, where, error) ||
        !getString(object, "host", device.host, where, error) ||
        !getString(object, "user", device.user, where, error) ||
        !getString(object, "passwordFile", device.passwordFile, where, error) ||
        !getString(object, "passwordEnv", device.passwordEnv, where, error) ||
        !getChannels(object, "channels", device.channels, where, error) ||
        !getChannels(object, "poll", device.poll, where, error) ||
        !getNumber(object, "pollIntervalMs", 86400000, interval, where, error) ||
        !getNumber(object, "maxChannels", 10000000, maxChannels, where, error)) {
        return false;
    }
    if (object.contains("port")) {
        const json& port = object["port"];
        std::optional<std::string> number;
        if (port.is_number_unsigned()) {
            number = tool::portNumber(std::to_string(port.get<unsigned long long>()), 0);
        } else if (port.is_string()) {
            number = tool::portNumber(port.get<std::string>(), 0);
        }
        if (number) {
            device.port = *number;
        } else {
            error = where + ": 'port' must be a number from 0 to 65535";
            return false;
        }
    }
    if (object.contains("push")) {
        if (!object["push"].is_boolean()) {
            error = where + ": 'push' must be true or false";
            return false;
        }
        device.push = object["push"].get<bool>();
    }
    if (interval == 0) {
        error = where + ": 'pollIntervalMs' must be at least 1";
        return false;
    }
    device.pollInterval = std::chrono::milliseconds(interval);
    device.maxChannels = static_cast<std::size_t>(maxChannels);
    return true;
}

bool validPrefix(const std::string& prefix) {
    if (prefix.empty() || prefix.front() == '/' || prefix.back() == '/' ||
        prefix.find("//") != std::string::npos) {
        return false;
    }
    return prefix.find_first_of("+#") == std::string::npos;
}

}  // namespace

namespace BridgeConfigParser {

bool parseJson(const std::string& text, BridgeConfig& config, std::string& error) {
    const json document = json::parse(text, nullptr, false);
    if (document.is_discarded()) {
        error = "not valid JSON";
        return false;
    }
    if (!onlyKeys(document, {"broker", "devices"}, "the configuration", error)) {
        return false;
    }
    if (document.contains("broker") && !parseBroker(document["broker"], config.broker, error)) {
        return false;
    }
    if (document.contains("devices")) {
        const json& devices = document["devices"];
        if (!devices.is_array()) {
            error = "'devices' must be a list";
            return false;
        }
        for (std::size_t i = 0; i < devices.size(); ++i) {
            DeviceConfig device;
            if (!parseDevice(devices[i], i, device, error)) {
                return false;
            }
            config.devices.push_back(std::move(device));
        }
    }
    return true;
}

std::optional<std::vector<unsigned int>> parseChannelList(const std::string& text,
                                                          std::string& error) {
    std::vector<unsigned int> channels;
    std::size_t start = 0;
    for (;;) {
        const std::size_t comma = text.find(',', start);
        const std::string item = text.substr(start, comma - start);
        unsigned long long id = 0;
        if (!parseUnsigned(item, 0xFFFFFFFFull, id)) {
            error = "'" + item + "' is not a channel id (0 to 4294967295, or 0x hexadecimal)";
            return std::nullopt;
        }
        channels.push_back(static_cast<unsigned int>(id));
        if (comma == std::string::npos) {
            return channels;
        }
        start = comma + 1;
    }
}

bool parseHostPort(const std::string& text, std::string& host, std::string& port,
                   std::string& error) {
    std::string portText;
    bool hasPort = false;
    if (!text.empty() && text.front() == '[') {
        const std::size_t close = text.find(']');
        if (close == std::string::npos || (close + 1 < text.size() && text[close + 1] != ':')) {
            error = "'" + text + "' is not [ADDRESS]:PORT";
            return false;
        }
        host = text.substr(1, close - 1);
        hasPort = close + 1 < text.size();
        if (hasPort) {
            portText = text.substr(close + 2);
        }
    } else {
        const std::size_t colon = text.rfind(':');
        if (colon != std::string::npos && text.find(':') != colon) {
            error = "'" + text + "': write an IPv6 address as [ADDRESS]:PORT";
            return false;
        }
        host = text.substr(0, colon);
        hasPort = colon != std::string::npos;
        if (hasPort) {
            portText = text.substr(colon + 1);
        }
    }
    if (host.empty()) {
        error = "'" + text + "' has no host";
        return false;
    }
    if (hasPort) {
        const auto number = tool::portNumber(portText, 1);
        if (!number) {
            error = "'" + portText + "' is not a port (1 to 65535)";
            return false;
        }
        port = *number;
    }
    return true;
}

std::optional<DeviceConfig> parseDeviceSpec(const std::string& text, std::string& error) {
    const std::size_t equals = text.find('=');
    DeviceConfig device;
    if (equals == std::string::npos) {
        error = "--device '" + text + "' is not NAME=HOST:PORT";
        return std::nullopt;
    }
    device.name = text.substr(0, equals);
    if (!parseHostPort(text.substr(equals + 1), device.host, device.port, error)) {
        error = "--device " + error;
        return std::nullopt;
    }
    return device;
}

bool readSecretFile(const std::string& path, std::string& secret, std::string& error) {
    std::ifstream file(path);
    if (!file) {
        error = path + ": cannot be opened";
        return false;
    }
    std::getline(file, secret);
    if (!secret.empty() && secret.back() == '\r') {
        secret.pop_back();
    }
    return true;
}

bool finish(BridgeConfig& config, std::string& error) {
    BrokerConfig& broker = config.broker;
    if (!validPrefix(broker.topicPrefix)) {
        error = "topic prefix '" + broker.topicPrefix +
                "' must be topic levels without '+', '#' or empty levels";
        return false;
    }
    if (broker.clientId.empty()) {
        char host[256] = {};
        ::gethostname(host, sizeof host - 1);
        broker.clientId = std::string("chanlink-bridge-") + host;
    }
    if (!validName(broker.clientId)) {
        error =
            "client id '" + broker.clientId + "' must be 1 to 64 letters, digits, '-', '_' or '.'";
        return false;
    }
    if (!broker.passwordFile.empty() && broker.user.empty()) {
        error = "a broker password file needs a broker user (--broker-user or broker.user)";
        return false;
    }
    if (!broker.passwordFile.empty() &&
        !readSecretFile(broker.passwordFile, broker.password, error)) {
        return false;
    }
    if (config.devices.empty()) {
        error = "no devices: give --device NAME=HOST:PORT or a --config file with devices";
        return false;
    }
    std::set<std::string> names;
    for (DeviceConfig& device : config.devices) {
        if (!validName(device.name) || device.name == "bridge") {
            error = "device name '" + device.name +
                    "' must be 1 to 64 letters, digits, '-', '_' or '.', and not 'bridge'";
            return false;
        }
        if (!names.insert(device.name).second) {
            error = "device name '" + device.name + "' is given twice";
            return false;
        }
        if (device.host.empty()) {
            error = "device " + device.name + " has no host";
            return false;
        }
        if (device.channels.empty() && device.poll.empty() && !device.push) {
            error = "device " + device.name +
                    " has nothing to publish: give channels, poll channels or push";
            return false;
        }
        // The device's password: its file, its variable, CHANLINK_PASSWORD,
        // or the device simulator's default, as the chanlink command does.
        if (!device.passwordFile.empty()) {
            if (!readSecretFile(device.passwordFile, device.password, error)) {
                return false;
            }
        } else {
            const char* fromEnvironment = std::getenv(
                device.passwordEnv.empty() ? "CHANLINK_PASSWORD" : device.passwordEnv.c_str());
            if (fromEnvironment == nullptr && !device.passwordEnv.empty()) {
                error = "device " + device.name + ": environment variable " + device.passwordEnv +
                        " is not set";
                return false;
            }
            device.password = fromEnvironment != nullptr ? fromEnvironment : "secret";
        }
    }
    return true;
}

}  // namespace BridgeConfigParser

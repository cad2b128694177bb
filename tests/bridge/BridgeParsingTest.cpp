#include <gtest/gtest.h>

#include <tuple>

#include "BridgeConfig.h"
#include "BridgePayload.h"
#include "chanlink/messages/ChannelValue.h"

namespace {

using Bytes = std::vector<unsigned char>;

TEST(BridgeParsing, ConfigurationFile) {
    BridgeConfig config;
    std::string error;
    ASSERT_TRUE(BridgeConfigParser::parseJson(R"({
        "broker": {"host": "mq", "port": 8883, "topicPrefix": "site/a", "qos": 0},
        "devices": [{"name": "plc1", "host": "10.0.0.5", "port": "7301", "channels": [1, 2],
                     "push": true, "poll": [9], "pollIntervalMs": 250}]})",
                                              config, error))
        << error;
    EXPECT_EQ(config.broker.host, "mq");
    EXPECT_EQ(config.broker.port, 8883);
    EXPECT_EQ(config.broker.topicPrefix, "site/a");
    EXPECT_EQ(config.broker.qos, 0);
    ASSERT_EQ(config.devices.size(), 1u);
    EXPECT_EQ(config.devices[0].port, "7301");
    EXPECT_EQ(config.devices[0].channels, (std::vector<unsigned int>{1, 2}));
    EXPECT_TRUE(config.devices[0].push);
    EXPECT_EQ(config.devices[0].pollInterval, std::chrono::milliseconds(250));

    const std::pair<const char*, const char*> bad[] = {
        {"[1", "not valid JSON"},
        {R"({"devices": [{"name": "a", "chanels": [1]}]})", "devices[0]: unknown key 'chanels'"},
        {R"({"devices": [{"channels": [-1]}]})",
         "devices[0]: 'channels' must be a list of channel ids from 0 to 4294967295"},
        {R"({"broker": {"qos": 3}})", "broker: 'qos' must be a whole number from 0 to 2"},
        {R"({"devices": [{"port": 70000}]})",
         "devices[0]: 'port' must be a number from 0 to 65535"},
    };
    for (const auto& [text, message] : bad) {
        BridgeConfig ignored;
        EXPECT_FALSE(BridgeConfigParser::parseJson(text, ignored, error)) << text;
        EXPECT_EQ(error, message) << text;
    }
}

TEST(BridgeParsing, HostAndPort) {
    // What is parsed as "host port"; empty: refused.
    const std::pair<std::string, std::string> cases[] = {
        {"broker", "broker 1883"},
        {"10.0.0.1:1884", "10.0.0.1 1884"},
        {"[::1]:1885", "::1 1885"},
        {"[::1]", "::1 1883"},
        {"::1", ""},
        {"h:0", ""},
        {":1883", ""},
        {"h:x", ""},
    };
    for (const auto& [text, expected] : cases) {
        std::string host;
        std::string port = "1883";
        std::string error;
        const bool parsed = BridgeConfigParser::parseHostPort(text, host, port, error);
        EXPECT_EQ(parsed ? host + " " + port : "", expected) << text;
    }
    std::string error;
    EXPECT_EQ(BridgeConfigParser::parseChannelList("1,2,0x10", error),
              (std::vector<unsigned int>{1, 2, 16}));
    EXPECT_FALSE(BridgeConfigParser::parseChannelList("1,,2", error));
}

TEST(BridgeParsing, SetPayloads) {
    // A payload, the data it gives (none: refused) and the error.
    const std::tuple<const char*, Bytes, const char*> cases[] = {
        {"0A000000", {0x0A, 0, 0, 0}, ""},
        {"0a ff", {0x0A, 0xFF}, ""},
        {R"( {"data":"0b"} )", {0x0B}, ""},
        {"0B0", {}, "hex data must have an even number of digits, two per byte"},
        {"", {}, "payload holds no data"},
        {"zz", {}, "payload must be hex digits or {\"data\":\"HEX\"}"},
        {R"({"data":7})", {}, "JSON payload must be {\"data\":\"HEX\"}"},
        {R"({"data":"01","x":1})", {}, "JSON payload must be {\"data\":\"HEX\"}"},
    };
    for (const auto& [payload, data, message] : cases) {
        std::string error;
        EXPECT_EQ(BridgePayload::parseSet(payload, error).value_or(Bytes{}), data) << payload;
        EXPECT_EQ(error, message) << payload;
    }
    EXPECT_EQ(BridgePayload::parseChannelLevel("4294967295"), 4294967295u);
    EXPECT_FALSE(BridgePayload::parseChannelLevel("4294967296"));
    EXPECT_FALSE(BridgePayload::parseChannelLevel("+"));
}

TEST(BridgeParsing, PublishedPayloads) {
    const auto time =
        std::chrono::system_clock::time_point(std::chrono::milliseconds(1795435200123));
    EXPECT_EQ(BridgePayload::value(ChannelValue(7, Bytes{0xAB}, Bytes{0x0A, 0, 0, 0}), time),
              R"({"data":"0A000000","header":"AB","ts":"2026-11-23T12:00:00.123Z"})");
    EXPECT_EQ(BridgePayload::setRefused(18),
              R"({"ok":false,"reason":18,"name":"ReadOnlyChannel"})");
    EXPECT_EQ(BridgePayload::setRefused(200), R"({"ok":false,"reason":200})");
}

}  // namespace

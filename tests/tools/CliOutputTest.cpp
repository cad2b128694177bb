// What chanlink prints: the result and error lines of each command (the
// everyday lines as the program prints them are tools_integration.sh's).
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "CliOutput.h"

using cli::Format;
using namespace std::chrono_literals;

TEST(CliOutput, LinesInBothFormats) {
    const GetOutcome value(2, {0, 0, 0, 0}, {0x0A, 0, 0, 0}, ReasonCode::Success);
    const GetOutcome empty(0, {}, {}, ReasonCode::Success);
    const auto first = std::make_shared<const ChannelValue>(1, std::vector<unsigned char>{9},
                                                            std::vector<unsigned char>{0, 0});
    const auto second = std::make_shared<const ChannelValue>(1, std::vector<unsigned char>{9},
                                                             std::vector<unsigned char>{1, 2});
    const std::pair<std::string, std::string> lines[] = {
        {cli::describeDuration(5000ms), "5s"},
        {cli::failureMessage("set", 1, ReasonCode::SetRequestNotBuilt),
         "set 1 failed: SetRequestNotBuilt (set data too long to send)"},
        {cli::failureMessage("get", 3, 42), "get 3 refused: reason 42 (device-specific reason)"},
        {cli::formatValue("get", value, Format::Json),
         R"({"command":"get","channel":2,"ok":true,"header":"00000000","data":"0A000000"})"},
        {cli::formatValue("push", empty, Format::Json),
         R"({"command":"push","channel":0,"header":"","data":""})"},
        {cli::formatSet(1, {1, 2, 3, 4}, Format::Json),
         R"({"command":"set","channel":1,"ok":true,"data":"01020304"})"},
        {cli::formatFailure("set", 5, ReasonCode::ReadOnlyChannel),
         R"({"command":"set","channel":5,"ok":false,"reason":18,)"
         R"("reasonName":"ReadOnlyChannel","description":"channel is read-only"})"},
        {cli::formatFailure("get", 4294967295U, 42),
         R"({"command":"get","channel":4294967295,"ok":false,"reason":42,)"
         R"("reasonName":null,"description":"device-specific reason"})"},
        {cli::formatChange({first, second}, Format::Json),
         R"({"command":"watch","channel":1,"previous":"0000","header":"09","data":"0102"})"},
        {cli::formatChange({nullptr, nullptr}, Format::Json),
         R"({"command":"watch","channel":null,"previous":null,"header":null,"data":null})"},
    };
    for (const auto& [line, expected] : lines) {
        EXPECT_EQ(line, expected);
        // Each JSON line is one whole object.
        EXPECT_TRUE(expected[0] != '{' || nlohmann::json::parse(line, nullptr, false).is_object())
            << line;
    }
}

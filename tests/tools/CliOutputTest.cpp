// What chanlink prints: hex, JSON strings and the result lines of each command.
#include <gtest/gtest.h>

#include "CliOutput.h"
#include "support/JsonCheck.h"

using cli::Format;
using testing_support::isJson;
using testing_support::isJsonObject;
using namespace std::chrono_literals;

TEST(CliOutput, JsonStringsEscapeEverythingThatWouldBreakTheLine) {
    EXPECT_EQ(cli::jsonString("plain"), "\"plain\"");
    EXPECT_EQ(cli::jsonString("a\"b\\c"), "\"a\\\"b\\\\c\"");
    EXPECT_EQ(cli::jsonString("\n\r\t\b\f"), "\"\\n\\r\\t\\b\\f\"");
    EXPECT_EQ(cli::jsonString(std::string("\x01\x1f\x7f", 3)), "\"\\u0001\\u001f\\u007f\"");
    EXPECT_EQ(cli::jsonString(std::string("\0", 1)), "\"\\u0000\"");
    // Valid UTF-8 passes; stray, truncated, overlong and surrogate bytes become U+FFFD.
    EXPECT_EQ(cli::jsonString("gr\xC3\xBC\xC3\x9F \xE2\x82\xAC \xF0\x9F\x98\x80"),
              "\"gr\xC3\xBC\xC3\x9F \xE2\x82\xAC \xF0\x9F\x98\x80\"");
    EXPECT_EQ(cli::jsonString("\x80x\xC3"), "\"\\ufffdx\\ufffd\"");
    EXPECT_EQ(cli::jsonString("\xC0\xAF"), "\"\\ufffd\\ufffd\"");
    EXPECT_EQ(cli::jsonString("\xED\xA0\x80"), "\"\\ufffd\\ufffd\\ufffd\"");
    EXPECT_EQ(cli::jsonString("\xF4\x90\x80\x80"), "\"\\ufffd\\ufffd\\ufffd\\ufffd\"");

    // Whatever the bytes, the result is one valid JSON string.
    std::string everyByte;
    for (int b = 0; b < 256; ++b) {
        everyByte += static_cast<char>(b);
    }
    EXPECT_TRUE(isJson(cli::jsonString(everyByte)));
    EXPECT_FALSE(isJson("\"\x01\""));  // the checker itself rejects raw control bytes
    EXPECT_FALSE(isJson("\"\xC3\""));
}

TEST(CliOutput, HexDurationsAndReasons) {
    EXPECT_EQ(cli::hexBytes({0x00, 0x0A, 0xFF}), "000AFF");
    EXPECT_EQ(cli::hexBytes({}), "");
    EXPECT_EQ(cli::describeDuration(5000ms), "5s");
    EXPECT_EQ(cli::describeDuration(1500ms), "1500ms");
    EXPECT_EQ(cli::failureMessage("set", 5, ReasonCode::ReadOnlyChannel),
              "set 5 refused: ReadOnlyChannel (channel is read-only)");
    EXPECT_EQ(cli::failureMessage("get", 9, ReasonCode::UnknownChannel),
              "get 9 refused: UnknownChannel (no such channel)");
    EXPECT_EQ(cli::failureMessage("set", 1, ReasonCode::SetRequestNotBuilt),
              "set 1 failed: SetRequestNotBuilt (set data too long to send)");
    EXPECT_EQ(cli::failureMessage("get", 3, 42),
              "get 3 refused: reason 42 (device-specific reason)");
}

TEST(CliOutput, ResultLinesInBothFormats) {
    const GetOutcome value(2, {0, 0, 0, 0}, {0x0A, 0, 0, 0}, ReasonCode::Success);
    EXPECT_EQ(cli::formatValue("get", value, Format::Plain), "2 0A000000");
    EXPECT_EQ(cli::formatValue("get", value, Format::Json),
              R"({"command":"get","channel":2,"ok":true,"header":"00000000","data":"0A000000"})");
    EXPECT_EQ(cli::formatValue("push", value, Format::Json),
              R"({"command":"push","channel":2,"header":"00000000","data":"0A000000"})");

    EXPECT_EQ(cli::formatSet(1, {1, 2, 3, 4}, Format::Plain), "1 set to 01020304");
    EXPECT_EQ(cli::formatSet(1, {1, 2, 3, 4}, Format::Json),
              R"({"command":"set","channel":1,"ok":true,"data":"01020304"})");

    EXPECT_EQ(cli::formatFailure("set", 5, ReasonCode::ReadOnlyChannel),
              R"({"command":"set","channel":5,"ok":false,"reason":18,)"
              R"("reasonName":"ReadOnlyChannel","description":"channel is read-only"})");
    EXPECT_EQ(cli::formatFailure("get", 4294967295U, 42),
              R"({"command":"get","channel":4294967295,"ok":false,"reason":42,)"
              R"("reasonName":null,"description":"device-specific reason"})");
}

TEST(CliOutput, WatchLinesShowThePreviousValueOnceThereIsOne) {
    const auto first = std::make_shared<const ChannelValue>(1, std::vector<unsigned char>{9},
                                                            std::vector<unsigned char>{0, 0});
    const auto second = std::make_shared<const ChannelValue>(1, std::vector<unsigned char>{9},
                                                             std::vector<unsigned char>{1, 2});
    EXPECT_EQ(cli::formatChange({nullptr, first}, Format::Plain), "1 0000");
    EXPECT_EQ(cli::formatChange({first, second}, Format::Plain), "1 0000 -> 0102");
    EXPECT_EQ(cli::formatChange({nullptr, first}, Format::Json),
              R"({"command":"watch","channel":1,"previous":null,"header":"09","data":"0000"})");
    EXPECT_EQ(cli::formatChange({first, second}, Format::Json),
              R"({"command":"watch","channel":1,"previous":"0000","header":"09","data":"0102"})");
}

TEST(CliOutput, EveryJsonLineIsOneObject) {
    const GetOutcome empty(0, {}, {}, ReasonCode::Success);
    for (const std::string& line :
         {cli::formatValue("get", empty, Format::Json), cli::formatSet(0, {}, Format::Json),
          cli::formatFailure("watch", 7, 0), cli::formatFailure("get", 7, 255),
          cli::formatChange({nullptr, nullptr}, Format::Json)}) {
        EXPECT_TRUE(isJsonObject(line)) << line;
        EXPECT_EQ(line.find('\n'), std::string::npos) << line;
    }
}

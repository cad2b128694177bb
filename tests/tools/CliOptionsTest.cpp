// The command line of chanlink: commands, operands, options and their values.
#include <gtest/gtest.h>

#include "CliOptions.h"

using cli::Options;
using cli::parseArguments;
using namespace std::chrono_literals;
using Bytes = std::vector<unsigned char>;

namespace {

Options parsed(const std::vector<std::string>& arguments) {
    const cli::ParseResult result = parseArguments(arguments);
    EXPECT_TRUE(result.options) << result.error;
    return result.options.value_or(Options{});
}

std::string error(const std::vector<std::string>& arguments) {
    const cli::ParseResult result = parseArguments(arguments);
    EXPECT_FALSE(result.options);
    return result.error;
}

}  // namespace

TEST(CliOptions, ChannelIdsAreDecimalOrHexadecimalWithinThirtyTwoBits) {
    EXPECT_EQ(cli::parseChannelId("0"), 0U);
    EXPECT_EQ(cli::parseChannelId("17"), 17U);
    EXPECT_EQ(cli::parseChannelId("0x1F"), 31U);
    EXPECT_EQ(cli::parseChannelId("0XffFFffFF"), 0xFFFFFFFFU);
    EXPECT_EQ(cli::parseChannelId("4294967295"), 0xFFFFFFFFU);
    for (const char* bad : {"", "4294967296", "0x100000000", "-1", "+1", "1 ", "0x", "1a", "0x1g",
                            "99999999999999999999999"}) {
        EXPECT_FALSE(cli::parseChannelId(bad)) << bad;
    }
}

TEST(CliOptions, HexDataIsBytePairsWithOptionalSeparators) {
    EXPECT_EQ(cli::parseHexData("0A0b0C0d"), (Bytes{0x0A, 0x0B, 0x0C, 0x0D}));
    EXPECT_EQ(cli::parseHexData("0x01FF"), (Bytes{0x01, 0xFF}));
    EXPECT_EQ(cli::parseHexData("de:ad be-ef"), (Bytes{0xDE, 0xAD, 0xBE, 0xEF}));
    // Separators go between pairs, never inside one; at least one byte is needed.
    for (const char* bad : {"", "0x", "A", "0A0", "0:A", "GG", "0A,0B", "  "}) {
        EXPECT_FALSE(cli::parseHexData(bad)) << bad;
    }
}

TEST(CliOptions, DurationsTakeAUnitAndDefaultToSeconds) {
    EXPECT_EQ(cli::parseDuration("5"), 5000ms);
    EXPECT_EQ(cli::parseDuration("500ms"), 500ms);
    EXPECT_EQ(cli::parseDuration("2s"), 2000ms);
    EXPECT_EQ(cli::parseDuration("1.5s"), 1500ms);
    EXPECT_EQ(cli::parseDuration(".25"), 250ms);
    EXPECT_EQ(cli::parseDuration("1m"), 60000ms);
    EXPECT_EQ(cli::parseDuration("1.9ms"), 1ms);
    EXPECT_EQ(cli::parseDuration("1000000000s"), std::chrono::milliseconds(1000000000000LL));
    for (const char* bad : {"", "0", "0.0004s", "s", ".", "1..2", "1.2.3", "-1", "5 s", "5h",
                            "1000000001s", "99999999999999999999999"}) {
        EXPECT_FALSE(cli::parseDuration(bad)) << bad;
    }
}

TEST(CliOptions, CountsAndPortsArePositiveDecimals) {
    EXPECT_EQ(cli::parseCount("3"), 3U);
    EXPECT_FALSE(cli::parseCount("0"));
    EXPECT_FALSE(cli::parseCount("0x3"));
    EXPECT_EQ(cli::parsePort("65535"), "65535");
    EXPECT_EQ(cli::parsePort("007"), "7");
    EXPECT_FALSE(cli::parsePort("0"));
    EXPECT_FALSE(cli::parsePort("65536"));
    EXPECT_FALSE(cli::parsePort("http"));
}

TEST(CliOptions, CommandsTakeTheirOperandsAndOptionsMayComeAnywhere) {
    const Options get = parsed({"--host", "::1", "get", "1", "0x10", "--port=9000", "--json"});
    EXPECT_EQ(get.command, Options::Command::Get);
    EXPECT_EQ(get.channels, (std::vector<std::uint32_t>{1, 16}));
    EXPECT_EQ(get.host, "::1");
    EXPECT_EQ(get.port, "9000");
    EXPECT_TRUE(get.json);
    EXPECT_EQ(get.timeout, 5000ms);
    EXPECT_EQ(get.user, "admin");
    EXPECT_FALSE(get.password);

    const Options set =
        parsed({"set", "5", "01020304", "--user", "u", "--password", "", "--timeout", "250ms"});
    EXPECT_EQ(set.command, Options::Command::Set);
    EXPECT_EQ(set.channels, std::vector<std::uint32_t>{5});
    EXPECT_EQ(set.data, (Bytes{1, 2, 3, 4}));
    EXPECT_EQ(set.password, "");
    EXPECT_EQ(set.timeout, 250ms);

    const Options watch = parsed({"watch", "2", "4", "--count", "3", "--seconds", "1.5"});
    EXPECT_EQ(watch.channels, (std::vector<std::uint32_t>{2, 4}));
    EXPECT_EQ(watch.count, 3U);
    EXPECT_EQ(watch.duration, 1500ms);

    EXPECT_TRUE(parsed({"push"}).channels.empty());
    EXPECT_EQ(parsed({"push", "2", "--count=1"}).channels, std::vector<std::uint32_t>{2});
    // After "--" everything is an operand, even what looks like an option.
    EXPECT_EQ(error({"get", "--", "--json"}),
              "invalid channel id '--json' (decimal or 0x-hexadecimal)");
    EXPECT_EQ(parsed({"--json", "--help", "bogus"}).command, Options::Command::Help);
    EXPECT_EQ(parsed({"--version"}).command, Options::Command::Version);
}

TEST(CliOptions, ErrorsNameWhatIsWrong) {
    EXPECT_EQ(error({}), "no command given (get, set, watch or push)");
    EXPECT_EQ(error({"fetch", "1"}), "unknown command 'fetch' (get, set, watch or push)");
    EXPECT_EQ(error({"get"}), "get needs at least one channel id");
    EXPECT_EQ(error({"watch"}), "watch needs at least one channel id");
    EXPECT_EQ(error({"set", "1"}), "set needs a channel id and the data: set ID HEXDATA");
    EXPECT_EQ(error({"set", "1", "02", "03"}),
              "set needs a channel id and the data: set ID HEXDATA");
    EXPECT_EQ(error({"set", "1", "xyz"}), "invalid data 'xyz' (hexadecimal byte pairs, e.g. 0A0B)");
    EXPECT_EQ(error({"get", "1", "--bogus"}), "unknown option '--bogus'");
    EXPECT_EQ(error({"get", "1", "--port"}), "--port needs a value");
    EXPECT_EQ(error({"get", "1", "--json=yes"}), "--json takes no value");
    EXPECT_EQ(error({"get", "1", "--port", "0"}), "invalid port '0' (1 to 65535)");
    EXPECT_EQ(error({"get", "1", "--timeout", "0"}),
              "invalid duration '0' for --timeout (e.g. 5, 500ms, 2s)");
    EXPECT_EQ(error({"get", "1", "--count", "2"}), "--count applies to watch and push only");
    EXPECT_EQ(error({"set", "1", "00", "--seconds", "2"}),
              "--seconds applies to watch and push only");
    EXPECT_EQ(error({"push", "--count", "-1"}), "invalid count '-1' (a positive number)");
    EXPECT_EQ(error({"get", "1", "--host="}), "--host needs a host name or address");
}

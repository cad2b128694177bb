// The command lines of chanlink and chanlink-device, as users write them.
#include <gtest/gtest.h>

#include <sstream>

#include "CliOptions.h"
#include "CliOutput.h"
#include "DeviceOptions.h"
#include "ToolCommandLine.h"

namespace {

// A command line and what it gives: the options as render() writes them,
// or the error line without the program's name and the hint to --help.
// --help and --version are CLI11's own.
struct Row {
    std::vector<std::string> arguments;
    std::string expected;
};

// The options that differ from the defaults.
std::string render(const cli::Options& o) {
    static const char* const names[] = {"get", "set", "watch", "push"};
    std::ostringstream text;
    text << names[static_cast<int>(o.command)];
    for (std::size_t i = 0; i < o.channels.size(); ++i) {
        text << (i == 0 ? " " : ",") << o.channels[i];
    }
    const auto field = [&text](bool shown, const char* name, const auto& value) {
        if (shown) {
            text << ' ' << name << '=' << value;
        }
    };
    field(!o.data.empty(), "data", cli::hexBytes(o.data));
    field(o.host != "localhost", "host", o.host);
    field(o.port != "7300", "port", o.port);
    field(o.user != "admin", "user", o.user);
    field(o.password != "secret", "password", o.password);
    field(o.timeout.count() != 5000, "timeout", o.timeout.count());
    field(o.count.has_value(), "count", o.count.value_or(0));
    field(o.duration.has_value(), "seconds",
          o.duration.value_or(std::chrono::milliseconds()).count());
    field(o.json, "json", 1);
    field(o.passwordOnCommandLine, "password-on-command-line", 1);
    field(o.tls, "tls",
          o.caFile + "," + o.certificateFile + "+" + o.keyFile + (o.insecure ? ",insecure" : ""));
    return text.str();
}

std::string render(const DeviceOptions& o) {
    return o.host + ":" + o.port + " " + o.user + "/" + o.password + " max " +
           std::to_string(o.maxClients) + " [" + o.channelsFile + "]" +
           (o.printChannels ? " print" : "") +
           (o.loginTimeout.count() != 10000
                ? " login-timeout " + std::to_string(o.loginTimeout.count())
                : "") +
           (o.maxPending != 64 ? " max-pending " + std::to_string(o.maxPending) : "") +
           (o.tlsCertificate.empty()
                ? ""
                : " tls " + o.tlsCertificate + "+" + o.tlsKey + " " + o.tlsClientCa) +
           (o.passwordFile.empty() ? "" : " password-file " + o.passwordFile);
}

// Runs the row through parse, which gives the rendered options, or nothing
// after setting the exit status.
void check(const Row& row, const std::string& program,
           const std::function<std::optional<std::string>(std::ostream&, int&)>& parse) {
    std::ostringstream err;
    int exitCode = -1;
    std::string outcome = parse(err, exitCode).value_or(err.str());
    // std::regex would do, but GCC 12 warns inside it in optimised builds.
    const std::string prefix = program + ": ", suffix = " (see " + program + " --help)\n";
    if (exitCode == 2 && outcome.size() > prefix.size() + suffix.size() &&
        outcome.compare(0, prefix.size(), prefix) == 0 &&
        outcome.compare(outcome.size() - suffix.size(), suffix.size(), suffix) == 0) {
        outcome = outcome.substr(prefix.size(), outcome.size() - prefix.size() - suffix.size());
    }
    EXPECT_EQ(outcome, row.expected) << testing::PrintToString(row.arguments);
}

}  // namespace

TEST(ToolOptions, ChanlinkCommandLines) {
    const Row rows[] = {
        {{"get", "1", "0x10", "0XffFFffFF"}, "get 1,16,4294967295"},
        {{"--host", "::1", "get", "1", "--port=09000", "--json"},
         "get 1 host=::1 port=9000 json=1"},
        {{"set", "5", "de:ad be-ef", "--user", "u", "--password", "", "--timeout", "250ms"},
         "set 5 data=DEADBEEF user=u password= timeout=250 password-on-command-line=1"},
        {{"watch", "2", "4", "--count", "3", "--seconds", "1.5"}, "watch 2,4 count=3 seconds=1500"},
        {{"--timeout=1m", "push"}, "push timeout=60000"},
        {{"push", "--timeout", ".25", "--seconds", "1000000000s"},
         "push timeout=250 seconds=1000000000000"},
        {{"push", "--timeout", "1.9ms", "--count=1", "2"}, "push 2 timeout=1 count=1"},
        {{}, "no command given (get, set, watch or push)"},
        {{"fetch", "1"}, "unknown command 'fetch' (get, set, watch or push)"},
        {{"get"}, "ID is required"},
        {{"set", "1"}, "HEXDATA is required"},
        {{"set", "1", "02", "03"}, "The following argument was not expected: 03"},
        {{"get", "4294967296"}, "ID: '4294967296' is not a channel id (decimal or 0x-hexadecimal)"},
        {{"set", "1", "0A0"}, "HEXDATA: '0A0' is not hexadecimal byte pairs (e.g. 0A0B)"},
        {{"set", "1", "0:A"}, "HEXDATA: '0:A' is not hexadecimal byte pairs (e.g. 0A0B)"},
        {{"get", "1", "--port", "65536"}, "--port: '65536' is not a port (1 to 65535)"},
        {{"get", "1", "--host="}, "--host: '' is not a host name or address"},
        {{"get", "1", "--timeout", "0.0004s"},
         "--timeout: '0.0004s' is not a duration (e.g. 5, 500ms, 2s)"},
        {{"get", "1", "--timeout", "5h"}, "--timeout: '5h' is not a duration (e.g. 5, 500ms, 2s)"},
        {{"push", "--seconds", "1000000001s"},
         "--seconds: '1000000001s' is not a duration (e.g. 5, 500ms, 2s)"},
        {{"push", "--count", "0x3"}, "--count: '0x3' is not a positive count"},
        {{"get", "1", "--count", "2"}, "--count: applies to watch and push only"},
        {{"set", "1", "00", "--seconds", "2"}, "--seconds: applies to watch and push only"},
        {{"get", "1", "--password", "p", "--password-file", "/dev/null"},
         "get 1 password= password-on-command-line=1"},
        {{"get", "1", "--password-file", "/nonexistent/pw"},
         "cannot read the password file /nonexistent/pw"},
#ifdef CHANLINK_WITH_TLS
        {{"--tls", "--ca", "ca.pem", "get", "1", "--cert", "c.pem", "--key", "k.pem"},
         "get 1 tls=ca.pem,c.pem+k.pem"},
        {{"get", "1", "--tls", "--cert", "c.pem"}, "--cert requires --key"},
        {{"get", "1", "--insecure"}, "--ca, --cert, --key and --insecure need --tls"},
#endif
    };
    for (const Row& row : rows) {
        check(row, "chanlink", [&row](std::ostream& err, int& exitCode) {
            std::ostringstream out;
            const cli::ParseResult result = cli::parseArguments(row.arguments, out, err);
            exitCode = result.exitCode;
            return result.options ? std::optional<std::string>(render(*result.options))
                                  : std::nullopt;
        });
    }
}

TEST(ToolOptions, DeviceCommandLines) {
    const Row rows[] = {
        {{}, ":7300 admin/secret max 4 []"},
        {{"--port", "0", "--host=::1", "--user", "u", "--password=", "--max-clients", "0",
          "--channels", "t.txt", "--print-channels"},
         "::1:0 u/ max 0 [t.txt] print"},
        {{"--port", "65536"}, "--port: '65536' is not a port (0 to 65535)"},
        {{"--port", "-1"}, "--port: '-1' is not a port (0 to 65535)"},
        {{"--max-clients", "1000001"},
         "--max-clients: '1000001' is not a number from 0 to 1000000"},
        // The refusal of a long password does not repeat it.
        {{"--password", std::string(256, 'p')},
         "--password: at most 255 bytes, as a login carries it"},
        {{"--login-timeout", "0", "--max-pending=5", "--password-file", "pw"},
         ":7300 admin/secret max 4 [] login-timeout 0 max-pending 5 password-file pw"},
#ifdef CHANLINK_WITH_TLS
        {{"--tls-cert", "d.pem", "--tls-key", "d.key", "--tls-client-ca", "ca.pem"},
         ":7300 admin/secret max 4 [] tls d.pem+d.key ca.pem"},
        {{"--tls-key", "d.key"}, "--tls-key requires --tls-cert"},
#endif
    };
    for (const Row& row : rows) {
        check(row, "chanlink-device", [&row](std::ostream& err, int& exitCode) {
            std::ostringstream out;
            DeviceOptions options;
            CLI::App app({}, "chanlink-device");
            options.addTo(app);
            const auto status = tool::parseCommandLine(app, row.arguments, out, err);
            exitCode = status.value_or(-1);
            return status ? std::nullopt : std::optional<std::string>(render(options));
        });
    }
}

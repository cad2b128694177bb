#include "DeviceOptions.h"

#include <optional>

#include "ToolCommandLine.h"

void DeviceOptions::addTo(CLI::App& app) {
    app.description("A simulated chanlink device: serves a table of channels over TCP.");
    app.footer(
        "Standard output: one line 'port N' once listening. Standard error: one line\n"
        "per connection event. SIGINT or SIGTERM stops the device (exit 0).\n"
        "Exit codes: 0 stopped, 1 cannot listen, 2 bad options or channel file.");
    // A login carries each in one length byte. The refusal does not repeat
    // the text, which may be a password.
    const CLI::Validator loginField(
        [](const std::string& text) {
            return text.size() <= 255 ? std::string() : "at most 255 bytes, as a login carries it";
        },
        "");
    const auto clients = [](const std::string& text) -> std::optional<std::size_t> {
        const auto value = tool::decimalNumber(text, 0, 1000000);
        return value ? std::optional<std::size_t>(static_cast<std::size_t>(*value)) : std::nullopt;
    };
    tool::addParsed(
        app, "--port", port, [](const std::string& text) { return tool::portNumber(text, 0); },
        "a port (0 to 65535)",
        std::string("port to listen on (default ") + tool::DefaultPort + "; 0 chooses a free one)")
        ->type_name("PORT");
    app.add_option("--host", host,
                   "address to listen on (default: every local address, IPv4 and IPv6)")
        ->type_name("ADDRESS");
    app.add_option("--user", user, "username a client logs in with (default admin)")
        ->check(loginField)
        ->type_name("NAME");
    app.add_option("--password", password, "password a client logs in with (default secret)")
        ->check(loginField)
        ->type_name("TEXT");
    tool::addParsed(app, "--max-clients", maxClients, clients, "a number from 0 to 1000000",
                    "connections that may be logged in at once (default 4)")
        ->type_name("N");
    app.add_option("--channels", channelsFile,
                   "channel table to serve (default: the built-in table)")
        ->type_name("FILE");
    tool::addParsed(
        app, "--capture", captureFile,
        [](const std::string& text) {
            return text.empty() ? std::nullopt : std::optional<std::string>(text);
        },
        "a file name", "record every connection into FILE, a pcap file (passwords masked)")
        ->type_name("FILE");
    app.add_flag("--capture-credentials", captureCredentials,
                 "with --capture: record login passwords as sent");
    app.add_flag("--print-channels", printChannels,
                 "print the channel table in file format and exit");
}

#include "DeviceOptions.h"

#include <chrono>

#include "ToolCommandLine.h"

void DeviceOptions::addTo(CLI::App& app) {
    app.description("A simulated chanlink device: serves a table of channels over TCP or TLS.");
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
    const auto clients = tool::decimalAs<std::size_t>(0, 1000000);
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
    app.add_option("--password", password,
                   "password a client logs in with (default $CHANLINK_DEVICE_PASSWORD, else "
                   "secret); other local users can read it here, prefer --password-file")
        ->envname("CHANLINK_DEVICE_PASSWORD")
        ->check(loginField)
        ->type_name("TEXT");
    app.add_option("--password-file", passwordFile, "read the password from the first line of FILE")
        ->type_name("FILE");
    tool::addParsed(
        app, "--login-timeout", loginTimeout, tool::decimalAs<std::chrono::seconds>(0, 86400),
        "a number of seconds from 0 to 86400",
        "drop a connection not logged in within this many seconds (default 10; 0: never)")
        ->type_name("SECONDS");
    tool::addParsed(app, "--max-pending", maxPending, clients, "a number from 0 to 1000000",
                    "connections without a login at once; more are dropped (default 64; 0: "
                    "no limit)")
        ->type_name("N");
#ifdef CHANLINK_WITH_TLS
    CLI::Option* certificate =
        app.add_option("--tls-cert", tlsCertificate, "serve TLS only, with this certificate (PEM)")
            ->type_name("FILE");
    CLI::Option* key =
        app.add_option("--tls-key", tlsKey, "the key of --tls-cert (PEM)")->type_name("FILE");
    certificate->needs(key);
    key->needs(certificate);
    app.add_option("--tls-client-ca", tlsClientCa,
                   "accept only clients with a certificate issued by these CAs (PEM)")
        ->needs(certificate)
        ->type_name("FILE");
#endif
    tool::addParsed(app, "--max-clients", maxClients, clients, "a number from 0 to 1000000",
                    "connections that may be logged in at once (default 4)")
        ->type_name("N");
    app.add_option("--channels", channelsFile,
                   "channel table to serve (default: the built-in table)")
        ->type_name("FILE");
    tool::addParsed(app, "--capture", captureFile, tool::nonEmpty, "a file name",
                    "record every connection into FILE, a pcap file (passwords masked)")
        ->type_name("FILE");
    app.add_flag("--capture-credentials", captureCredentials,
                 "with --capture: record login passwords as sent");
    app.add_flag("--print-channels", printChannels,
                 "print the channel table in file format and exit");
}

#include "DeviceOptions.h"

namespace {

bool isNumber(const std::string& text, unsigned long long high, unsigned long long& value) {
    if (text.empty() || text.size() > 10) {
        return false;
    }
    value = 0;
    for (char c : text) {
        if (c < '0' || c > '9') {
            return false;
        }
        value = value * 10 + static_cast<unsigned>(c - '0');
    }
    return value <= high;
}

}  // namespace

bool DeviceOptions::parse(const std::vector<std::string>& arguments, std::string& error) {
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        std::string name = arguments[i];
        std::string value;
        bool hasValue = false;
        const std::size_t equals = name.find('=');
        if (name.compare(0, 2, "--") == 0 && equals != std::string::npos) {
            value = name.substr(equals + 1);
            name = name.substr(0, equals);
            hasValue = true;
        }
        if (name == "--help" || name == "-h") {
            help = true;
            continue;
        }
        if (name == "--version") {
            version = true;
            continue;
        }
        if (name == "--print-channels") {
            printChannels = true;
            continue;
        }
        if (name == "--capture-credentials") {
            captureCredentials = true;
            continue;
        }
        if (name != "--port" && name != "--host" && name != "--user" && name != "--password" &&
            name != "--max-clients" && name != "--channels" && name != "--capture") {
            error = "unknown option '" + arguments[i] + "'";
            return false;
        }
        if (!hasValue) {
            if (i + 1 == arguments.size()) {
                error = "option " + name + " needs a value";
                return false;
            }
            value = arguments[++i];
        }
        unsigned long long number = 0;
        if (name == "--port") {
            if (!isNumber(value, 65535, number)) {
                error = "--port must be a number from 0 to 65535, not '" + value + "'";
                return false;
            }
            port = std::to_string(number);
        } else if (name == "--max-clients") {
            if (!isNumber(value, 1000000, number)) {
                error = "--max-clients must be a number from 0 to 1000000, not '" + value + "'";
                return false;
            }
            maxClients = static_cast<std::size_t>(number);
        } else if (name == "--host") {
            host = value;
        } else if (name == "--user") {
            user = value;
        } else if (name == "--password") {
            password = value;
        } else if (name == "--capture") {
            if (value.empty()) {
                error = "--capture needs a file name";
                return false;
            }
            captureFile = value;
        } else {
            channelsFile = value;
        }
    }
    if (user.size() > 255 || password.size() > 255) {
        error = "--user and --password can be at most 255 bytes, as a login carries them";
        return false;
    }
    return true;
}

const char* DeviceOptions::usage() {
    return "Usage: chanlink-device [OPTION]...\n"
           "A simulated chanlink device: serves a table of channels over TCP.\n"
           "\n"
           "  --port PORT         port to listen on (default 7300; 0 chooses a free one)\n"
           "  --host ADDRESS      address to listen on (default: every local address,\n"
           "                      IPv4 and IPv6)\n"
           "  --user NAME         username a client logs in with (default admin)\n"
           "  --password TEXT     password a client logs in with (default secret)\n"
           "  --max-clients N     connections that may be logged in at once (default 4)\n"
           "  --channels FILE     channel table to serve (default: the built-in table)\n"
           "  --capture FILE      record every connection into FILE (pcap; passwords\n"
           "                      masked)\n"
           "  --capture-credentials  leave login passwords readable in the capture\n"
           "  --print-channels    print the channel table in file format and exit\n"
           "  --help              print this help and exit\n"
           "  --version           print the version and exit\n"
           "\n"
           "Standard output: one line 'port N' once listening. Standard error: one line\n"
           "per connection event. SIGINT or SIGTERM stops the device (exit 0).\n"
           "Exit codes: 0 stopped, 1 cannot listen, 2 bad options or channel file.\n";
}

#include "ToolSecrets.h"

#include <arpa/inet.h>
#include <sys/prctl.h>
#include <sys/resource.h>

#include <fstream>

namespace tool {

bool readPasswordFile(const std::string& path, std::string& password, std::string& error) {
    std::ifstream file(path, std::ios::binary);
    password.clear();
    if (!file || (!std::getline(file, password) && !file.eof())) {
        error = "cannot read the password file " + path;
        return false;
    }
    if (!password.empty() && password.back() == '\r') {
        password.pop_back();
    }
    // A login carries the password in one length byte.
    if (password.size() > 255) {
        error = "the password in " + path + " is longer than 255 bytes";
        return false;
    }
    return true;
}

bool hasOption(const std::vector<std::string>& arguments, const std::string& option) {
    for (const std::string& argument : arguments) {
        if (argument == "--") {
            return false;
        }
        if (argument == option || argument.rfind(option + "=", 0) == 0) {
            return true;
        }
    }
    return false;
}

void protectSecrets() {
    // Both: a core_pattern that pipes dumps to a program ignores the size
    // limit, but not the dumpable flag.
    const rlimit none{0, 0};
    ::setrlimit(RLIMIT_CORE, &none);
    ::prctl(PR_SET_DUMPABLE, 0, 0, 0, 0);
}

bool isLoopback(const std::string& host) {
    if (host == "localhost" || host == "ip6-localhost") {
        return true;
    }
    in_addr ipv4{};
    if (::inet_pton(AF_INET, host.c_str(), &ipv4) == 1) {
        return (ntohl(ipv4.s_addr) >> 24) == 127;
    }
    in6_addr ipv6{};
    return ::inet_pton(AF_INET6, host.c_str(), &ipv6) == 1 &&
           (IN6_IS_ADDR_LOOPBACK(&ipv6) ||
            (IN6_IS_ADDR_V4MAPPED(&ipv6) && ipv6.s6_addr[12] == 127));
}

}  // namespace tool

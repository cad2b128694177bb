#pragma once

#include <string>
#include <vector>

namespace tool {

// Sets password to the first line of the file, without its line end. False,
// with error set to one line naming the file (never its content) and
// password no longer to be used, when the file cannot be read or the
// password is longer than a login carries.
bool readPasswordFile(const std::string& path, std::string& password, std::string& error);

// Whether the arguments give option (as "--name VALUE" or "--name=VALUE")
// before any "--".
bool hasOption(const std::vector<std::string>& arguments, const std::string& option);

// Keeps this process's memory, which holds passwords, out of reach: no core
// dump is written, and other processes of the same user can neither attach
// to it nor read its memory or environment. Called first thing in main.
void protectSecrets();

// A name or address that stays on this machine: localhost, 127.0.0.0/8, ::1.
bool isLoopback(const std::string& host);

}  // namespace tool

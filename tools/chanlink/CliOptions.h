#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "ToolDefaults.h"

namespace cli {

// What the command line asks for. Filled by parseArguments.
struct Options {
    enum class Command { Get, Set, Watch, Push };

    Command command = Command::Get;
    std::string host = "localhost";
    std::string port = tool::DefaultPort;
    std::string user = "admin";
    // --password-file's first line, else --password, else
    // $CHANLINK_PASSWORD, else the device simulator's default.
    std::string password = "secret";
    // The password came from the command line, where other users can read it.
    bool passwordOnCommandLine = false;
    // TLS (builds with chanlink_tls): verify the device against caFile or
    // the system's store unless insecure; certificateFile and keyFile for a
    // device that asks for a client certificate.
    bool tls = false;
    std::string caFile;
    std::string certificateFile;
    std::string keyFile;
    bool insecure = false;
    // How long each wait may take: connecting and logging in, then the
    // answers to a get or a set, then the first values of a watch.
    std::chrono::milliseconds timeout{5000};
    // Most bytes the device may leave undecoded (one unfinished frame)
    // before the connection is closed.
    std::size_t maxFrame = 16 * 1024 * 1024;
    bool json = false;
    // Records the connection into this pcap file when not empty.
    std::string captureFile;
    // Leaves the login password readable in the capture.
    bool captureCredentials = false;

    // get, watch: one or more; set: exactly one; push: any number.
    std::vector<std::uint32_t> channels;
    // set: the bytes to write.
    std::vector<unsigned char> data;
    // watch, push: stop after this many printed lines...
    std::optional<std::uint64_t> count;
    // ...or after this long, whichever comes first.
    std::optional<std::chrono::milliseconds> duration;
};

// The options, or the exit status when the command line ends the program.
struct ParseResult {
    std::optional<Options> options;
    int exitCode = 0;
};

// Parses the arguments after the program name (docs/CLI.md). Options may
// come before or after the command and its operands; "--" ends the options.
// --help and --version print to out; a wrong command line prints one error
// line to err and gives the usage exit status.
ParseResult parseArguments(const std::vector<std::string>& arguments, std::ostream& out,
                           std::ostream& err);

}  // namespace cli

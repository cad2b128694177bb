#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

// A classic pcap file of raw IP packets (link type 101, microsecond
// timestamps), as Wireshark and tshark read it without options. Shared by
// every CaptureStream written into the same file; used from one thread.
//
// Writing never stops the connections being recorded: the first failed
// write ends the capture, reports one line to the error handler, and every
// later write is a no-op.
class PcapWriter {
public:
    static constexpr std::uint32_t LinkTypeRaw = 101;
    static constexpr std::uint32_t SnapLength = 65535;

    using ErrorHandler = std::function<void(const std::string& line)>;

    // Creates or truncates the file. An empty pointer, with error set to a
    // one-line reason, when it cannot be opened or is a pipe or socket (where
    // a write could wait for a reader or raise SIGPIPE).
    static std::shared_ptr<PcapWriter> open(const std::string& path, std::string& error);
    // Writes the file header if no packet did, so the file is always a
    // valid capture, and closes the file.
    ~PcapWriter();

    PcapWriter(const PcapWriter&) = delete;
    PcapWriter& operator=(const PcapWriter&) = delete;

    // Receives the one line reporting why capturing stopped ("capture to
    // FILE stopped: No space left on device"). Without one the line goes to
    // standard error.
    void setErrorHandler(ErrorHandler handler);

    // Appends one packet (an IPv4 or IPv6 packet, first byte the version)
    // with its time. False once capturing has stopped.
    bool writePacket(std::chrono::system_clock::time_point when,
                     const std::vector<unsigned char>& packet);

    bool stopped() const { return descriptor < 0; }
    const std::string& path() const { return filePath; }
    // Numbers the streams of this file: 0, 1, 2, ...
    unsigned int nextStreamNumber() { return streams++; }

private:
    PcapWriter(int descriptor, std::string path);
    bool writeAll(const std::vector<unsigned char>& bytes);
    bool writeHeaderOnce();
    void fail(int error);

    int descriptor;
    std::string filePath;
    ErrorHandler errorHandler;
    bool headerWritten = false;
    unsigned int streams = 0;
};

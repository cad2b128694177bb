#include "chanlink/capture/PcapWriter.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <iostream>
#include <utility>

namespace {

void putUint32(std::vector<unsigned char>& out, std::uint32_t value) {
    for (int shift = 0; shift < 32; shift += 8) {
        out.push_back(static_cast<unsigned char>(value >> shift));
    }
}

void putUint16(std::vector<unsigned char>& out, std::uint16_t value) {
    out.push_back(static_cast<unsigned char>(value));
    out.push_back(static_cast<unsigned char>(value >> 8));
}

}  // namespace

std::shared_ptr<PcapWriter> PcapWriter::open(const std::string& path, std::string& error) {
    const int descriptor = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (descriptor < 0) {
        error = "cannot open capture file " + path + ": " + std::strerror(errno);
        return nullptr;
    }
    struct stat status {};
    if (::fstat(descriptor, &status) != 0 || S_ISFIFO(status.st_mode) || S_ISSOCK(status.st_mode)) {
        ::close(descriptor);
        error = "capture file " + path + " is a pipe or socket; give a file";
        return nullptr;
    }
    return std::shared_ptr<PcapWriter>(new PcapWriter(descriptor, path));
}

PcapWriter::PcapWriter(int descriptor, std::string path)
    : descriptor(descriptor), filePath(std::move(path)) {}

PcapWriter::~PcapWriter() {
    if (descriptor >= 0) {
        writeHeaderOnce();
    }
    if (descriptor >= 0) {
        ::close(descriptor);
    }
}

void PcapWriter::setErrorHandler(ErrorHandler handler) {
    errorHandler = std::move(handler);
}

bool PcapWriter::writePacket(std::chrono::system_clock::time_point when,
                             const std::vector<unsigned char>& packet) {
    if (stopped() || !writeHeaderOnce()) {
        return false;
    }
    const auto sinceEpoch =
        std::chrono::duration_cast<std::chrono::microseconds>(when.time_since_epoch()).count();
    const auto length =
        static_cast<std::uint32_t>(std::min<std::size_t>(packet.size(), SnapLength));
    std::vector<unsigned char> record;
    record.reserve(16 + length);
    putUint32(record, static_cast<std::uint32_t>(sinceEpoch / 1000000));
    putUint32(record, static_cast<std::uint32_t>(sinceEpoch % 1000000));
    putUint32(record, length);
    putUint32(record, static_cast<std::uint32_t>(packet.size()));
    record.insert(record.end(), packet.begin(), packet.begin() + length);
    return writeAll(record);
}

bool PcapWriter::writeHeaderOnce() {
    if (headerWritten) {
        return true;
    }
    headerWritten = true;
    std::vector<unsigned char> header;
    putUint32(header, 0xA1B2C3D4);  // microsecond timestamps, in this file's byte order
    putUint16(header, 2);           // format version 2.4
    putUint16(header, 4);
    putUint32(header, 0);  // timestamps are UTC
    putUint32(header, 0);
    putUint32(header, SnapLength);
    putUint32(header, LinkTypeRaw);
    return writeAll(header);
}

bool PcapWriter::writeAll(const std::vector<unsigned char>& bytes) {
    std::size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t written = ::write(descriptor, bytes.data() + done, bytes.size() - done);
        if (written < 0 && errno == EINTR) {
            continue;
        }
        if (written <= 0) {
            fail(written < 0 ? errno : ENOSPC);
            return false;
        }
        done += static_cast<std::size_t>(written);
    }
    return true;
}

void PcapWriter::fail(int error) {
    ::close(descriptor);
    descriptor = -1;
    const std::string line = "capture to " + filePath + " stopped: " + std::strerror(error);
    if (errorHandler) {
        errorHandler(line);
    } else {
        std::cerr << "chanlink: " << line << std::endl;
    }
}

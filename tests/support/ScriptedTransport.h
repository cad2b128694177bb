#pragma once

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "chanlink/transport/Transport.h"

namespace testing_support {

// A transport whose far end is the test: bytes to be read are pushed with
// feed(), everything written is kept in written(). Each write takes at most
// writeLimit bytes and each read gives at most readLimit, so short writes and
// reads split anywhere can be produced. Calls are logged for order checks.
class ScriptedTransport : public Transport {
public:
    void feed(const std::vector<unsigned char>& bytes) {
        incoming.insert(incoming.end(), bytes.begin(), bytes.end());
    }

    int read(void* buffer, int length) override {
        calls.push_back("read");
        const int n = std::min({length, readLimit, static_cast<int>(incoming.size())});
        if (n <= 0) {
            return 0;
        }
        std::memcpy(buffer, incoming.data(), static_cast<std::size_t>(n));
        incoming.erase(incoming.begin(), incoming.begin() + n);
        return n;
    }

    int write(const void* buffer, int length) override {
        calls.push_back("write");
        writeSizes.push_back(length);
        const int n = std::min(length, writeLimit);
        if (n <= 0) {
            return 0;
        }
        const auto* bytes = static_cast<const unsigned char*>(buffer);
        outgoing.insert(outgoing.end(), bytes, bytes + n);
        return n;
    }

    void tick() override { calls.push_back("tick"); }

    // Bytes written so far, and forgets them.
    std::vector<unsigned char> takeWritten() {
        std::vector<unsigned char> taken;
        taken.swap(outgoing);
        return taken;
    }
    const std::vector<unsigned char>& written() const { return outgoing; }
    std::size_t unread() const { return incoming.size(); }

    int readLimit = 1 << 30;
    int writeLimit = 1 << 30;
    std::vector<std::string> calls;
    std::vector<int> writeSizes;  // the length offered by each write call

private:
    std::vector<unsigned char> incoming;
    std::vector<unsigned char> outgoing;
};

}  // namespace testing_support

#pragma once

#include <algorithm>
#include <cstring>
#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "chanlink/transport/PollableTransport.h"
#include "chanlink/transport/Transport.h"

namespace testing_support {

// Two in-memory transports joined back to back: what one end writes, the
// other reads. Each direction holds at most capacity bytes. An end's tick()
// runs its hook first, so a scripted peer can serve inside the client's own
// tick (the library has no threads, and neither do these tests). Alone, an
// end's far side is the test: feed() what it reads, takeWritten() what it
// wrote; writeLimit makes short writes, and calls logs the order of calls.
class MemoryTransport : public Transport, public PollableTransport {
public:
    using Bytes = std::deque<unsigned char>;

    MemoryTransport(std::shared_ptr<Bytes> in, std::shared_ptr<Bytes> out, int capacity)
        : in(std::move(in)), out(std::move(out)), capacity(capacity) {}
    MemoryTransport()
        : MemoryTransport(std::make_shared<Bytes>(), std::make_shared<Bytes>(), 1 << 30) {}

    void feed(const std::vector<unsigned char>& bytes) {
        in->insert(in->end(), bytes.begin(), bytes.end());
    }
    std::vector<unsigned char> written() const { return {out->begin(), out->end()}; }
    std::vector<unsigned char> takeWritten() {
        const auto taken = written();
        out->clear();
        return taken;
    }

    int read(void* buffer, int length) override {
        calls += 'r';
        const int n = closed ? 0 : std::min(length, static_cast<int>(in->size()));
        if (n <= 0 || buffer == nullptr) {
            return 0;
        }
        std::copy(in->begin(), in->begin() + n, static_cast<unsigned char*>(buffer));
        in->erase(in->begin(), in->begin() + n);
        return n;
    }

    int write(const void* buffer, int length) override {
        calls += 'w';
        writeSizes.push_back(length);
        connecting = false;
        const int n =
            closed ? 0 : std::min({length, writeLimit, capacity - static_cast<int>(out->size())});
        if (n <= 0 || buffer == nullptr) {
            return 0;
        }
        const auto* bytes = static_cast<const unsigned char*>(buffer);
        out->insert(out->end(), bytes, bytes + n);
        return n;
    }

    void tick() override {
        calls += 't';
        if (onTick) {
            onTick();
        }
    }

    // No socket to wait on; Closed once close() was called.
    TransportPoll pollState() const override {
        TransportPoll state;
        state.state = closed       ? ConnectionOutcome::Closed
                      : connecting ? ConnectionOutcome::Connecting
                                   : ConnectionOutcome::Connected;
        return state;
    }
    void close() override { closed = true; }
    // Bytes waiting to be read by this end.
    std::size_t readable() const { return in->size(); }

    std::function<void()> onTick;
    bool closed = false;
    // Connecting until the next write, which connects and moves its bytes in
    // one call, as a TLS write that finishes the handshake does.
    bool connecting = false;
    int writeLimit = 1 << 30;
    std::string calls;            // r, w or t for each read, write and tick
    std::vector<int> writeSizes;  // the length offered by each write call

private:
    std::shared_ptr<Bytes> in;
    std::shared_ptr<Bytes> out;
    int capacity;
};

// {client end, peer end}.
inline std::pair<std::shared_ptr<MemoryTransport>, std::shared_ptr<MemoryTransport>>
makeTransportPair(int capacity = 1 << 20) {
    auto toPeer = std::make_shared<MemoryTransport::Bytes>();
    auto toClient = std::make_shared<MemoryTransport::Bytes>();
    return {std::make_shared<MemoryTransport>(toClient, toPeer, capacity),
            std::make_shared<MemoryTransport>(toPeer, toClient, capacity)};
}

}  // namespace testing_support

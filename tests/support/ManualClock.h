#pragma once

#include <poll.h>

#include <algorithm>
#include <chrono>
#include <functional>

#include "chanlink/client/ClientClock.h"

namespace testing_support {

// A clock that moves only when told to, so that timeouts and back-off are
// tested without sleeping. waitFor first runs onWait (where a test serves its
// device), then looks at the descriptor, waiting for it at most pollLimit of
// real time (0 by default: not at all); when it is not ready, the whole
// timeout passes at once.
class ManualClock : public ClientClock {
public:
    TimePoint now() override { return current; }

    bool waitFor(int descriptor, short events, std::chrono::milliseconds timeout) override {
        ++waits;
        if (onWait) {
            onWait();
        }
        if (descriptor >= 0) {
            pollfd entry{descriptor, events, 0};
            const auto limit = std::min(timeout, pollLimit).count();
            if (::poll(&entry, 1, limit > 0 ? static_cast<int>(limit) : 0) > 0 &&
                entry.revents != 0) {
                return true;
            }
        }
        if (timeout.count() > 0) {
            advance(timeout);
        }
        return false;
    }

    void advance(std::chrono::milliseconds step) {
        current += step;
        waited += step;
    }

    // Time passed through waits and advance() since construction.
    std::chrono::milliseconds waited{0};
    // Calls of waitFor.
    int waits = 0;
    std::function<void()> onWait;
    std::chrono::milliseconds pollLimit{0};

private:
    TimePoint current = TimePoint() + std::chrono::hours(1);
};

}  // namespace testing_support

#include "chanlink/client/ClientClock.h"

#include <poll.h>

#include <climits>

namespace {

class SystemClock : public ClientClock {
public:
    TimePoint now() override { return std::chrono::steady_clock::now(); }

    bool waitFor(int descriptor, short events, std::chrono::milliseconds timeout) override {
        const long long milliseconds = timeout.count() < 0 ? 0 : timeout.count();
        const int limit = milliseconds > INT_MAX ? INT_MAX : static_cast<int>(milliseconds);
        if (descriptor < 0) {
            if (limit > 0) {
                ::poll(nullptr, 0, limit);
            }
            return false;
        }
        pollfd entry{};
        entry.fd = descriptor;
        entry.events = events;
        return ::poll(&entry, 1, limit) > 0 && entry.revents != 0;
    }
};

}  // namespace

ClientClock::~ClientClock() = default;

std::shared_ptr<ClientClock> ClientClock::system() {
    static const std::shared_ptr<ClientClock> clock = std::make_shared<SystemClock>();
    return clock;
}

ClientClock::TimePoint ClientClock::deadlineAfter(TimePoint now,
                                                  std::chrono::milliseconds timeout) {
    if (timeout.count() <= 0) {
        return now;
    }
    // Compared in milliseconds: converting a huge timeout to the clock's
    // finer unit would overflow.
    const auto room = std::chrono::duration_cast<std::chrono::milliseconds>(TimePoint::max() - now);
    return timeout >= room ? TimePoint::max() : now + timeout;
}

std::chrono::milliseconds ClientClock::remainingUntil(TimePoint now, TimePoint deadline) {
    if (deadline <= now) {
        return std::chrono::milliseconds(0);
    }
    return std::chrono::ceil<std::chrono::milliseconds>(deadline - now);
}

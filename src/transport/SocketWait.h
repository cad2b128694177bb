#pragma once

// Internal: waiting on one socket without undefined behaviour for any descriptor.

#include <poll.h>
#include <sys/select.h>

#include <climits>

namespace chanlink_detail {

enum class SocketWait { Ready, Timeout, Failed };

// Waits up to the given time for the socket to become readable or writable,
// with select as the connection code always has. select cannot hold
// descriptors at or above FD_SETSIZE (FD_SET would write out of bounds), so
// those are waited on with poll, which answers the same question. An invalid
// time (negative, or microseconds of a second or more) fails as select does.
inline SocketWait waitForSocket(int socket, bool forWriting, long seconds, long microseconds) {
    if (socket < 0 || seconds < 0 || microseconds < 0 || microseconds >= 1000000) {
        return SocketWait::Failed;
    }
    if (socket < FD_SETSIZE) {
        fd_set set;
        FD_ZERO(&set);
        FD_SET(socket, &set);
        timeval timeout{};
        timeout.tv_sec = seconds;
        timeout.tv_usec = microseconds;
        const int result = forWriting ? ::select(socket + 1, nullptr, &set, nullptr, &timeout)
                                      : ::select(socket + 1, &set, nullptr, nullptr, &timeout);
        if (result == 0) {
            return SocketWait::Timeout;
        }
        return result == 1 && FD_ISSET(socket, &set) ? SocketWait::Ready : SocketWait::Failed;
    }
    pollfd entry{};
    entry.fd = socket;
    entry.events = forWriting ? POLLOUT : POLLIN;
    const long long milliseconds =
        static_cast<long long>(seconds) * 1000 + (microseconds + 999) / 1000;
    const int result =
        ::poll(&entry, 1, milliseconds > INT_MAX ? INT_MAX : static_cast<int>(milliseconds));
    if (result == 0) {
        return SocketWait::Timeout;
    }
    return result == 1 && (entry.revents & (forWriting ? POLLOUT : POLLIN)) != 0
               ? SocketWait::Ready
               : SocketWait::Failed;
}

}  // namespace chanlink_detail

#include "SocketFaults.h"

#include <dlfcn.h>
#include <sys/socket.h>
#include <sys/types.h>

#include <atomic>
#include <cerrno>

namespace {

std::atomic<int> recvDescriptor{-1};
std::atomic<int> recvError{0};
std::atomic<int> sendDescriptor{-1};
std::atomic<int> sendError{0};

template <typename Function>
Function next(const char* name) {
    return reinterpret_cast<Function>(::dlsym(RTLD_NEXT, name));
}

}  // namespace

namespace socket_faults {

void failNextRecv(int descriptor, int error) {
    recvError = error;
    recvDescriptor = descriptor;
}

void failNextSend(int descriptor, int error) {
    sendError = error;
    sendDescriptor = descriptor;
}

void clear() {
    recvDescriptor = -1;
    sendDescriptor = -1;
}

}  // namespace socket_faults

extern "C" ssize_t recv(int descriptor, void* buffer, size_t length, int flags) {
    int armed = descriptor;
    if (descriptor >= 0 && recvDescriptor.compare_exchange_strong(armed, -1)) {
        errno = recvError;
        return -1;
    }
    using Recv = ssize_t (*)(int, void*, size_t, int);
    static const Recv real = next<Recv>("recv");
    return real(descriptor, buffer, length, flags);
}

extern "C" ssize_t send(int descriptor, const void* buffer, size_t length, int flags) {
    int armed = descriptor;
    if (descriptor >= 0 && sendDescriptor.compare_exchange_strong(armed, -1)) {
        errno = sendError;
        return -1;
    }
    using Send = ssize_t (*)(int, const void*, size_t, int);
    static const Send real = next<Send>("send");
    return real(descriptor, buffer, length, flags);
}

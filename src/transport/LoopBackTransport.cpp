#include "chanlink/transport/LoopBackTransport.h"

#include <cstring>

LoopBackTransport::LoopBackTransport(int capacity) : capacity(capacity > 0 ? capacity : 0) {}

LoopBackTransport::~LoopBackTransport() = default;

int LoopBackTransport::read(void* destination, int length) {
    if (destination == nullptr) {
        return 0;
    }
    // The length is compared as an unsigned number, as it always has been: a
    // negative one asks for everything buffered.
    const std::size_t requested = static_cast<unsigned int>(length);
    const std::size_t count = requested < buffer.size() ? requested : buffer.size();
    if (count == 0) {
        return 0;
    }
    std::memcpy(destination, buffer.data(), count);
    buffer.erase(buffer.begin(), buffer.begin() + static_cast<std::ptrdiff_t>(count));
    return static_cast<int>(count);
}

int LoopBackTransport::write(const void* source, int length) {
    if (length <= 0 || source == nullptr) {
        return 0;
    }
    const int room = capacity - static_cast<int>(buffer.size());
    const int count = length <= room ? length : room;
    if (count > 0) {
        const auto* bytes = static_cast<const unsigned char*>(source);
        buffer.insert(buffer.end(), bytes, bytes + count);
    }
    return count > 0 ? count : 0;
}

void LoopBackTransport::tick() {}

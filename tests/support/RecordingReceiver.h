#pragma once

#include <cstddef>
#include <vector>

#include "chanlink/flow/Receiver.h"

namespace testing_support {

// Keeps a copy of every item it receives, in order.
template <typename T>
class RecordingReceiver : public Receiver<T> {
public:
    void receive(const T& item) override { items.push_back(item); }

    const std::vector<T>& received() const { return items; }
    std::size_t count() const { return items.size(); }
    void clear() { items.clear(); }

private:
    std::vector<T> items;
};

}  // namespace testing_support

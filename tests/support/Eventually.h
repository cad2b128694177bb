#pragma once

#include <chrono>
#include <thread>

namespace testing_support {

// Calls condition until it returns true or the limit passes; true if it did.
// Every wait on I/O in the tests goes through a bound like this one, so a bug
// fails a test instead of hanging it.
template <typename Condition>
bool eventually(Condition condition,
                std::chrono::milliseconds limit = std::chrono::milliseconds(5000)) {
    const auto deadline = std::chrono::steady_clock::now() + limit;
    for (; !condition(); std::this_thread::yield()) {
        if (std::chrono::steady_clock::now() > deadline) {
            return false;
        }
    }
    return true;
}

}  // namespace testing_support

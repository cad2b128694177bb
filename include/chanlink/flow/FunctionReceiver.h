#pragma once

#include <functional>
#include <memory>
#include <type_traits>
#include <utility>

#include "chanlink/flow/Receiver.h"

// A receiver that calls a function with each item, so that an application
// needs no class of its own per callback:
//
//     session->addLoginOutcomeReceiver(makeReceiver<LoginOutcome>(
//         [](const LoginOutcome& outcome) { ... }));
//
// The function is called on the thread and inside the call that delivers the
// item; it may add and remove receivers and send new requests.
template <typename T>
class FunctionReceiver : public Receiver<T> {
public:
    using Function = std::function<void(const T&)>;

    // An empty function makes a receiver that ignores every item.
    explicit FunctionReceiver(Function function) : function(std::move(function)) {}

    void receive(const T& item) override {
        if (function) {
            function(item);
        }
    }

private:
    Function function;
};

// A new FunctionReceiver<T> calling function, which must be callable with a
// const T&; its result, if any, is ignored.
template <typename T, typename F>
std::shared_ptr<Receiver<T>> makeReceiver(F&& function) {
    static_assert(std::is_invocable<std::decay_t<F>&, const T&>::value,
                  "the function must be callable with a const T&");
    return std::make_shared<FunctionReceiver<T>>(
        typename FunctionReceiver<T>::Function(std::forward<F>(function)));
}

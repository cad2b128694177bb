#pragma once

#include <list>
#include <memory>
#include <utility>

#include "chanlink/flow/Receiver.h"

// A receiver of In that converts each item into zero or more Out items and
// passes them, in order, to one downstream receiver fixed at construction.
template <typename In, typename Out>
class Transform : public Receiver<In> {
public:
    // receiver may be empty: the output is then dropped silently.
    explicit Transform(std::shared_ptr<Receiver<Out>> receiver) : receiver(std::move(receiver)) {}

    // Forwards every element that transform returns, front to back.
    void receive(const In& item) override {
        // Local copy: the downstream receiver may destroy this transform, and
        // the downstream must outlive the loop either way.
        const std::shared_ptr<Receiver<Out>> downstream = receiver;
        const std::list<Out> outputs = transform(item);
        for (const Out& output : outputs) {
            if (downstream) {
                downstream->receive(output);
            }
        }
    }

    // The items that item turns into; possibly none.
    virtual std::list<Out> transform(const In& item) = 0;

private:
    const std::shared_ptr<Receiver<Out>> receiver;
};

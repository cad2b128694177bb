#pragma once

// The interface of every data path: accepts one item at a time. Receivers are
// connected by std::shared_ptr, so a receiver lives at least as long as
// anything that can still deliver to it.
template <typename T>
class Receiver {
public:
    virtual ~Receiver() = default;

    // Accepts one item. The reference is valid only during the call; a
    // receiver that keeps the item copies it.
    virtual void receive(const T& item) = 0;

protected:
    Receiver() = default;
    Receiver(const Receiver&) = default;
    Receiver(Receiver&&) noexcept = default;
    Receiver& operator=(const Receiver&) = default;
    Receiver& operator=(Receiver&&) noexcept = default;
};

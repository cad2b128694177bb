#pragma once

#include <list>
#include <memory>
#include <type_traits>
#include <typeinfo>
#include <utility>

#include "chanlink/flow/Transform.h"

// Picks out of a stream of In (in practice Message) the items whose most
// derived class is exactly T, and passes on a copy of each as a T. The
// selection is by concrete class, not by opcode: an In that merely carries
// T's opcode, or an object of a subclass of T, yields nothing. Used as
// TypedTransform<Message, GetResponse>.
template <typename In, typename T>
class TypedTransform : public Transform<In, T> {
    static_assert(std::is_polymorphic<In>::value, "the selection needs run-time type information");
    static_assert(std::is_base_of<In, T>::value, "T must derive from In");

public:
    explicit TypedTransform(std::shared_ptr<Receiver<T>> receiver)
        : Transform<In, T>(std::move(receiver)) {}

    // One copy of item as a T when its dynamic type is exactly T, else nothing.
    std::list<T> transform(const In& item) override {
        std::list<T> selected;
        if (typeid(item) == typeid(T)) {
            selected.push_back(static_cast<const T&>(item));
        }
        return selected;
    }
};

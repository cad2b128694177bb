#pragma once

// Internal: the read of every message class.

#include <memory>
#include <vector>

#include "chanlink/messages/Message.h"

namespace chanlink_detail {

// Class::read: a Class holding a copy of payload when Class::validate
// accepts it, otherwise an empty pointer.
template <class Class>
std::shared_ptr<const Message> readValidated(const std::vector<unsigned char>& payload) {
    if (!Class::validate(payload)) {
        return nullptr;
    }
    return Message::createShared(new Class(payload));
}

}  // namespace chanlink_detail

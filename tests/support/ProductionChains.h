#pragma once

#include <memory>

#include "chanlink/messages/MessageProductionChain.h"

namespace testing_support {

// The five producers a client registers: login, get, set and subscription
// responses and error responses.
std::shared_ptr<MessageProductionChain> clientProductionChain();

// A producer for every opcode there is, as a device or a test peer would
// register them (opcode 3 produces SubscriptionRequest).
std::shared_ptr<MessageProductionChain> completeProductionChain();

}  // namespace testing_support

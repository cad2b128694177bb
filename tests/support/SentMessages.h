#pragma once

#include <memory>
#include <string>
#include <vector>

#include "chanlink/flow/Receiver.h"
#include "chanlink/messages/Message.h"
#include "support/Bytes.h"

namespace testing_support {

// Stands where requests go (a queue, a valve) and keeps their payloads as hex
// text, so that tests compare the exact wire order of what was sent.
class SentMessages : public Receiver<std::shared_ptr<const Message>> {
public:
    void receive(const std::shared_ptr<const Message>& message) override {
        sent.push_back(message ? hex(message->write()) : std::string("<empty>"));
    }
    // Everything sent since the last call, and forgets it.
    std::vector<std::string> take() {
        std::vector<std::string> taken;
        taken.swap(sent);
        return taken;
    }
    std::vector<std::string> sent;
};

}  // namespace testing_support

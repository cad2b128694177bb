#pragma once

#include <memory>
#include <vector>

#include "chanlink/client/SetOutcome.h"
#include "chanlink/flow/Receiver.h"

// One requested set: the channel, the value to write and who hears the
// outcome (may be empty). Copies share the receiver.
class QueuedSetOperation {
public:
    QueuedSetOperation(unsigned int channelId, std::vector<unsigned char> data,
                       std::shared_ptr<Receiver<SetOutcome>> receiver)
        : channelId(channelId), data(std::move(data)), receiver(std::move(receiver)) {}

    unsigned int channelId;
    std::vector<unsigned char> data;
    std::shared_ptr<Receiver<SetOutcome>> receiver;
};

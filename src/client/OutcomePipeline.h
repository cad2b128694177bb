#pragma once

#include <list>
#include <memory>

#include "chanlink/flow/Receiver.h"
#include "chanlink/flow/TypedTransform.h"
#include "chanlink/messages/ErrorResponse.h"
#include "chanlink/messages/Message.h"
#include "chanlink/messages/OpCode.h"

// What the get and the set outcome pipelines share.

// One failed outcome, with the server's reason code, for an error response to
// a request with opcode answered; errors about other requests give none.
template <typename Outcome>
std::list<Outcome> outcomesOfError(const ErrorResponse& error, OpCode answered) {
    if (error.getTriggeringOpCode() != answered) {
        return {};
    }
    return {Outcome(error)};
}

// Makes the converter feeding target, then the filter of Response messages
// feeding the converter, in that order.
template <typename Response, typename Converter, typename Outcome>
void connectConverter(std::shared_ptr<TypedTransform<Message, Response>>& filter,
                      std::shared_ptr<Converter>& converter,
                      const std::shared_ptr<Receiver<Outcome>>& target) {
    converter = std::make_shared<Converter>(target);
    filter = std::make_shared<TypedTransform<Message, Response>>(converter);
}

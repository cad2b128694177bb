#pragma once

#include <memory>

#include "chanlink/client/ErrorResponseToSetOutcomeTransform.h"
#include "chanlink/client/SetOutcome.h"
#include "chanlink/client/SetResponseToSetOutcomeTransform.h"
#include "chanlink/flow/Receiver.h"
#include "chanlink/flow/TypedTransform.h"
#include "chanlink/messages/Message.h"

// Turns received messages into set outcomes for the receiver: a set response
// becomes a success, an error response to a set a failure with the server's
// reason code. Every other message gives nothing.
class SetOutcomeTransform : public Receiver<Message> {
public:
    explicit SetOutcomeTransform(std::shared_ptr<Receiver<SetOutcome>> receiver);
    ~SetOutcomeTransform() override;

    SetOutcomeTransform(const SetOutcomeTransform&) = delete;
    SetOutcomeTransform& operator=(const SetOutcomeTransform&) = delete;

    void receive(const Message& message) override;

private:
    std::shared_ptr<TypedTransform<Message, SetResponse>> setResponseFilter;
    std::shared_ptr<TypedTransform<Message, ErrorResponse>> errorResponseFilter;
    std::shared_ptr<SetResponseToSetOutcomeTransform> setResponseConverter;
    std::shared_ptr<ErrorResponseToSetOutcomeTransform> errorResponseConverter;
};

#pragma once

#include <memory>

#include "chanlink/client/ErrorResponseToGetOutcomeTransform.h"
#include "chanlink/client/GetOutcome.h"
#include "chanlink/client/GetResponseToGetOutcomeTransform.h"
#include "chanlink/flow/Receiver.h"
#include "chanlink/flow/TypedTransform.h"
#include "chanlink/messages/Message.h"

// Turns received messages into get outcomes for the target: each value of a
// get response becomes a successful outcome, an error response to a get a
// failed one. Every other message gives nothing.
class GetOutcomeTransform : public Receiver<Message> {
public:
    explicit GetOutcomeTransform(std::shared_ptr<Receiver<GetOutcome>> target);
    ~GetOutcomeTransform() override;

    GetOutcomeTransform(const GetOutcomeTransform&) = delete;
    GetOutcomeTransform& operator=(const GetOutcomeTransform&) = delete;

    void receive(const Message& message) override;

private:
    std::shared_ptr<TypedTransform<Message, GetResponse>> getResponseFilter;
    std::shared_ptr<TypedTransform<Message, ErrorResponse>> errorResponseFilter;
    std::shared_ptr<GetResponseToGetOutcomeTransform> getResponseConverter;
    std::shared_ptr<ErrorResponseToGetOutcomeTransform> errorResponseConverter;
};

#include "chanlink/client/SetOutcomeTransform.h"

SetOutcomeTransform::SetOutcomeTransform(std::shared_ptr<Receiver<SetOutcome>> receiver) {
    setResponseConverter = std::make_shared<SetResponseToSetOutcomeTransform>(receiver);
    setResponseFilter =
        std::make_shared<TypedTransform<Message, SetResponse>>(setResponseConverter);
    errorResponseConverter = std::make_shared<ErrorResponseToSetOutcomeTransform>(receiver);
    errorResponseFilter =
        std::make_shared<TypedTransform<Message, ErrorResponse>>(errorResponseConverter);
}

SetOutcomeTransform::~SetOutcomeTransform() = default;

void SetOutcomeTransform::receive(const Message& message) {
    setResponseFilter->receive(message);
    errorResponseFilter->receive(message);
}

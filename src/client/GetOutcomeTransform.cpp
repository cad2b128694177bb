#include "chanlink/client/GetOutcomeTransform.h"

GetOutcomeTransform::GetOutcomeTransform(std::shared_ptr<Receiver<GetOutcome>> target) {
    getResponseConverter = std::make_shared<GetResponseToGetOutcomeTransform>(target);
    getResponseFilter =
        std::make_shared<TypedTransform<Message, GetResponse>>(getResponseConverter);
    errorResponseConverter = std::make_shared<ErrorResponseToGetOutcomeTransform>(target);
    errorResponseFilter =
        std::make_shared<TypedTransform<Message, ErrorResponse>>(errorResponseConverter);
}

GetOutcomeTransform::~GetOutcomeTransform() = default;

void GetOutcomeTransform::receive(const Message& message) {
    getResponseFilter->receive(message);
    errorResponseFilter->receive(message);
}

#include "chanlink/client/ErrorResponseToGetOutcomeTransform.h"

#include "chanlink/messages/GetRequest.h"

ErrorResponseToGetOutcomeTransform::ErrorResponseToGetOutcomeTransform(
    std::shared_ptr<Receiver<GetOutcome>> receiver)
    : Transform<ErrorResponse, GetOutcome>(std::move(receiver)) {}

ErrorResponseToGetOutcomeTransform::~ErrorResponseToGetOutcomeTransform() = default;

std::list<GetOutcome> ErrorResponseToGetOutcomeTransform::transform(const ErrorResponse& error) {
    if (error.getTriggeringOpCode() != GetRequest::Code) {
        return {};
    }
    return {GetOutcome(error)};
}

#include "chanlink/client/ErrorResponseToSetOutcomeTransform.h"

#include "chanlink/messages/SetRequest.h"

ErrorResponseToSetOutcomeTransform::ErrorResponseToSetOutcomeTransform(
    std::shared_ptr<Receiver<SetOutcome>> receiver)
    : Transform<ErrorResponse, SetOutcome>(std::move(receiver)) {}

ErrorResponseToSetOutcomeTransform::~ErrorResponseToSetOutcomeTransform() = default;

std::list<SetOutcome> ErrorResponseToSetOutcomeTransform::transform(const ErrorResponse& error) {
    if (error.getTriggeringOpCode() != SetRequest::Code) {
        return {};
    }
    return {SetOutcome(error)};
}

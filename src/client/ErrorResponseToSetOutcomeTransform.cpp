#include "chanlink/client/ErrorResponseToSetOutcomeTransform.h"

#include "OutcomePipeline.h"
#include "chanlink/messages/SetRequest.h"

std::list<SetOutcome> ErrorResponseToSetOutcomeTransform::transform(const ErrorResponse& error) {
    return outcomesOfError<SetOutcome>(error, SetRequest::Code);
}

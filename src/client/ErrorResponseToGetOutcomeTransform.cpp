#include "chanlink/client/ErrorResponseToGetOutcomeTransform.h"

#include "OutcomePipeline.h"
#include "chanlink/messages/GetRequest.h"

std::list<GetOutcome> ErrorResponseToGetOutcomeTransform::transform(const ErrorResponse& error) {
    return outcomesOfError<GetOutcome>(error, GetRequest::Code);
}

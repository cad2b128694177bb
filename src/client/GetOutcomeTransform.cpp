#include "chanlink/client/GetOutcomeTransform.h"

#include "OutcomePipeline.h"

GetOutcomeTransform::GetOutcomeTransform(std::shared_ptr<Receiver<GetOutcome>> target) {
    connectConverter(getResponseFilter, getResponseConverter, target);
    connectConverter(errorResponseFilter, errorResponseConverter, target);
}

GetOutcomeTransform::~GetOutcomeTransform() = default;

void GetOutcomeTransform::receive(const Message& message) {
    getResponseFilter->receive(message);
    errorResponseFilter->receive(message);
}

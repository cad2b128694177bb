#include "chanlink/client/SetOutcomeTransform.h"

#include "OutcomePipeline.h"

SetOutcomeTransform::SetOutcomeTransform(std::shared_ptr<Receiver<SetOutcome>> receiver) {
    connectConverter(setResponseFilter, setResponseConverter, receiver);
    connectConverter(errorResponseFilter, errorResponseConverter, receiver);
}

SetOutcomeTransform::~SetOutcomeTransform() = default;

void SetOutcomeTransform::receive(const Message& message) {
    setResponseFilter->receive(message);
    errorResponseFilter->receive(message);
}

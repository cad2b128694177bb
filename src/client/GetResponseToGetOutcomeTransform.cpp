#include "chanlink/client/GetResponseToGetOutcomeTransform.h"

GetResponseToGetOutcomeTransform::GetResponseToGetOutcomeTransform(
    std::shared_ptr<Receiver<GetOutcome>> receiver)
    : Transform<GetResponse, GetOutcome>(std::move(receiver)) {}

GetResponseToGetOutcomeTransform::~GetResponseToGetOutcomeTransform() = default;

std::list<GetOutcome> GetResponseToGetOutcomeTransform::transform(const GetResponse& response) {
    std::list<GetOutcome> outcomes;
    for (const ChannelValue& value : response.getChannelValues()) {
        outcomes.emplace_back(value);
    }
    return outcomes;
}

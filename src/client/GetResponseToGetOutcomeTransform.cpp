#include "chanlink/client/GetResponseToGetOutcomeTransform.h"

std::list<GetOutcome> GetResponseToGetOutcomeTransform::transform(const GetResponse& response) {
    std::list<GetOutcome> outcomes;
    for (const ChannelValue& value : response.getChannelValues()) {
        outcomes.emplace_back(value);
    }
    return outcomes;
}

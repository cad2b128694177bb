#include "chanlink/processing/ChannelIdMappingTransform.h"

ChannelIdMappingTransform::ChannelIdMappingTransform(std::shared_ptr<Receiver<GetOutcome>> receiver)
    : Transform<GetOutcome, GetOutcome>(std::move(receiver)) {}

ChannelIdMappingTransform::~ChannelIdMappingTransform() = default;

void ChannelIdMappingTransform::addMapping(const unsigned int& from, const unsigned int& to) {
    mappings[from] = to;
}

std::list<GetOutcome> ChannelIdMappingTransform::transform(const GetOutcome& outcome) {
    const auto found = mappings.find(outcome.getChannelId());
    if (found == mappings.end()) {
        return {outcome};
    }
    return {
        GetOutcome(found->second, outcome.getHeader(), outcome.getData(), outcome.getReasonCode())};
}

#pragma once

#include <list>
#include <map>
#include <memory>

#include "chanlink/client/GetOutcome.h"
#include "chanlink/flow/Transform.h"

// Renames channel ids, so that device channels can appear under the
// application's own numbers. Outcomes of unmapped channels pass through
// unchanged; success and failure pass through under the new id.
class ChannelIdMappingTransform : public Transform<GetOutcome, GetOutcome> {
public:
    explicit ChannelIdMappingTransform(std::shared_ptr<Receiver<GetOutcome>> receiver);
    ~ChannelIdMappingTransform() override;

    // Maps from to to, replacing an earlier mapping of from.
    void addMapping(const unsigned int& from, const unsigned int& to);

    // Always exactly one outcome.
    std::list<GetOutcome> transform(const GetOutcome& outcome) override;

private:
    std::map<unsigned int, unsigned int> mappings;
};

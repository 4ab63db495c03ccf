// Lookups in the catalogue.
#include "moxphone/CatalogueSource.h"

#include "moxphone/ResponseDatabase.h"

namespace moxphone {

DiscAnswer CatalogueSource::lookUp(const std::string& toc, LookupControl& /*control*/) const {
    DiscAnswer answer;
    const CatalogueDisc* disc = mCatalogue->findDisc(toc);
    if (disc == nullptr) {
        answer.summary = "the disc is not in the catalogue";
        return answer;
    }
    answer.outcome = DiscAnswer::Outcome::kFound;
    answer.database = ResponseDatabase::build(*mCatalogue, *disc);
    const size_t candidates = disc->candidates.size();
    answer.summary = "the disc is in the catalogue: " + std::to_string(candidates) +
                     (candidates == 1 ? " candidate" : " candidates") +
                     ", a response database of " + std::to_string(answer.database.size()) +
                     " bytes";
    return answer;
}

}  // namespace moxphone

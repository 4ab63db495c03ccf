// The catalogue as a source of the phone: a disc of the catalogue is found
// with its candidates, any other TOC text is not.
#ifndef MOXPHONE_CATALOGUESOURCE_H
#define MOXPHONE_CATALOGUESOURCE_H

#include <memory>

#include "moxphone/Catalogue.h"
#include "moxphone/DiscSource.h"

namespace moxphone {

class CatalogueSource : public DiscSource {
public:
    explicit CatalogueSource(std::shared_ptr<const Catalogue> catalogue)
        : mCatalogue(std::move(catalogue)) {}

    bool answersAtOnce() const override { return true; }
    DiscAnswer lookUp(const std::string& toc, LookupControl& control) const override;

private:
    std::shared_ptr<const Catalogue> mCatalogue;
};

}  // namespace moxphone

#endif  // MOXPHONE_CATALOGUESOURCE_H

// The identifiers of the albums that a search found, in order: from the
// module's album list, or from the "albums" array of a tool's JSON output.
//
//   EXPECT_EQ(moxtest::albumIds(albums), (std::vector<std::string>{"HIGH", "LOW"}));
//   EXPECT_EQ(moxtest::albumIds(out.at("albums")), (std::vector<std::string>{"MOXS-0001"}));
#ifndef MOX_TESTS_ALBUMIDS_H
#define MOX_TESTS_ALBUMIDS_H

#include <list>
#include <string>
#include <vector>

#include "HbSMoxDef.h"

namespace moxtest {

std::vector<std::string> albumIds(const std::list<HbSMoxDef::AlbumInfo>& albums);

// `albums` is a JSON array (nlohmann::json) of objects with an "AlbumId".
template <class JsonArray>
std::vector<std::string> albumIds(const JsonArray& albums) {
    std::vector<std::string> ids;
    for (const auto& album : albums) {
        ids.push_back(album.at("AlbumId").template get<std::string>());
    }
    return ids;
}

}  // namespace moxtest

#endif  // MOX_TESTS_ALBUMIDS_H

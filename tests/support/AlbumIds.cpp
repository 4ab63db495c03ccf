#include "AlbumIds.h"

namespace moxtest {

std::vector<std::string> albumIds(const std::list<HbSMoxDef::AlbumInfo>& albums) {
    std::vector<std::string> ids;
    for (const HbSMoxDef::AlbumInfo& album : albums) {
        ids.push_back(album.AlbumId);
    }
    return ids;
}

}  // namespace moxtest

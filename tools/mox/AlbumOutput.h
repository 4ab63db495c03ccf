// How the tools print the albums of a search: a readable table (database
// strings with their control characters escaped) and the JSON form.
#ifndef MOX_TOOLS_ALBUMOUTPUT_H
#define MOX_TOOLS_ALBUMOUTPUT_H

#include <list>
#include <nlohmann/json.hpp>
#include <ostream>

#include "HbSMoxDef.h"

// One JSON object per album, fields named as in HbSMoxDef::AlbumInfo.
nlohmann::ordered_json albumToJson(const HbSMoxDef::AlbumInfo& album);
// The albums as a JSON array, in order.
nlohmann::ordered_json albumsToJson(const std::list<HbSMoxDef::AlbumInfo>& albums);
// "N albums", then per album its title, numbers and a table of its tracks.
void printAlbumTable(const std::list<HbSMoxDef::AlbumInfo>& albums, std::ostream& out);

#endif  // MOX_TOOLS_ALBUMOUTPUT_H

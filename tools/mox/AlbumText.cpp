#include "AlbumText.h"

#include <iomanip>
#include <sstream>

namespace {

// Width of a hexadecimal number field (a 32-bit value).
const int kHexWidth = 8;

// "key=0x" then the value, eight digits wide, leaving the stream in
// hexadecimal with fill '0'.
template <class Value>
void putHex(std::ostringstream& out, const char* key, Value value) {
    out << key << "=0x" << std::hex << std::setfill('0') << std::setw(kHexWidth) << value;
}

// "key=0x" then the value as one raw character.
void putRawChar(std::ostringstream& out, const char* key, uint8 value) {
    out << key << "=0x" << std::hex << std::setfill('0') << static_cast<char>(value);
}

}  // namespace

std::string AlbumText::of(const HbSMoxDef::AlbumInfo& album) {
    std::ostringstream out;
    out << "AlbumId=" << album.AlbumId.c_str() << ", ";
    out << "AlbumName=" << album.AlbumName.c_str() << ", ";
    out << "GenreName=" << album.GenreName.c_str() << ", ";
    putHex(out, "GenreID", album.GenreID);
    out << ", ";
    putHex(out, "Confidence", album.Confidence);
    out << ", ";
    putRawChar(out, "AlbumLang", album.AlbumLang);
    out << ", ";
    putHex(out, "MediaNum", album.MediaNum);
    out << ", ";
    putHex(out, "MediaCount", album.MediaCount);
    out << ", ";
    out << "Tracks.size=" << album.Tracks.size() << ", ";
    out << "Tracks={" << tracksOf(album.Tracks) << "} ,";
    putRawChar(out, "Database", album.Database);
    out << ", ";
    out << "AlbumId=0x" << std::hex << std::setfill('0') << album.AlbumId.c_str();
    return out.str();
}

std::string AlbumText::tracksOf(const std::vector<HbSMoxDef::TrackInfo>& tracks) {
    std::ostringstream out;
    for (size_t i = 0; i < tracks.size(); ++i) {
        const HbSMoxDef::TrackInfo& track = tracks[i];
        out << "Track[" << i << "]";
        putHex(out, "GenreID", track.GenreID);
        out << ", ";
        out << "Track[" << i << "]GenreName=" << track.GenreName.c_str() << ", ";
        out << "Track[" << i << "]PerformerName=" << track.PerformerName.c_str() << ", ";
        out << "Track[" << i << "]TrackName=" << track.TrackName.c_str() << ", ";
        out << "Track[" << i << "]";
        putHex(out, "TrackNum", track.TrackNum);
    }
    return out.str();
}

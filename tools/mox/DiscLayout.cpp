#include "DiscLayout.h"

namespace {

void noteDataTrack(const DiscTrack& track, DiscToc* toc) {
    toc->dataTrack = true;
    toc->dataTrackNumber = track.number;
    toc->dataTrackOffset = track.offset;
}

// The first data track of `tracks` from `from` on, if any.
void noteLaterDataTrack(const std::vector<DiscTrack>& tracks, size_t from, DiscToc* toc) {
    for (size_t i = from; i < tracks.size(); ++i) {
        if (!tracks[i].audio) {
            noteDataTrack(tracks[i], toc);
            return;
        }
    }
}

// The audio tracks of the first session (see selectAudioTracks).
bool selectAudio(const DiscLayout& layout, DiscToc* toc, std::string* why) {
    const std::vector<DiscTrack>& tracks = layout.tracks;
    toc->offsets.clear();
    toc->dataTrack = false;
    toc->dataTrackNumber = 0;
    toc->dataTrackOffset = 0;
    size_t i = 0;
    // A mixed-mode disc starts with its data track; the audio follows.
    while (i < tracks.size() && !tracks[i].audio && tracks[i].firstSession) {
        if (!toc->dataTrack) {
            noteDataTrack(tracks[i], toc);
        }
        ++i;
    }
    if (i == tracks.size() || !tracks[i].firstSession) {
        *why = "no audio track in the first session";
        return false;
    }
    toc->first = tracks[i].number;
    while (i < tracks.size() && tracks[i].audio && tracks[i].firstSession) {
        toc->offsets.push_back(tracks[i].offset);
        toc->last = tracks[i].number;
        ++i;
    }
    toc->leadOut = layout.leadOut;
    if (i == tracks.size()) {
        return true;
    }
    // An enhanced CD: the audio ends where the data track's session begins.
    const DiscTrack& next = tracks[i];
    if (next.offset < DATA_TRACK_GAP_FRAMES ||
        next.offset - DATA_TRACK_GAP_FRAMES <= toc->offsets.back()) {
        *why = "track " + std::to_string(next.number) + " at " + std::to_string(next.offset) +
               " lies too close to the audio before it to place the lead-out " +
               std::to_string(DATA_TRACK_GAP_FRAMES) + " frames earlier";
        return false;
    }
    toc->leadOut = next.offset - DATA_TRACK_GAP_FRAMES;
    if (!next.audio) {
        noteDataTrack(next, toc);
    } else if (!toc->dataTrack) {
        noteLaterDataTrack(tracks, i, toc);
    }
    return true;
}

// The tracks that libdiscid and cd-discid count (see DiscToc), once the
// audio tracks are chosen.
void noteCountedTracks(const DiscLayout& layout, DiscToc* toc) {
    toc->allOffsets.clear();
    for (const DiscTrack& track : layout.tracks) {
        toc->allOffsets.push_back(track.offset);
    }
    toc->discLeadOut = layout.leadOut;
    toc->idFirst = toc->first;
    toc->idOffsets = toc->offsets;
    const bool dataTrackOne = toc->dataTrack && toc->dataTrackNumber == 1 && toc->first > 1;
    if (dataTrackOne) {
        std::vector<uint32> leading;
        for (const DiscTrack& track : layout.tracks) {
            if (track.number >= toc->first) {
                break;
            }
            leading.push_back(track.offset);
        }
        toc->idFirst = layout.tracks.front().number;
        toc->idOffsets.insert(toc->idOffsets.begin(), leading.begin(), leading.end());
    }
}

}  // namespace

bool selectAudioTracks(const DiscLayout& layout, DiscToc* toc, std::string* why) {
    if (!selectAudio(layout, toc, why)) {
        return false;
    }
    noteCountedTracks(layout, toc);
    return true;
}

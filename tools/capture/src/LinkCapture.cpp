// Link bytes to capture records.
#include "moxcapture/LinkCapture.h"

#include <utility>
#include <vector>

namespace moxcapture {

LinkCapture::LinkCapture(Now now) : mNow(std::move(now)), mRecords(0) {}

LinkCapture::~LinkCapture() {
    close();
}

bool LinkCapture::open(const std::string& path, std::string* error) {
    std::lock_guard<std::mutex> lock(mMutex);
    return mWriter.open(path, error);
}

void LinkCapture::close() {
    std::lock_guard<std::mutex> lock(mMutex);
    std::vector<uint32> links;
    for (const auto& stream : mStreams) {
        links.push_back(stream.first.first);
    }
    for (const uint32 link : links) {
        endLocked(link);
    }
    mWriter.close();
}

void LinkCapture::onLinkBytes(uint32 link, EN_DIRECTION direction, const uint8* data, size_t size) {
    std::lock_guard<std::mutex> lock(mMutex);
    mStreams[Key(link, direction)].feed(data, size, [&](const uint8_t* record, size_t length) {
        writeLocked(direction, record, length);
    });
}

void LinkCapture::onLinkEnd(uint32 link) {
    std::lock_guard<std::mutex> lock(mMutex);
    endLocked(link);
}

size_t LinkCapture::records() const {
    std::lock_guard<std::mutex> lock(mMutex);
    return mRecords;
}

std::string LinkCapture::failure() const {
    std::lock_guard<std::mutex> lock(mMutex);
    return mFailure;
}

void LinkCapture::writeLocked(EN_DIRECTION direction, const uint8_t* data, size_t size) {
    const Direction recorded =
        direction == en_DIRECTION_TO_PHONE ? Direction::kToPhone : Direction::kFromPhone;
    if (mWriter.write(mNow(), recorded, data, size)) {
        ++mRecords;
    } else if (mFailure.empty()) {
        mFailure = mWriter.lastError();
    }
}

void LinkCapture::endLocked(uint32 link) {
    for (const EN_DIRECTION direction : {en_DIRECTION_TO_PHONE, en_DIRECTION_FROM_PHONE}) {
        const auto found = mStreams.find(Key(link, direction));
        if (found == mStreams.end()) {
            continue;
        }
        found->second.finish(
            [&](const uint8_t* record, size_t length) { writeLocked(direction, record, length); });
        mStreams.erase(found);
    }
}

}  // namespace moxcapture

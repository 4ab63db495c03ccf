// Answer frames of the phone and their log lines.
#include "moxphone/PhoneFrames.h"

#include <algorithm>
#include <cstdio>

namespace moxphone {

Bytes PhoneFrames::answer(uint16_t command, uint16_t status, uint16_t index, uint16_t count) {
    Bytes frame;
    moxdb::appendU16Be(frame, command);
    moxdb::appendU16Be(frame, status);
    moxdb::appendU16Be(frame, index);
    moxdb::appendU16Be(frame, count);
    return frame;
}

Bytes PhoneFrames::notice(uint16_t status, uint32_t databaseSize) {
    Bytes frame = answer(kNotice, status);
    moxdb::appendU32Be(frame, databaseSize);
    return frame;
}

Bytes PhoneFrames::chunk(uint16_t status, uint16_t index, uint16_t count, uint32_t declared,
                         const uint8_t* payload, size_t size) {
    Bytes frame = answer(kChunk, status, index, count);
    moxdb::appendU32Be(frame, declared);
    if (size > 0) {
        frame.insert(frame.end(), payload, payload + size);
    }
    return frame;
}

Bytes PhoneFrames::failure(uint16_t request, uint16_t status) {
    const uint16_t command = static_cast<uint16_t>(request | kAnswerBit);
    Bytes frame = answer(command, status);
    if (command == kNotice || command == kChunk) {
        moxdb::appendU32Be(frame, 0);
    }
    return frame;
}

uint16_t PhoneFrames::commandOf(const uint8_t* frame, size_t size) {
    if (frame == nullptr || size < 2) {
        return 0;
    }
    return static_cast<uint16_t>((frame[0] << 8) | frame[1]);
}

std::string PhoneFrames::hex16(uint16_t value) {
    char text[8];
    std::snprintf(text, sizeof(text), "0x%04X", static_cast<unsigned int>(value));
    return text;
}

std::string PhoneFrames::hexBytes(const Bytes& bytes, size_t maxShown, size_t begin) {
    static const char kDigits[] = "0123456789ABCDEF";
    const size_t start = std::min(begin, bytes.size());
    const size_t shown = std::min(bytes.size() - start, maxShown);
    std::string text;
    for (size_t i = start; i < start + shown; ++i) {
        if (!text.empty()) {
            text += ' ';
        }
        text += kDigits[bytes[i] >> 4];
        text += kDigits[bytes[i] & 0x0F];
    }
    if (start + shown < bytes.size()) {
        text +=
            " ... (" + std::to_string(bytes.size()) + (bytes.size() == 1 ? " byte)" : " bytes)");
    }
    return text;
}

std::string PhoneFrames::describeSent(const Bytes& frame) {
    const uint16_t command = moxdb::getU16Be(frame, 0);
    const uint16_t status = moxdb::getU16Be(frame, 2);
    const std::string size = " (" + std::to_string(frame.size()) + " bytes)";
    std::string name;
    switch (command) {
        case kConnectAnswer:
            name = "connect answer";
            break;
        case kLookupAnswer:
            name = "lookup answer";
            break;
        case kNotice:
            name = "notice";
            break;
        case kChunk:
            name = "chunk";
            break;
        case kCancelAnswer:
            name = "cancel answer";
            break;
        case kEchoAnswer:
            name = "echo answer";
            break;
        default:
            name = "answer";
            break;
    }
    std::string text = hex16(command) + " " + name;
    if (command == kChunk && frame.size() >= kHeaderSize) {
        text += " " + std::to_string(moxdb::getU16Be(frame, 4)) + "/" +
                std::to_string(moxdb::getU16Be(frame, 6));
    }
    text += " status " + std::to_string(status);
    if (command == kNotice && frame.size() >= kNoticeSize) {
        text += " size " + std::to_string(moxdb::getU32Be(frame, 8));
    }
    if (command == kChunk && frame.size() >= kChunkPayloadOffset) {
        text += " length " + std::to_string(moxdb::getU32Be(frame, 8));
    }
    return text + size;
}

}  // namespace moxphone

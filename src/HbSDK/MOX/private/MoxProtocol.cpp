#include "private/MoxProtocol.h"

#include <sys/stat.h>

#include <cstdio>
#include <string>
#include <vector>

#include "HbFramework/HbDbgOutput.h"
#include "HbFramework/HbFileSys.h"
#include "HbFramework/HbLTimerMng.h"
#include "private/MoxByteOrder.h"
#include "private/MoxLimits.h"
#include "private/MoxResultFile.h"
#include "private/MoxState.h"

// Every multi-byte integer in a frame, sent or received, is big-endian.

namespace {

const char* const kSource = "private/MoxProtocol.cpp";

// Command IDs sent to the phone; its answer carries the same ID + 0x8000.
const uint16 CMD_CONNECT = 0x0001;
const uint16 CMD_DISCONNECT = 0x0002;
const uint16 CMD_EVENT_CD_TOC_LOOKUP = 0x0010;
const uint16 CMD_GET_CD_META_INFO = 0x0012;
const uint16 CMD_CANCEL = 0x0FFF;
const uint16 CMD_ECHO_REQUEST = 0x7FFF;

// Command IDs received from the phone.
const uint16 RCV_CONNECT = 0x8001;
const uint16 RCV_EVENT_CD_TOC_LOOKUP = 0x8010;
const uint16 RCV_NOTIFY_CD_TOC_LOOKUP = 0x8011;
const uint16 RCV_RETURN_CD_META_INFO = 0x8012;
const uint16 RCV_CANCEL = 0x8FFF;
const uint16 RCV_ECHO = 0xFFFF;

// The lookup notice is the header plus the 32-bit size of the database.
const unsigned int NOTIFY_CD_TOC_LOOKUP_MIN_SIZE = 12;
// A database chunk is the header, the 32-bit payload length, then the payload.
const unsigned int CHUNK_LENGTH_OFFSET = 8;
const unsigned int CHUNK_PAYLOAD_OFFSET = 12;

// Fixed parameter of the get-CD-meta-info command, sent as is.
const uint32 GET_CD_META_INFO_PARAM = 1000;

// The lookup request document: head, the TOC text byte for byte, tail.
const char* const kTocRequestHead =
    "<DbUpdateRequest>\n\t<DatabaseInfo>\n\t\t<DatabaseKind>73QRVB</DatabaseKind>\n"
    "\t</DatabaseInfo>\n\t<TOCRequest>\n\t\t<TOC>";
const char* const kTocRequestTail = "</TOC>\n\t</TOCRequest>\n</DbUpdateRequest>";
// Bytes before the document: command ID, lookup kind, a reserved zero byte,
// the two lookup parameters.
const unsigned int TOC_LOOKUP_HEADER_SIZE = 8;

}  // namespace

MoxProtocol::MoxProtocol()
    : HbSingleton<MoxProtocol>(),
      HbSubject(),
      OstLinkAppProtocol(),
      mpState(nullptr),
      mpStateObserver(new HbObserver<MoxProtocol>(this, &MoxProtocol::rcvMoxStateNotify)),
      mExpectedChunkIndex(0),
      mpCmdTimer(new HbTimer<MoxProtocol>(this, &MoxProtocol::timeoutMoxCmdTimer, nullptr,
                                          CMD_TIMER_PERIOD)) {
    getMoxState()->AddObserver(mpStateObserver);
}

MoxProtocol::~MoxProtocol() {
    getMoxState()->RemoveObserver(mpStateObserver);
    delete mpStateObserver;
    mpStateObserver = nullptr;
    moxCmdTimerStopIfNeeded();
    // An expiry that is running right now on the manager's thread may re-arm
    // the timer (a timed-out lookup is cancelled): wait for it with a stale
    // handle, then disarm again, so the timer is never deleted while in use.
    HbLTimerMng::GetTimerMng()->RemoveTimer(nullptr, mpCmdTimer);
    moxCmdTimerStopIfNeeded();
    delete mpCmdTimer;
    mpCmdTimer = nullptr;
}

void MoxProtocol::DelInstance() {}

MoxState* MoxProtocol::getMoxState() {
    if (mpState == nullptr) {
        mpState = MoxState::GetInstance();
    }
    return mpState;
}

void MoxProtocol::emitFrame(unsigned char* frame, unsigned int size) {
    NotifyObserver(0, frame, size, en_NTF_TYPE_SYNC);
}

// --- Commands to the phone ----------------------------------------------------

void MoxProtocol::sendCmdConnect() {
    // An iOS phone keeps its session while the application is reopened: once
    // it has answered a connect, only the link flag is raised again.
    if (getMoxState()->getOsType() == OstLinkAppState::en_OS_TYPE_IOS &&
        getMoxState()->getIosConnect()) {
        getMoxState()->setIsAppLinkState(true);
        return;
    }
    unsigned char frame[3] = {0, 0, 0x01};
    MoxByteOrder::putU16Be(frame, CMD_CONNECT);
    getMoxState()->setResultState(MoxState::en_RESULT_CONNECTING);
    moxCmdTimerRestart();
    emitFrame(frame, sizeof(frame));
}

void MoxProtocol::sendCmdDisconnect() {
    unsigned char frame[2] = {0, 0};
    MoxByteOrder::putU16Be(frame, CMD_DISCONNECT);
    getMoxState()->setResultState(MoxState::en_RESULT_IDLE);
    moxCmdTimerStopIfNeeded();
    emitFrame(frame, sizeof(frame));
    getMoxState()->setIsAppLinkState(false);
}

void MoxProtocol::sendCmdEventCdTocLookup(HbSMoxDef::SearchInfo& info) {
    std::string document(kTocRequestHead);
    document += info.toc;
    document += kTocRequestTail;

    // Header, the document, and one terminating zero byte; zeroed first.
    std::vector<unsigned char> frame(TOC_LOOKUP_HEADER_SIZE + document.size() + 1, 0);
    MoxByteOrder::putU16Be(&frame[0], CMD_EVENT_CD_TOC_LOOKUP);
    frame[2] = info.lookupKind;
    frame[3] = 0x00;
    MoxByteOrder::putU16Be(&frame[4], info.lookupParam1);
    MoxByteOrder::putU16Be(&frame[6], info.lookupParam2);
    document.copy(reinterpret_cast<char*>(&frame[TOC_LOOKUP_HEADER_SIZE]), document.size());

    // The answer's chunks are appended to an empty file, counted from 0.
    mExpectedChunkIndex = 0;
    if (!clearSearchResultFile()) {
        HbDbgOutput::DbgPrint(kSource, __func__, __LINE__, en_TAG_ERROR, "clear file error\n");
        getMoxState()->setResultState(MoxState::en_RESULT_ERROR);
        return;
    }
    getMoxState()->setResultState(MoxState::en_RESULT_SEARCHING);
    moxCmdTimerRestart();
    emitFrame(frame.data(), static_cast<unsigned int>(frame.size()));
}

void MoxProtocol::sendCmdGetCdMetaInfo() {
    unsigned char frame[6] = {0, 0, 0, 0, 0, 0};
    MoxByteOrder::putU16Be(frame, CMD_GET_CD_META_INFO);
    MoxByteOrder::putU32Be(frame + 2, GET_CD_META_INFO_PARAM);
    getMoxState()->setResultState(MoxState::en_RESULT_SEARCHING);
    moxCmdTimerRestart();
    emitFrame(frame, sizeof(frame));
}

void MoxProtocol::sendCmdCancel() {
    unsigned char frame[2] = {0, 0};
    MoxByteOrder::putU16Be(frame, CMD_CANCEL);
    getMoxState()->setResultState(MoxState::en_RESULT_CANCELLING);
    moxCmdTimerRestart();
    emitFrame(frame, sizeof(frame));
}

void MoxProtocol::sendCmdEchoRequest() {
    unsigned char frame[2] = {0, 0};
    MoxByteOrder::putU16Be(frame, CMD_ECHO_REQUEST);
    emitFrame(frame, sizeof(frame));
}

void MoxProtocol::sendCmdNotifyRunningState(unsigned int state) {
    (void)state;
}

bool MoxProtocol::isLogvCmd(unsigned char* frame, unsigned int size) {
    (void)frame;
    (void)size;
    return false;
}

// --- Received frames ------------------------------------------------------------

void MoxProtocol::analysisProtocolCmd(unsigned char* frame, unsigned int size) {
    BasicResponseData data = {0, 0, 0, 0};
    OstLinkAppProtocol::getBasicResponse(frame, size, &data);

    if (data.status != 0) {
        // The phone's failure code becomes the result state as it is. Only
        // when the state then reads "searching" is the lookup cancelled; the
        // state is read back rather than the code compared, so a store of 103
        // by another thread in between also leads to the cancel.
        getMoxState()->setResultState(data.status);
        if (getMoxState()->getResultState() == MoxState::en_RESULT_SEARCHING) {
            sendCmdCancel();
        }
        return;
    }

    switch (data.commandId) {
        case RCV_CONNECT:
            moxCmdTimerStopIfNeeded();
            getMoxState()->setResultState(MoxState::en_RESULT_CONNECTED);
            getMoxState()->setIsAppLinkState(true);
            getMoxState()->setIosConnect(true);
            break;
        case RCV_EVENT_CD_TOC_LOOKUP:
            getMoxState()->setResultState(MoxState::en_RESULT_SEARCHING);
            moxCmdTimerRestart();
            break;
        case RCV_NOTIFY_CD_TOC_LOOKUP:
            rcvCmdNotifyCdTocLookup(frame, size);
            break;
        case RCV_RETURN_CD_META_INFO:
            rcvCmdReturnCdMetaInfo(frame, size);
            break;
        case RCV_CANCEL:
            getMoxState()->setResultState(MoxState::en_RESULT_IDLE);
            moxCmdTimerStopIfNeeded();
            break;
        case RCV_ECHO:
            break;
        default:
            HbDbgOutput::DbgPrint(kSource, __func__, __LINE__, en_TAG_ERROR,
                                  "receive unknown cmdID=0x%04x\n",
                                  static_cast<unsigned int>(data.commandId));
            break;
    }
}

void MoxProtocol::rcvCmdNotifyCdTocLookup(unsigned char* frame, unsigned int size) {
    // Only the length is checked: the announced database size is not used.
    (void)frame;
    if (size < NOTIFY_CD_TOC_LOOKUP_MIN_SIZE) {
        HbDbgOutput::DbgPrint(kSource, __func__, __LINE__, en_TAG_ERROR, "size error\n");
        getMoxState()->setResultState(MoxState::en_RESULT_ERROR);
        sendCmdCancel();
        return;
    }
    sendCmdGetCdMetaInfo();
}

void MoxProtocol::endChunkWithError() {
    getMoxState()->setResultState(MoxState::en_RESULT_ERROR);
    sendCmdCancel();
}

void MoxProtocol::rcvCmdReturnCdMetaInfo(unsigned char* frame, unsigned int size) {
    // A chunk holds at least its header and its 32-bit length.
    if (frame == nullptr || size < CHUNK_PAYLOAD_OFFSET) {
        HbDbgOutput::DbgPrint(kSource, __func__, __LINE__, en_TAG_ERROR, "size error\n");
        endChunkWithError();
        return;
    }
    BasicResponseData data = {0, 0, 0, 0};
    OstLinkAppProtocol::getBasicResponse(frame, size, &data);

    // The phone sends the database in numbered chunks; a gap or a repeat
    // means the stored answer would be unusable.
    if (data.index != mExpectedChunkIndex) {
        HbDbgOutput::DbgPrint(kSource, __func__, __LINE__, en_TAG_ERROR, "index error.\n");
        endChunkWithError();
        return;
    }

    const uint32 declared = MoxByteOrder::getU32Be(frame + CHUNK_LENGTH_OFFSET);
    const uint32 carried = size - CHUNK_PAYLOAD_OFFSET;
    // A chunk carrying more bytes than it declares is refused: which of them
    // belong to the database cannot be told.
    if (declared < carried) {
        HbDbgOutput::DbgPrint(kSource, __func__, __LINE__, en_TAG_ERROR, "size error\n");
        endChunkWithError();
        return;
    }
    // A declared length above what the chunk carries means bytes were lost on
    // the way. Storing only the part present would leave a hole that the
    // database reader cannot see, so the chunk is refused like any size error.
    if (declared > carried) {
        HbDbgOutput::DbgPrint(kSource, __func__, __LINE__, en_TAG_ERROR, "size error\n");
        endChunkWithError();
        return;
    }

    if (!writeSearchResultFile(frame + CHUNK_PAYLOAD_OFFSET, declared)) {
        endChunkWithError();
        return;
    }
    ++mExpectedChunkIndex;

    const uint32 received = data.index + 1;
    if (received == data.count) {
        moxCmdTimerStopIfNeeded();
        getMoxState()->setResultState(MoxState::en_RESULT_COMPLETE);
        return;
    }
    if (received < data.count) {
        // Still receiving: a fresh wait for the next chunk.
        getMoxState()->setResultState(MoxState::en_RESULT_SEARCHING);
        moxCmdTimerRestart();
        return;
    }
    // More chunks than announced: this one is already stored, the answer is
    // still refused.
    HbDbgOutput::DbgPrint(kSource, __func__, __LINE__, en_TAG_ERROR, "index error.\n");
    endChunkWithError();
}

uint32 MoxProtocol::rcvMoxStateNotify(uint32 id, void* data, uint32 size) {
    if (id != OstLinkAppState::en_NTF_APP_STATE || data == nullptr || size < 1) {
        return 1;
    }
    if (*static_cast<const uint8*>(data) != OstLinkAppState::en_APP_STATE_LOST) {
        return 1;
    }
    // The phone application is gone: an operation in progress (101 to 104)
    // ends in an error first; the module is idle afterwards in every case.
    moxCmdTimerStopIfNeeded();
    const unsigned int state = getMoxState()->getResultState();
    if (state - MoxState::en_RESULT_CONNECTING <= 3u) {
        getMoxState()->setResultState(MoxState::en_RESULT_ERROR);
    }
    getMoxState()->setResultState(MoxState::en_RESULT_IDLE);
    return 1;
}

// --- Result file ----------------------------------------------------------------

bool MoxProtocol::ensureResultDirectory() {
    const char* directory = MoxResultFile::DIRECTORY.c_str();
    if (HbFileSys::IsExist(directory)) {
        return true;
    }
    if (!HbFileSys::CreateDirectory(directory, true)) {
        HbDbgOutput::DbgPrint(kSource, __func__, __LINE__, en_TAG_ERROR,
                              "create directory error.\n");
        return false;
    }
    return true;
}

bool MoxProtocol::writeSearchResultFile(unsigned char* data, unsigned int length) {
    if (!ensureResultDirectory()) {
        return false;
    }
    FILE* file = fopen64(MoxResultFile::FULL_PATH.c_str(), "ab");
    if (file == nullptr) {
        HbDbgOutput::DbgPrint(kSource, __func__, __LINE__, en_TAG_ERROR,
                              "search result file open error.\n");
        return false;
    }
    // A phone must not fill the head unit's storage: a chunk that would grow
    // the file past the limit is not written at all.
    struct stat64 info;
    if (fstat64(fileno(file), &info) != 0) {
        HbDbgOutput::DbgPrint(kSource, __func__, __LINE__, en_TAG_ERROR,
                              "search result file write error.\n");
        std::fclose(file);
        return false;
    }
    if (static_cast<uint64>(info.st_size) + length > MoxLimits::RESULT_FILE_MAX) {
        HbDbgOutput::DbgPrint(kSource, __func__, __LINE__, en_TAG_ERROR,
                              "search result file size limit (%u) reached.\n",
                              MoxLimits::RESULT_FILE_MAX);
        std::fclose(file);
        return false;
    }
    const size_t written = std::fwrite(data, 1, length, file);
    const bool complete = (written == length);
    if (!complete) {
        HbDbgOutput::DbgPrint(kSource, __func__, __LINE__, en_TAG_ERROR,
                              "search result file write error.\n");
    }
    if (std::fclose(file) != 0) {
        HbDbgOutput::DbgPrint(kSource, __func__, __LINE__, en_TAG_ERROR,
                              "search result file close error.\n");
        return false;
    }
    return complete;
}

bool MoxProtocol::clearSearchResultFile() {
    if (!ensureResultDirectory()) {
        return false;
    }
    FILE* file = fopen64(MoxResultFile::FULL_PATH.c_str(), "w");
    if (file == nullptr) {
        HbDbgOutput::DbgPrint(kSource, __func__, __LINE__, en_TAG_ERROR,
                              "search result file open error.\n");
        return false;
    }
    if (std::fclose(file) != 0) {
        HbDbgOutput::DbgPrint(kSource, __func__, __LINE__, en_TAG_ERROR,
                              "search result file close error.\n");
        return false;
    }
    return true;
}

// --- Command timer ----------------------------------------------------------------

void MoxProtocol::moxCmdTimerRestart() {
    HbLTimerMng* manager = HbLTimerMng::GetTimerMng();
    if (manager->IsActive(mpCmdTimer->getSubInfo(), mpCmdTimer)) {
        manager->RemoveTimer(mpCmdTimer->getSubInfo(), mpCmdTimer);
        mpCmdTimer->setSubInfo(nullptr);
    }
    if (mpCmdTimer->getPeriod() == 0) {
        return;
    }
    if (manager->IsActive(mpCmdTimer->getSubInfo(), mpCmdTimer)) {
        manager->RemoveTimer(mpCmdTimer->getSubInfo(), mpCmdTimer);
        mpCmdTimer->setSubInfo(nullptr);
    }
    mpCmdTimer->setSubInfo(manager->AddTimer(mpCmdTimer, mpCmdTimer->getPeriod()));
}

void MoxProtocol::moxCmdTimerStopIfNeeded() {
    HbLTimerMng* manager = HbLTimerMng::GetTimerMng();
    if (manager->IsActive(mpCmdTimer->getSubInfo(), mpCmdTimer)) {
        manager->RemoveTimer(mpCmdTimer->getSubInfo(), mpCmdTimer);
        mpCmdTimer->setSubInfo(nullptr);
    }
}

uint32 MoxProtocol::timeoutMoxCmdTimer(HbLTimerBase* timer) {
    (void)timer;
    // One period without an answer ends the wait; nothing is retried.
    switch (getMoxState()->getResultState()) {
        case MoxState::en_RESULT_SEARCHING:
            getMoxState()->setResultState(MoxState::en_RESULT_TIMEOUT);
            sendCmdCancel();
            break;
        case MoxState::en_RESULT_CANCELLING:
            getMoxState()->setResultState(MoxState::en_RESULT_IDLE);
            break;
        case MoxState::en_RESULT_CONNECTING:
            getMoxState()->setResultState(MoxState::en_RESULT_ERROR);
            break;
        default:
            break;
    }
    return 0;
}

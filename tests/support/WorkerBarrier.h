// Waits until a worker's message box has handled everything queued on it.
//
//   WorkerBarrier barrier(mox->getWorker()->GetMsgBox());
//   facade->search(info);
//   ASSERT_TRUE(barrier.drain());   // every handler that the search set off has run
//
// The barrier registers itself as one more unit of the box and posts an
// event to itself; the box hands messages out in arrival order, so when the
// event is handled every message queued before it has been handled too.
// drain() repeats this until the box is empty at the moment the event is
// handled, so messages that those handlers posted in turn are waited for as
// well. Messages that other threads post later (a socket's reader, the timer
// thread) are not: the caller decides when nothing more can come.
//
// Thread rules: drain() on any thread but the worker's; the box must outlive
// the barrier.
#ifndef MOX_TESTS_WORKERBARRIER_H
#define MOX_TESTS_WORKERBARRIER_H

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>

#include "HbFramework/Foundation/HbIDispatcher.h"
#include "HbFramework/HbMsgBox.h"

class WorkerBarrier : public HbIDispatcher {
public:
    explicit WorkerBarrier(HbMsgBox* box);
    ~WorkerBarrier() override;
    WorkerBarrier(const WorkerBarrier&) = delete;
    WorkerBarrier& operator=(const WorkerBarrier&) = delete;

    // True once the box was found empty behind one of the barrier's events;
    // false when the box refuses the event or `limit` passes first (a guard
    // for broken tests only).
    bool drain(std::chrono::milliseconds limit = std::chrono::seconds(30));
    // How many events the barrier has posted so far.
    uint64_t rounds() const;

    uint32 Dispatch(uint32 id, void* data, uint32 size) override;
    uint32 Dispatch(uint32 id) override;
    void SetFunctionName(const wchar_t* name) override;
    const wchar_t* GetFunctionName() override;

private:
    HbMsgBox* const mBox;
    int32 mId;  // the barrier's unit id on the box
    mutable std::mutex mMutex;
    std::condition_variable mHandled;
    uint64_t mPosted;    // guarded by mMutex
    uint64_t mDone;      // guarded by mMutex
    uint32 mLeftBehind;  // guarded by mMutex: queued messages when the last event ran
};

#endif  // MOX_TESTS_WORKERBARRIER_H

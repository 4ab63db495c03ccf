#include "HbFramework/HbWorker.h"

#include <set>

#include "HbFramework/HbSingletonFinalizer.h"

namespace {

// Started workers, so that finalize() can stop every framework thread.
struct WorkerRegistry {
    std::mutex mutex;  // guards workers
    std::set<HbWorker*> workers;
};

WorkerRegistry& registry() {
    static WorkerRegistry* r = [] {
        WorkerRegistry* created = new WorkerRegistry();
        // Workers stay listed after they are stopped: a unit may leave its
        // worker to the framework, and the registry is then what still knows it.
        HbSingletonFinalizer::addThreadStopper([created] {
            std::set<HbWorker*> running;
            {
                std::lock_guard<std::mutex> lock(created->mutex);
                running = created->workers;
            }
            for (HbWorker* worker : running) {
                worker->Stop();
            }
        });
        return created;
    }();
    return *r;
}

}  // namespace

HbWorker::HbWorker(int priority, uint32 capacity, uint32 stackSize)
    : mMsgBox(new HbMsgBox(capacity)),
      mStackSize(stackSize),
      mStarted(false),
      mJoined(false),
      mName(),
      mThread() {
    (void)priority;  // the host runs every worker at the default priority
}

HbWorker::~HbWorker() {
    {
        std::lock_guard<std::mutex> lock(registry().mutex);
        registry().workers.erase(this);
    }
    Stop();
}

bool HbWorker::Start(const char* name) {
    std::lock_guard<std::mutex> lock(mMutex);
    if (mStarted) {
        return false;
    }
    mName = (name != nullptr) ? name : "";
    if (mName.size() > 15) {
        mName.resize(15);  // the kernel keeps at most 15 bytes of a thread name
    }
    pthread_attr_t attr;
    pthread_attr_init(&attr);
    if (mStackSize != 0) {
        pthread_attr_setstacksize(&attr, mStackSize);
    }
    int rc = pthread_create(&mThread, &attr, &HbWorker::threadMain, this);
    pthread_attr_destroy(&attr);
    if (rc != 0) {
        return false;
    }
    mStarted = true;
    std::lock_guard<std::mutex> registryLock(registry().mutex);
    registry().workers.insert(this);
    return true;
}

HbMsgBox* HbWorker::GetMsgBox() const {
    return mMsgBox.get();
}

// The join happens outside mMutex: a thread that has just been started takes
// mMutex to read its name, and must be able to get there to finish.
void HbWorker::Stop() {
    mMsgBox->Close();
    std::lock_guard<std::mutex> joinLock(mJoinMutex);
    pthread_t thread;
    {
        std::lock_guard<std::mutex> lock(mMutex);
        if (!mStarted || mJoined || pthread_equal(mThread, pthread_self())) {
            return;
        }
        thread = mThread;
    }
    pthread_join(thread, nullptr);
    std::lock_guard<std::mutex> lock(mMutex);
    mJoined = true;
}

void* HbWorker::threadMain(void* self) {
    HbWorker* worker = static_cast<HbWorker*>(self);
    std::string name;
    {
        std::lock_guard<std::mutex> lock(worker->mMutex);
        name = worker->mName;
    }
    if (!name.empty()) {
        pthread_setname_np(pthread_self(), name.c_str());
    }
    worker->mMsgBox->Run();
    return nullptr;
}

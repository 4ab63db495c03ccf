#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "HbFramework/HbSubject.h"
#include "TestEvent.h"

namespace {

// An observer that logs each notification under its name and then runs an
// optional action.
class LoggingObserver : public HbObserver_ {
public:
    LoggingObserver(const std::string& name, std::vector<std::string>* log)
        : mName(name), mLog(log) {}
    uint32 Update(uint32 id, void* data, uint32 size) override {
        mLog->push_back(mName + " " + std::to_string(id) + " " + std::to_string(size));
        lastData = data;
        caller = std::this_thread::get_id();
        if (action) {
            action();
        }
        return 0;
    }

    std::function<void()> action;
    void* lastData = nullptr;
    std::thread::id caller;

private:
    std::string mName;
    std::vector<std::string>* mLog;
};

}  // namespace

TEST(HbSubjectTest, NotifyObserver_CallsEachObserverInOrderOfAddingOnTheCallingThread) {
    std::vector<std::string> log;
    HbSubject subject;
    LoggingObserver first("first", &log);
    LoggingObserver second("second", &log);
    subject.AddObserver(&first);
    subject.AddObserver(&second);
    int value = 9;
    subject.NotifyObserver(8, &value, 4, en_NTF_TYPE_SYNC);
    const std::vector<std::string> expected = {"first 8 4", "second 8 4"};
    EXPECT_EQ(expected, log);
    EXPECT_EQ(&value, first.lastData);
    EXPECT_EQ(std::this_thread::get_id(), first.caller);
    EXPECT_EQ(std::this_thread::get_id(), second.caller);
}

TEST(HbSubjectTest, AddObserver_Twice_IsNotifiedOnce) {
    std::vector<std::string> log;
    HbSubject subject;
    LoggingObserver observer("o", &log);
    subject.AddObserver(&observer);
    subject.AddObserver(&observer);
    EXPECT_EQ(1u, subject.ObserverCount());
    subject.NotifyObserver(1, nullptr, 0, en_NTF_TYPE_SYNC);
    const std::vector<std::string> expected = {"o 1 0"};
    EXPECT_EQ(expected, log);
}

TEST(HbSubjectTest, AddObserver_Null_IsIgnored) {
    HbSubject subject;
    subject.AddObserver(nullptr);
    EXPECT_EQ(0u, subject.ObserverCount());
    subject.NotifyObserver(1, nullptr, 0, en_NTF_TYPE_SYNC);  // nothing to call
}

TEST(HbSubjectTest, RemoveObserver_Unknown_ChangesNothing) {
    std::vector<std::string> log;
    HbSubject subject;
    LoggingObserver added("added", &log);
    LoggingObserver stranger("stranger", &log);
    subject.AddObserver(&added);
    subject.RemoveObserver(&stranger);
    subject.RemoveObserver(nullptr);
    EXPECT_EQ(1u, subject.ObserverCount());
    subject.NotifyObserver(2, nullptr, 0, en_NTF_TYPE_SYNC);
    const std::vector<std::string> expected = {"added 2 0"};
    EXPECT_EQ(expected, log);
}

TEST(HbSubjectTest, RemoveObserver_Registered_IsNotNotifiedAnyMore) {
    std::vector<std::string> log;
    HbSubject subject;
    LoggingObserver observer("o", &log);
    subject.AddObserver(&observer);
    subject.RemoveObserver(&observer);
    EXPECT_EQ(0u, subject.ObserverCount());
    subject.NotifyObserver(1, nullptr, 0, en_NTF_TYPE_SYNC);
    EXPECT_TRUE(log.empty());
}

TEST(HbSubjectTest, ObserverRemovedDuringNotification_IsNotCalledAfterItsRemoval) {
    std::vector<std::string> log;
    HbSubject subject;
    LoggingObserver remover("remover", &log);
    LoggingObserver victim("victim", &log);
    remover.action = [&subject, &victim] { subject.RemoveObserver(&victim); };
    subject.AddObserver(&remover);
    subject.AddObserver(&victim);

    subject.NotifyObserver(3, nullptr, 0, en_NTF_TYPE_SYNC);
    const std::vector<std::string> first = {"remover 3 0"};
    EXPECT_EQ(first, log);
    EXPECT_EQ(1u, subject.ObserverCount());

    subject.NotifyObserver(4, nullptr, 0, en_NTF_TYPE_SYNC);
    const std::vector<std::string> both = {"remover 3 0", "remover 4 0"};
    EXPECT_EQ(both, log);
}

TEST(HbSubjectTest, ObserverRemovingItselfDuringNotification_IsCalledOnceAndOthersStillAre) {
    std::vector<std::string> log;
    HbSubject subject;
    LoggingObserver leaver("leaver", &log);
    LoggingObserver stayer("stayer", &log);
    leaver.action = [&subject, &leaver] { subject.RemoveObserver(&leaver); };
    subject.AddObserver(&leaver);
    subject.AddObserver(&stayer);

    subject.NotifyObserver(1, nullptr, 0, en_NTF_TYPE_SYNC);
    subject.NotifyObserver(2, nullptr, 0, en_NTF_TYPE_SYNC);

    const std::vector<std::string> expected = {"leaver 1 0", "stayer 1 0", "stayer 2 0"};
    EXPECT_EQ(expected, log);
    EXPECT_EQ(1u, subject.ObserverCount());
}

TEST(HbSubjectTest, ObserverAddedDuringNotification_IsFirstCalledByTheNextNotification) {
    std::vector<std::string> log;
    HbSubject subject;
    LoggingObserver adder("adder", &log);
    LoggingObserver newcomer("newcomer", &log);
    adder.action = [&subject, &newcomer] { subject.AddObserver(&newcomer); };
    subject.AddObserver(&adder);

    subject.NotifyObserver(1, nullptr, 0, en_NTF_TYPE_SYNC);
    const std::vector<std::string> first = {"adder 1 0"};
    EXPECT_EQ(first, log);

    subject.NotifyObserver(2, nullptr, 0, en_NTF_TYPE_SYNC);
    const std::vector<std::string> both = {"adder 1 0", "adder 2 0", "newcomer 2 0"};
    EXPECT_EQ(both, log);
}

TEST(HbSubjectTest, RemoveObserver_FromAnotherThreadDuringItsUpdate_WaitsForTheUpdate) {
    std::vector<std::string> log;
    HbSubject subject;
    LoggingObserver observer("o", &log);
    TestEvent updateEntered;
    TestEvent releaseUpdate;
    TestEvent removerWaiting;
    std::atomic<bool> updateFinished{false};
    std::atomic<bool> removeReturned{false};
    std::atomic<bool> removeReturnedDuringUpdate{true};
    observer.action = [&] {
        updateEntered.set();
        releaseUpdate.wait();
        removeReturnedDuringUpdate.store(removeReturned.load());
        updateFinished.store(true);
    };
    subject.AddObserver(&observer);
    subject.SetRemoveWaitHook([&removerWaiting] { removerWaiting.set(); });

    std::thread notifier([&subject] { subject.NotifyObserver(5, nullptr, 0, en_NTF_TYPE_SYNC); });
    updateEntered.wait();
    std::atomic<bool> updateFinishedSeenByRemover{false};
    std::thread remover([&] {
        subject.RemoveObserver(&observer);
        updateFinishedSeenByRemover.store(updateFinished.load());
        removeReturned.store(true);
    });
    removerWaiting.wait();  // the remover is blocked inside RemoveObserver now
    releaseUpdate.set();
    remover.join();
    notifier.join();

    EXPECT_FALSE(removeReturnedDuringUpdate.load());
    EXPECT_TRUE(updateFinishedSeenByRemover.load());
    EXPECT_EQ(0u, subject.ObserverCount());
    const std::vector<std::string> expected = {"o 5 0"};
    EXPECT_EQ(expected, log);
}

TEST(HbSubjectTest, NotifyObserver_FromSeveralThreadsAtOnce_ReachesTheObserverEveryTime) {
    class Counter : public HbObserver_ {
    public:
        uint32 Update(uint32, void*, uint32) override {
            ++count;
            return 0;
        }
        std::atomic<int> count{0};
    };
    HbSubject subject;
    Counter counter;
    subject.AddObserver(&counter);
    TestEvent go;
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&subject, &go] {
            go.wait();
            for (int i = 0; i < 100; ++i) {
                subject.NotifyObserver(1, nullptr, 0, en_NTF_TYPE_SYNC);
            }
        });
    }
    go.set();
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(400, counter.count.load());
}

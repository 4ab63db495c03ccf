#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "HbFramework/Foundation/HbObserver.h"

namespace {

class Receiver {
public:
    virtual ~Receiver() {}
    virtual uint32 rcvNotify(uint32 id, void* data, uint32 size) {
        calls.push_back("base " + std::to_string(id) + " " + std::to_string(size));
        lastData = data;
        return 1;
    }
    uint32 rcvPlain(uint32 id, void* data, uint32 size) {
        (void)data;
        calls.push_back("plain " + std::to_string(id) + " " + std::to_string(size));
        return 7;
    }

    std::vector<std::string> calls;
    void* lastData = nullptr;
};

class DerivedReceiver : public Receiver {
public:
    uint32 rcvNotify(uint32 id, void* data, uint32 size) override {
        calls.push_back("derived " + std::to_string(id) + " " + std::to_string(size));
        lastData = data;
        return 2;
    }
};

}  // namespace

TEST(HbObserverTest, Update_ForwardsIdDataSizeAndReturnsTheHandlersResult) {
    Receiver receiver;
    HbObserver<Receiver> observer(&receiver, &Receiver::rcvPlain);
    char byte = 3;
    EXPECT_EQ(7u, observer.Update(8, &byte, 1));
    const std::vector<std::string> expected = {"plain 8 1"};
    EXPECT_EQ(expected, receiver.calls);
}

TEST(HbObserverTest, Update_ThroughBasePointer_ReachesTheBoundMember) {
    Receiver receiver;
    HbObserver<Receiver> observer(&receiver, &Receiver::rcvNotify);
    HbObserver_* base = &observer;
    int value = 42;
    EXPECT_EQ(1u, base->Update(2, &value, 4));
    const std::vector<std::string> expected = {"base 2 4"};
    EXPECT_EQ(expected, receiver.calls);
    EXPECT_EQ(&value, receiver.lastData);
}

TEST(HbObserverTest, Update_VirtualHandler_CallsTheOverride) {
    DerivedReceiver receiver;
    HbObserver<Receiver> observer(&receiver, &Receiver::rcvNotify);
    EXPECT_EQ(2u, observer.Update(3, nullptr, 0));
    const std::vector<std::string> expected = {"derived 3 0"};
    EXPECT_EQ(expected, receiver.calls);
}

TEST(HbObserverTest, Construction_KeepsObjectAndHandler) {
    Receiver receiver;
    HbObserver<Receiver> observer(&receiver, &Receiver::rcvPlain);
    EXPECT_EQ(&receiver, observer.object);
    EXPECT_TRUE(observer.handler == &Receiver::rcvPlain);
}

TEST(HbObserverTest, BaseUpdate_WithoutOverride_Returns0) {
    HbObserver_ plain;
    EXPECT_EQ(0u, plain.Update(1, nullptr, 0));
}

TEST(HbObserverTest, Delete_ThroughBasePointer_RunsTheDerivedDestructor) {
    Receiver receiver;
    HbObserver_* observer = new HbObserver<Receiver>(&receiver, &Receiver::rcvPlain);
    delete observer;  // a leak or mismatched delete shows under the sanitizers
    EXPECT_TRUE(receiver.calls.empty());
}

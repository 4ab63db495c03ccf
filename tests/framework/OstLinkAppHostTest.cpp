#include <gtest/gtest.h>

#include <cstdlib>

#include "OstLinkApp/OstLinkAppHost.h"
#include "ScriptedPhone.h"

namespace {

// Leaves the settings and the environment as the test found them.
class OstLinkAppHostTest : public ::testing::Test {
protected:
    void SetUp() override { ::unsetenv("OST_LINKAPP_ENDPOINT"); }
    void TearDown() override {
        ::unsetenv("OST_LINKAPP_ENDPOINT");
        OstLinkAppHost::setEndpoint("");
        OstLinkAppHost::setAllowRemote(false);
        OstLinkAppHost::setLoopbackPeer(nullptr);
    }
};

}  // namespace

TEST_F(OstLinkAppHostTest, GetEndpoint_NothingSet_IsLoopback) {
    EXPECT_EQ("loopback", OstLinkAppHost::getEndpoint());
}

TEST_F(OstLinkAppHostTest, GetEndpoint_EnvironmentSet_IsTheEnvironmentsValue) {
    ::setenv("OST_LINKAPP_ENDPOINT", "unix:/tmp/phone.sock", 1);
    EXPECT_EQ("unix:/tmp/phone.sock", OstLinkAppHost::getEndpoint());
}

TEST_F(OstLinkAppHostTest, GetEndpoint_EmptyEnvironment_IsLoopback) {
    ::setenv("OST_LINKAPP_ENDPOINT", "", 1);
    EXPECT_EQ("loopback", OstLinkAppHost::getEndpoint());
}

TEST_F(OstLinkAppHostTest, SetEndpoint_OverridesTheEnvironment) {
    ::setenv("OST_LINKAPP_ENDPOINT", "unix:/tmp/phone.sock", 1);
    OstLinkAppHost::setEndpoint("tcp:127.0.0.1:7000");
    EXPECT_EQ("tcp:127.0.0.1:7000", OstLinkAppHost::getEndpoint());
}

TEST_F(OstLinkAppHostTest, SetEndpoint_Empty_RemovesTheSetting) {
    OstLinkAppHost::setEndpoint("tcp:127.0.0.1:7000");
    OstLinkAppHost::setEndpoint("");
    EXPECT_EQ("loopback", OstLinkAppHost::getEndpoint());
    ::setenv("OST_LINKAPP_ENDPOINT", "unix:/x", 1);
    EXPECT_EQ("unix:/x", OstLinkAppHost::getEndpoint());
}

TEST_F(OstLinkAppHostTest, AllowRemote_IsOffUntilSet) {
    EXPECT_FALSE(OstLinkAppHost::getAllowRemote());
    OstLinkAppHost::setAllowRemote(true);
    EXPECT_TRUE(OstLinkAppHost::getAllowRemote());
    OstLinkAppHost::setAllowRemote(false);
    EXPECT_FALSE(OstLinkAppHost::getAllowRemote());
}

TEST_F(OstLinkAppHostTest, LoopbackPeer_IsNullUntilSetAndNullRemovesIt) {
    EXPECT_EQ(nullptr, OstLinkAppHost::getLoopbackPeer());
    ScriptedPhone peer;
    OstLinkAppHost::setLoopbackPeer(&peer);
    EXPECT_EQ(&peer, OstLinkAppHost::getLoopbackPeer());
    OstLinkAppHost::setLoopbackPeer(nullptr);
    EXPECT_EQ(nullptr, OstLinkAppHost::getLoopbackPeer());
}

TEST_F(OstLinkAppHostTest, MaxEnvelopeLength_IsOneMebibyte) {
    EXPECT_EQ(1024u * 1024u, OstLinkAppHost::MAX_ENVELOPE_LENGTH);
}

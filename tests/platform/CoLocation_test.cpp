// Which TCP endpoints a subscriber of this host reaches at a listener this
// host bound: the choice of the in-process path rests on it.

#include <gtest/gtest.h>
#include <unistd.h>

#include <string>

#include "dabo/krin/detail/CoLocation.h"

namespace {

using orlo::dabo::krin::detail::reachesListener;

TEST(CoLocationTest, TheSameHostAndPortReachTheListener) {
    EXPECT_TRUE(reachesListener("tcp://127.0.0.1:5555", "tcp://127.0.0.1:5555"));
    EXPECT_TRUE(reachesListener("tcp://Example.Org:5555", "tcp://example.org:5555"));
    EXPECT_TRUE(reachesListener("tcp://[::1]:5555", "tcp://[::1]:5555"));
}

TEST(CoLocationTest, AnotherPortNeverReachesTheListener) {
    EXPECT_FALSE(reachesListener("tcp://127.0.0.1:5556", "tcp://127.0.0.1:5555"));
    EXPECT_FALSE(reachesListener("tcp://127.0.0.1:5555", "tcp://*:5556"));
}

TEST(CoLocationTest, AListenerOnEveryIpv4AddressIsReachedThroughLoopbackLocalhostAndThisHostsName) {
    EXPECT_TRUE(reachesListener("tcp://127.0.0.1:5555", "tcp://*:5555"));
    EXPECT_TRUE(reachesListener("tcp://127.0.0.1:5555", "tcp://0.0.0.0:5555"));
    EXPECT_TRUE(reachesListener("tcp://localhost:5555", "tcp://*:5555"));
    char name[256] = {};
    ASSERT_EQ(gethostname(name, sizeof name - 1), 0);
    EXPECT_TRUE(reachesListener("tcp://" + std::string(name) + ":5555", "tcp://*:5555"));
}

TEST(CoLocationTest, AListenerOnEveryIpv4AddressIsNotReachedOverIpv6) {
    EXPECT_FALSE(reachesListener("tcp://[::1]:5555", "tcp://*:5555"));
    EXPECT_TRUE(reachesListener("tcp://[::1]:5555", "tcp://[::]:5555"));
}

TEST(CoLocationTest, LocalhostAndItsAddressAreTheSameListener) {
    EXPECT_TRUE(reachesListener("tcp://127.0.0.1:5555", "tcp://localhost:5555"));
    EXPECT_TRUE(reachesListener("tcp://localhost:5555", "tcp://127.0.0.1:5555"));
}

TEST(CoLocationTest, AnotherAddressOrAnUnresolvedNameDoesNotReachAListenerOnOneAddress) {
    EXPECT_FALSE(reachesListener("tcp://127.0.0.2:5555", "tcp://127.0.0.1:5555"));
    EXPECT_FALSE(reachesListener("tcp://some-other-host:5555", "tcp://127.0.0.1:5555"));
    // A host that is not this one never reaches a listener of this host.
    EXPECT_FALSE(reachesListener("tcp://192.0.2.7:5555", "tcp://*:5555"));
    EXPECT_FALSE(reachesListener("tcp://some-other-host:5555", "tcp://*:5555"));
}

TEST(CoLocationTest, WhatIsNotATcpEndpointReachesNothing) {
    EXPECT_FALSE(reachesListener("ipc:///tmp/x", "ipc:///tmp/x"));
    EXPECT_FALSE(reachesListener("tcp://127.0.0.1", "tcp://127.0.0.1"));
}

}  // namespace

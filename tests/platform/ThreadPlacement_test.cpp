// The runtime's thread on the CPUs and at the real-time priority that the
// runtime's properties ask for, and refusals of what is not or cannot be.

#include <gtest/gtest.h>
#include <sched.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>

#include "dabo/DaboException.h"
#include "dabo/krin/detail/KrinDabo.h"

namespace {

using orlo::dabo::DaboException;
using orlo::dabo::krin::detail::KrinDabo;

/// The task id of this process's runtime thread, named "krin-runtime"; 0 if none.
pid_t runtimeThread() {
    for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
        std::ifstream comm(task.path() / "comm");
        std::string name;
        if (std::getline(comm, name) && name == "krin-runtime") {
            return static_cast<pid_t>(std::stol(task.path().filename().string()));
        }
    }
    return 0;
}

/// The "Cpus_allowed_list" of task `tid` of this process ("self" for the process).
std::string allowedCpusOf(const std::string& tid) {
    std::ifstream status(tid == "self" ? "/proc/self/status" : "/proc/self/task/" + tid + "/status");
    const std::string key = "Cpus_allowed_list:";
    for (std::string line; std::getline(status, line);) {
        if (line.rfind(key, 0) == 0) {
            return line.substr(line.find_first_not_of(" \t", key.size()));
        }
    }
    return {};
}

std::string refusalOf(const orlo::dabo::Dabo::Properties& properties) {
    try {
        KrinDabo::create(properties);
    } catch (const DaboException& refusal) {
        return refusal.what();
    }
    return "(created)";
}

TEST(ThreadPlacementTest, AnAffinityPinsTheRuntimesThreadToItsCpus) {
    const auto dabo = KrinDabo::create({{"krin.runtime.cpuAffinity", "0"}});
    const pid_t thread = runtimeThread();
    ASSERT_NE(thread, 0);
    EXPECT_EQ(allowedCpusOf(std::to_string(thread)), "0");
}

TEST(ThreadPlacementTest, WithoutAnAffinityTheRuntimesThreadMayRunWhereTheProcessMay) {
    const auto dabo = KrinDabo::create({});
    const pid_t thread = runtimeThread();
    ASSERT_NE(thread, 0);
    EXPECT_EQ(allowedCpusOf(std::to_string(thread)), allowedCpusOf("self"));
    EXPECT_EQ(sched_getscheduler(thread), SCHED_OTHER);
}

TEST(ThreadPlacementTest, WhatIsNotAListOfCpusIsRefusedNamingTheProperty) {
    for (const std::string value : {"", "x", "0,", "3-1", "1-", "0;1", "99999"}) {
        EXPECT_EQ(refusalOf({{"krin.runtime.cpuAffinity", value}}),
                  "Property krin.runtime.cpuAffinity has value '" + value +
                      "', which is not a list of CPUs (such as 2 or 0,2-3)");
    }
}

TEST(ThreadPlacementTest, CpusTheSystemDoesNotHaveAreRefusedWithItsReason) {
    EXPECT_EQ(refusalOf({{"krin.runtime.cpuAffinity", "1000-1001"}}),
              "The runtime's thread cannot run on CPUs 1000-1001 (krin.runtime.cpuAffinity): Invalid argument");
}

TEST(ThreadPlacementTest, WhatIsNotARealTimePriorityIsRefusedNamingTheProperty) {
    EXPECT_EQ(refusalOf({{"krin.runtime.threadPriority", "0"}}),
              "Property krin.runtime.threadPriority has value '0', which is not a real-time priority (1 to 99)");
    EXPECT_EQ(refusalOf({{"krin.runtime.threadPriority", "100"}}),
              "Property krin.runtime.threadPriority has value '100', which is not a real-time priority (1 to 99)");
    EXPECT_EQ(refusalOf({{"krin.runtime.threadPriority", "high"}}),
              "Property krin.runtime.threadPriority has value 'high', which is not an integer");
}

/// Drops the right to real-time scheduling (privileges and allowance), asks
/// for a runtime with a priority, prints the refusal and exits with 0 if it
/// is the expected one.
[[noreturn]] void askForADeniedPriority() {
    if (getuid() == 0 && setuid(65534) != 0) {
        _exit(3);
    }
    const rlimit none{0, 0};
    setrlimit(RLIMIT_RTPRIO, &none);
    const std::string refusal = refusalOf({{"krin.runtime.threadPriority", "10"}});
    std::fprintf(stderr, "%s\n", refusal.c_str());
    const bool expected = refusal ==
                          "The runtime's thread cannot have real-time priority 10 (krin.runtime.threadPriority): "
                          "Operation not permitted";
    _exit(expected ? 0 : 1);
}

TEST(ThreadPlacementTest, APriorityTheSystemDeniesIsRefusedWithItsReason) {
    EXPECT_EXIT(askForADeniedPriority(), ::testing::ExitedWithCode(0), "cannot have real-time priority 10");
}

TEST(ThreadPlacementTest, AGrantedPriorityRunsTheRuntimesThreadFirstInFirstOut) {
    sched_param probe{};
    probe.sched_priority = 1;
    if (sched_setscheduler(0, SCHED_FIFO, &probe) != 0) {
        GTEST_SKIP() << "this process has no right to real-time scheduling";
    }
    const sched_param ordinary{};
    ASSERT_EQ(sched_setscheduler(0, SCHED_OTHER, &ordinary), 0);
    const auto dabo = KrinDabo::create({{"krin.runtime.threadPriority", "1"}});
    const pid_t thread = runtimeThread();
    ASSERT_NE(thread, 0);
    EXPECT_EQ(sched_getscheduler(thread), SCHED_FIFO);
}

}  // namespace

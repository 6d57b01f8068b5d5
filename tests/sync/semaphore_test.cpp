// CSem and CProcSem: counting, time-outs, a signal during a wait, the named
// semaphore's life cycle, names and failures.

#include "orlo/semaphore.h"

#include <pthread.h>
#include <semaphore.h>
#include <signal.h>

#include <gtest/gtest.h>

#include <atomic>
#include <climits>
#include <string>
#include <thread>

#include "sync/sync_test_support.h"

namespace Orlo {
namespace {

using synctest::Clock;
using synctest::Eventually;
using synctest::MillisecondsSince;
using synctest::NameGuard;
using synctest::NamePrefix;
using synctest::SleepMs;
using synctest::ThrownCode;

// `empty` holds no unit; it is given one at times and left empty again.
template <class Sem>
void CheckCountsAndTimeOuts(Sem& empty) {
    empty.V(0);
    EXPECT_FALSE(empty.P(0)) << "a count of 0 gave a unit";
    empty.V(2);
    EXPECT_TRUE(empty.TryP());
    EXPECT_TRUE(empty.P());
    EXPECT_FALSE(empty.TryP());
    const auto start = Clock::now();
    EXPECT_FALSE(empty.P(40));
    EXPECT_GE(MillisecondsSince(start), 39);
    EXPECT_FALSE(empty.P(timespec{1, 0})) << "a deadline long past";
    EXPECT_EQ(ThrownCode<semExp>([&] { empty.P(timespec{0, 1000000000}); }), SyncCode::Wait);
    for (uint32_t timeout : {0xFFFFFFFFu, 0xFFFFFFFEu}) {
        SCOPED_TRACE(timeout);
        std::atomic<bool> given{false};
        std::thread giver([&] {
            SleepMs(30);
            given = true;
            empty.V(1);
        });
        EXPECT_TRUE(empty.P(timeout));
        EXPECT_TRUE(given) << "returned before the unit came";
        giver.join();
    }
}

TEST(Semaphores, CountsAndTimeOuts) {
    {
        SCOPED_TRACE("CSem");
        CSem sem(0, 0);
        CheckCountsAndTimeOuts(sem);
    }
    {
        SCOPED_TRACE("CProcSem");
        NameGuard name("timeouts");
        CProcSem sem(name.name.c_str(), 0);
        CheckCountsAndTimeOuts(sem);
    }
}

std::atomic<int> signalsCaught{0};

// SIGUSR1 is caught without SA_RESTART, so that it interrupts a wait.
TEST(Semaphores, ASignalDoesNotEndAWait) {
    struct sigaction action {
    }, old{};
    action.sa_handler = [](int) { signalsCaught.fetch_add(1); };
    sigemptyset(&action.sa_mask);
    sigaction(SIGUSR1, &action, &old);
    for (const bool timed : {false, true}) {
        SCOPED_TRACE(timed ? "timed" : "untimed");
        CSem sem(0, 0);
        std::atomic<bool> returned{false};
        bool result = false;
        std::thread waiter([&] {
            result = sem.P(timed ? 300 : 0xFFFFFFFF);
            returned = true;
        });
        SleepMs(30);
        const int caughtBefore = signalsCaught;
        pthread_kill(waiter.native_handle(), SIGUSR1);
        EXPECT_TRUE(Eventually([&] { return signalsCaught > caughtBefore; }));
        SleepMs(30);
        EXPECT_FALSE(returned) << "the signal ended the wait";
        if (!timed) sem.V(1);
        waiter.join();
        EXPECT_EQ(result, !timed);
    }
    sigaction(SIGUSR1, &old, nullptr);
}

TEST(Semaphores, CountsBeyondTheSystemsLimit) {
    EXPECT_EQ(ThrownCode<semExp>([] { CSem sem(0x80000000u, 0); }), SyncCode::Create);
    // A V that fails reports itself as a failed wait.
    EXPECT_EQ(ThrownCode<semExp>([] { CSem(SEM_VALUE_MAX, 0).V(1); }), SyncCode::Wait);
}

// An attach keeps the existing count; all name forms reach one semaphore.
TEST(CProcSem, CreateOrAttachSharesOneSemaphore) {
    NameGuard name("count");
    CProcSem creator(name.name.c_str(), 2);
    EXPECT_TRUE(creator.CreatedByMe());
    wstringEx wideName;
    wideName.AppendOtherWidth(name.name.c_str());
    CProcSem slashed(("/" + name.name).c_str(), 5);
    CProcSem wide(wideName, 7);
    EXPECT_FALSE(slashed.CreatedByMe());
    EXPECT_FALSE(wide.CreatedByMe());
    EXPECT_TRUE(slashed.TryP());
    EXPECT_TRUE(wide.TryP());
    EXPECT_FALSE(creator.TryP()) << "an attach applied its count";
    creator.V(1);
    EXPECT_TRUE(wide.TryP()) << "a unit given through one object is lost to another";
}

TEST(CProcSem, OnlyTheCreatorRemovesTheName) {
    NameGuard name("unlink");
    {
        CProcSem creator(name.name.c_str(), 0);
        { CProcSem attached(name.name.c_str(), 0); }
        EXPECT_NO_THROW(CProcSem{name.name.c_str()}) << "an attached side removed the name";
    }
    EXPECT_EQ(ThrownCode<semExp>([&] { CProcSem gone(name.name.c_str()); }), SyncCode::OpenNamed)
        << "the creator left the name";
}

TEST(CProcSem, BadNamesAndCountsFail) {
    const std::string prefix = NamePrefix();
    for (const std::string& name : {prefix + "a/b", std::string(), prefix + "big"}) {
        SCOPED_TRACE(name);
        const uint32_t count = name.ends_with("big") ? 0x80000000u : 0;
        EXPECT_EQ(ThrownCode<semExp>([&] { CProcSem sem(name.c_str(), count); }), SyncCode::Create);
    }
}

}  // namespace
}  // namespace Orlo

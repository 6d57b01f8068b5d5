// CSem and CProcSem: counting, the forms of time-out, a signal in the middle
// of a wait, the named semaphore's life cycle, names and failures.

#include "orlo/semaphore.h"

#include <pthread.h>
#include <semaphore.h>
#include <signal.h>

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
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
using synctest::Text;
using synctest::ThrownCode;

TEST(Semaphores, CountUnits) {
    CSem sem(1, 0);
    EXPECT_TRUE(sem.TryP());
    EXPECT_FALSE(sem.TryP());
    sem.V(0);
    EXPECT_FALSE(sem.P(0)) << "a count of 0 gave a unit";
    sem.V(2);
    EXPECT_TRUE(sem.P(0));
    EXPECT_TRUE(sem.P());
    EXPECT_FALSE(sem.TryP());
}

// `empty` holds no unit; it is given one at times and left empty again.
template <class Sem>
void CheckTimeOuts(Sem& empty) {
    EXPECT_FALSE(empty.P(0));
    const auto start = Clock::now();
    EXPECT_FALSE(empty.P(40));
    const int64_t waited = MillisecondsSince(start);
    EXPECT_GE(waited, 39);
    EXPECT_LT(waited, 2000);
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

TEST(Semaphores, TimeOuts) {
    {
        SCOPED_TRACE("CSem");
        CSem sem(0, 0);
        CheckTimeOuts(sem);
    }
    {
        SCOPED_TRACE("CProcSem");
        NameGuard name("timeouts");
        CProcSem sem(name.name.c_str(), 0);
        CheckTimeOuts(sem);
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
        SCOPED_TRACE(timed ? "a timed wait goes on until its deadline"
                           : "an untimed wait goes on until a unit comes");
        CSem sem(0, 0);
        std::atomic<bool> returned{false};
        bool result = false;
        const int caughtBefore = signalsCaught;
        const auto start = Clock::now();
        std::thread waiter([&] {
            result = sem.P(timed ? 300 : 0xFFFFFFFF);
            returned = true;
        });
        SleepMs(30);
        pthread_kill(waiter.native_handle(), SIGUSR1);
        EXPECT_TRUE(Eventually([&] { return signalsCaught > caughtBefore; }));
        SleepMs(30);
        EXPECT_FALSE(returned) << "the signal ended the wait";
        if (!timed) sem.V(1);
        waiter.join();
        EXPECT_EQ(result, !timed);
        if (timed) {
            EXPECT_GE(MillisecondsSince(start), 299);
        }
    }
    sigaction(SIGUSR1, &old, nullptr);
}

TEST(Semaphores, CountsBeyondTheSystemsLimit) {
    EXPECT_EQ(ThrownCode<semExp>([] { CSem sem(0x80000000u, 0); }), SyncCode::Create);
    // A V speaks of P, and has one sentence for every error number.
    CSem full(SEM_VALUE_MAX, 0);
    try {
        full.V(1);
        ADD_FAILURE() << "a post above SEM_VALUE_MAX";
    } catch (const semExp& e) {
        EXPECT_EQ(e.code, SyncCode::Wait);
        EXPECT_EQ(Text(e),
                  "CSem::P - failed P a semaphore\n  error code = " + std::to_string(EOVERFLOW) +
                      "\n  error desc = current object is not a valid semaphore");
    }
}

// An attach leaves the count of the existing semaphore; names with and
// without the slash, narrow or wide, reach one semaphore.
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

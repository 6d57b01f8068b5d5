// CSem and CProcSem: counting, the forms of time-out, a signal in the middle
// of a wait, the named semaphore's life cycle and names, and the failure
// messages, compared byte for byte.

#include "orlo/semaphore.h"

#include <pthread.h>
#include <semaphore.h>
#include <signal.h>

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <climits>
#include <functional>
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
using synctest::OverlongName;
using synctest::OverlongNameIsTooLong;
using synctest::SleepMs;
using synctest::Text;

wstringEx Wide(const std::string& ascii) {
    wstringEx wide;
    wide.AppendOtherWidth(ascii.c_str());
    return wide;
}

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
    const struct {
        const char* what;
        uint32_t timeout;
        int64_t atLeastMs;
        int64_t belowMs;
    } timeOuts[] = {
        {"0 only tries", 0, 0, 100},
        {"a short time-out runs out", 40, 39, 2000},
    };
    for (const auto& t : timeOuts) {
        SCOPED_TRACE(t.what);
        const auto start = Clock::now();
        EXPECT_FALSE(empty.P(t.timeout));
        const int64_t waited = MillisecondsSince(start);
        EXPECT_GE(waited, t.atLeastMs);
        EXPECT_LT(waited, t.belowMs);
    }

    EXPECT_FALSE(empty.P(timespec{1, 0})) << "a deadline long past";
    try {
        empty.P(timespec{0, 1000000000});
        ADD_FAILURE() << "a deadline with a nanosecond count of a whole second";
    } catch (const semExp& e) {
        EXPECT_EQ(e.code, SyncCode::Wait);
        EXPECT_EQ(Text(e),
                  "TimedWait - failed P a semaphore\n  error code = 22\n"
                  "  error desc = invalid semaphore obj or invalid timeout argument");
    }

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

void CountSignal(int) {
    signalsCaught.fetch_add(1);
}

// Catches SIGUSR1 without SA_RESTART, so that it interrupts a wait, and puts
// the old disposition back.
class SignalCatcher {
  public:
    SignalCatcher() {
        struct sigaction action {};
        action.sa_handler = CountSignal;
        sigemptyset(&action.sa_mask);
        sigaction(SIGUSR1, &action, &m_old);
    }
    ~SignalCatcher() { sigaction(SIGUSR1, &m_old, nullptr); }

  private:
    struct sigaction m_old {};
};

TEST(Semaphores, ASignalDoesNotEndAWait) {
    SignalCatcher catcher;
    const struct {
        const char* what;
        uint32_t timeout;
        bool timesOut;
    } cases[] = {
        {"an untimed wait goes on until a unit comes", 0xFFFFFFFF, false},
        {"a timed wait goes on until its deadline", 300, true},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        CSem sem(0, 0);
        std::atomic<bool> returned{false};
        bool result = !c.timesOut;
        const int caughtBefore = signalsCaught;
        const auto start = Clock::now();
        std::thread waiter([&] {
            result = sem.P(c.timeout);
            returned = true;
        });
        SleepMs(30);
        pthread_kill(waiter.native_handle(), SIGUSR1);
        EXPECT_TRUE(Eventually([&] { return signalsCaught > caughtBefore; }));
        SleepMs(30);
        EXPECT_FALSE(returned) << "the signal ended the wait";
        if (!c.timesOut) sem.V(1);
        waiter.join();
        EXPECT_EQ(result, !c.timesOut);
        if (c.timesOut) {
            EXPECT_GE(MillisecondsSince(start), 299);
        }
    }
}

TEST(Semaphores, CountsBeyondTheSystemsLimit) {
    try {
        CSem sem(0x80000000u, 0);
        ADD_FAILURE() << "an initial count above SEM_VALUE_MAX";
    } catch (const semExp& e) {
        EXPECT_EQ(e.code, SyncCode::Create);
        EXPECT_EQ(Text(e),
                  "CSem::__Init - failed create semaphore\n  error code = 22\n"
                  "  error desc = the init value exceeds max limited");
    }
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

TEST(CProcSem, CreateOrAttachLeavesTheCountOfAnExistingSemaphore) {
    NameGuard name("count");
    CProcSem creator(name.name.c_str(), 2);
    EXPECT_TRUE(creator.CreatedByMe());
    {
        CProcSem attached(name.name.c_str(), 5);
        EXPECT_FALSE(attached.CreatedByMe());
        EXPECT_TRUE(attached.TryP());
        EXPECT_TRUE(attached.TryP());
        EXPECT_FALSE(attached.TryP()) << "the attach applied its count";
        attached.V(1);
    }
    CProcSem opened(name.name.c_str());
    EXPECT_FALSE(opened.CreatedByMe());
    EXPECT_TRUE(opened.TryP()) << "a unit given through one object is lost to another";
}

TEST(CProcSem, NamesWithAndWithoutSlashAreOneSemaphore) {
    NameGuard name("slash");
    CProcSem plain(name.name.c_str(), 0);
    CProcSem slashed(("/" + name.name).c_str());
    CProcSem wide(Wide(name.name), 7);
    EXPECT_FALSE(wide.CreatedByMe());
    plain.V(1);
    EXPECT_TRUE(slashed.TryP());
    slashed.V(1);
    EXPECT_TRUE(wide.TryP());
    EXPECT_FALSE(plain.TryP());
}

TEST(CProcSem, OnlyTheCreatorRemovesTheName) {
    NameGuard name("unlink");
    {
        CProcSem creator(name.name.c_str(), 0);
        { CProcSem attached(name.name.c_str(), 0); }
        EXPECT_NO_THROW(CProcSem{name.name.c_str()}) << "an attached side removed the name";
    }
    try {
        CProcSem gone(name.name.c_str());
        ADD_FAILURE() << "the creator left the name";
    } catch (const semExp& e) {
        EXPECT_EQ(e.code, SyncCode::OpenNamed);
        EXPECT_EQ(Text(e),
                  "OpenNamedSemaphore - failed create named semaphore\n"
                  "  semaphore name = /" +
                      name.name +
                      "\n  error code     = 2\n"
                      "  error desc     = the named semaphore does not exist");
    }
}

TEST(CProcSem, BadNamesAndCountsFailWithTheTablesWords) {
    const std::string prefix = NamePrefix();
    const bool tooLongSaysSo = OverlongNameIsTooLong();
    const struct {
        const char* what;
        std::string name;
        uint32_t count;
        int error;
        const char* desc;
    } cases[] = {
        {"a slash inside", prefix + "a/b", 0, EINVAL, "unsupport name or value is too big"},
        {"the name \"/\" alone", "", 0, EINVAL, "unsupport name or value is too big"},
        {"longer than a file name", OverlongName(), 0, tooLongSaysSo ? ENAMETOOLONG : EINVAL,
         tooLongSaysSo ? "semaphore name is too long" : "unsupport name or value is too big"},
        {"a count above SEM_VALUE_MAX", prefix + "big", 0x80000000u, EINVAL,
         "unsupport name or value is too big"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        try {
            CProcSem sem(c.name.c_str(), c.count);
            ADD_FAILURE() << "no exception";
        } catch (const semExp& e) {
            EXPECT_EQ(e.code, SyncCode::Create);
            EXPECT_EQ(Text(e),
                      "CreateNamedSemaphore - failed create named semaphore\n"
                      "  semaphore name = /" +
                          c.name + "\n  error code     = " + std::to_string(c.error) +
                          "\n  error desc     = " + c.desc);
        }
    }
}

TEST(CProcSem, OddButLegalNamesWork) {
    for (const char* tag :
         {"with space", "star*and?query", "percent%s%n", "\xc3\xa9t\xc3\xa9", "-"}) {
        SCOPED_TRACE(tag);
        NameGuard name(tag);
        CProcSem creator(name.name.c_str(), 1);
        EXPECT_TRUE(creator.CreatedByMe());
        CProcSem opened(name.name.c_str());
        EXPECT_TRUE(opened.TryP());
    }
}

}  // namespace
}  // namespace Orlo

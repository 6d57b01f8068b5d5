// CMutex and CProcMutex: time-outs against a held mutex, the named mutex's
// life cycle (who owns it, who removes it, across fork), and the failure
// messages, compared byte for byte.

#include "orlo/mutex.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <functional>
#include <future>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>

#include "sync/sync_test_support.h"

namespace Orlo {
namespace {

using synctest::Clock;
using synctest::kUnderThreadSanitizer;
using synctest::MillisecondsSince;
using synctest::NameGuard;
using synctest::NamePrefix;
using synctest::SleepMs;
using synctest::Text;

// The caller holds `held`, once. Another thread finds it taken, with every
// form of time-out; the holder itself may lock again.
template <class Mutex>
void CheckTimeOutsOnAHeldMutex(Mutex& held) {
    std::thread([&] {
        auto start = Clock::now();
        EXPECT_FALSE(held.TimedLock(0));
        EXPECT_LT(MillisecondsSince(start), 100) << "a time-out of 0 waited";
        EXPECT_FALSE(held.TryLock());

        start = Clock::now();
        EXPECT_FALSE(held.TimedLock(40));
        const int64_t waited = MillisecondsSince(start);
        EXPECT_GE(waited, 39);
        EXPECT_LT(waited, 2000);

        EXPECT_FALSE(held.TimedLock(timespec{1, 0})) << "a deadline long past";
        try {
            held.TimedLock(timespec{0, 1000000000});
            ADD_FAILURE() << "a deadline with a nanosecond count of a whole second";
        } catch (const mutexExp& e) {
            EXPECT_EQ(e.code, SyncCode::Wait);
            EXPECT_EQ(Text(e),
                      "TimedLock - failed lock mutex\n  error code = 22\n"
                      "  error desc = mutex object does not correctly initialized");
        }
    }).join();

    EXPECT_TRUE(held.TryLock()) << "the holder may lock again";
    EXPECT_TRUE(held.TimedLock(0));
    held.UnLock();
    held.UnLock();

    std::atomic<bool> acquired{false};
    std::thread waiter([&] {
        EXPECT_TRUE(held.TimedLock(0xFFFFFFFF));
        acquired = true;
        held.UnLock();
    });
    SleepMs(30);
    EXPECT_FALSE(acquired) << "a time-out of 0xFFFFFFFF didn't wait";
    held.UnLock();
    waiter.join();
    EXPECT_TRUE(acquired);
}

TEST(Mutexes, TimeOutsOnAHeldMutex) {
    {
        SCOPED_TRACE("CMutex");
        CMutex mutex(true);
        CheckTimeOutsOnAHeldMutex(mutex);
    }
    {
        SCOPED_TRACE("CProcMutex");
        NameGuard name("held");
        CProcMutex mutex(name.name.c_str(), true);
        EXPECT_TRUE(mutex.CreatedByMe());
        CheckTimeOutsOnAHeldMutex(mutex);
    }
}

TEST(CProcMutex, AttachingWithInitiallyOwnedDoesNotTakeTheMutex) {
    NameGuard name("attach");
    CProcMutex creator(name.name.c_str(), false);
    std::promise<void> attached;
    std::promise<void> checked;
    std::thread other([&] {
        CProcMutex second(name.name.c_str(), true);
        EXPECT_FALSE(second.CreatedByMe());
        attached.set_value();
        checked.get_future().wait();
    });
    attached.get_future().wait();
    if (creator.TimedLock(0)) {
        creator.UnLock();
    } else {
        ADD_FAILURE() << "the second attach owns the mutex";
    }
    checked.set_value();
    other.join();
}

// A child process attaches by name and adds under the lock; returns the exit
// status for the parent to check.
int AddInChild(const std::string& lockName, const std::string& areaName, int rounds) {
    try {
        CProcMutex lock(lockName.c_str());
        CSharedMemoryObject area(open_existing, areaName.c_str(), O_RDWR, sizeof(int64_t));
        auto* counter = static_cast<volatile int64_t*>(area.Address());
        for (int i = 0; i < rounds; ++i) {
            lock.Lock();
            *counter = *counter + 1;
            lock.UnLock();
        }
        return 0;
    } catch (...) {
        return 1;
    }
}

TEST(CProcMutex, ExcludesAcrossProcesses) {
    constexpr int kChildren = 2;
    constexpr int kRounds = 20000;
    NameGuard lockName("fork-lock");
    NameGuard areaName("fork-area");
    CProcMutex lock(lockName.name.c_str(), false);
    CSharedMemoryObject area(areaName.name.c_str(), O_RDWR, sizeof(int64_t));
    auto* counter = static_cast<volatile int64_t*>(area.Address());

    pid_t children[kChildren];
    for (pid_t& child : children) {
        child = fork();
        ASSERT_GE(child, 0) << "fork: " << strerror(errno);
        if (child == 0) _exit(AddInChild(lockName.name, areaName.name, kRounds));
    }
    for (int i = 0; i < kRounds; ++i) {
        lock.Lock();
        *counter = *counter + 1;
        lock.UnLock();
    }
    for (pid_t child : children) {
        int status = 0;
        ASSERT_EQ(waitpid(child, &status, 0), child);
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "child status " << status;
    }
    EXPECT_EQ(*counter, int64_t{kChildren + 1} * kRounds);
}

TEST(CProcMutex, OnlyTheCreatorRemovesTheName) {
    NameGuard name("life");
    auto creator = std::make_unique<CProcMutex>(name.name.c_str(), false);
    {
        CProcMutex attached(name.name.c_str());
        EXPECT_FALSE(attached.CreatedByMe());
        EXPECT_EQ(attached.Name(), ("/" + name.name).c_str());
    }
    EXPECT_NO_THROW(CProcMutex{name.name.c_str()}) << "an attached side removed the name";
    creator.reset();
    EXPECT_THROW(CProcMutex{name.name.c_str()}, mutexExp) << "the creator left the name";
}

TEST(CProcMutex, SharedMemoryFailuresAreWrapped) {
    const std::string prefix = NamePrefix();
    const std::string slashInside = prefix + "a/b";
    const std::string missing = prefix + "missing";
    const struct {
        const char* what;
        std::function<void()> make;
        std::string expected;
    } cases[] = {
        {"a slash inside the name", [&] { CProcMutex m(slashInside.c_str(), false); },
         "CProcMutex::CProcMutex - failed create shared memory\n  name = " + slashInside +
             "\n@ CreateSharedMemoryObject - failed create shared memory object\n"
             "  smo name    = /" +
             slashInside +
             "\n  flag        = 0x42\n  access mode = 0666\n  error code  = 22\n"
             "  error desc  = unsupport name"},
        {"open-existing of a name nobody made", [&] { CProcMutex m(missing.c_str()); },
         "CProcMutex::CProcMutex - failed open shared memory\n  name = " + missing +
             "\n@ OpenSharedMemoryObject - failed create shared memory object\n"
             "  smo name    = /" +
             missing +
             "\n  flag        = 0x2\n  access mode = 0666\n  error code  = 2\n"
             "  error desc  = the shared memory object does not exist"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        try {
            c.make();
            ADD_FAILURE() << "no exception";
        } catch (const mutexExp& e) {
            EXPECT_EQ(e.code, SyncCode::Create);
            EXPECT_EQ(Text(e), c.expected);
        }
    }
}

// Misuse that the system detects. ThreadSanitizer stops the process at the
// misuse itself, before the library can report it.
TEST(Mutexes, MisuseIsReportedInTheTablesWords) {
    if (kUnderThreadSanitizer) GTEST_SKIP() << "ThreadSanitizer reports the misuse itself";

    CMutex free;
    try {
        free.UnLock();
        ADD_FAILURE() << "unlock of a mutex nobody owns";
    } catch (const mutexExp& e) {
        EXPECT_EQ(e.code, SyncCode::Unlock);
        EXPECT_EQ(Text(e),
                  "CMutex::UnLock - failed unlock mutex\n  error code = 1\n"
                  "  error desc = the current thread does not own the mutex");
    }

    try {
        delete new CMutex(true);
        ADD_FAILURE() << "destroying a locked mutex";
    } catch (const mutexExp& e) {
        EXPECT_EQ(e.code, SyncCode::Close);
        EXPECT_EQ(Text(e),
                  "CMutex::~CMutex - failed close mutex\n  error code = 16\n"
                  "  error desc = attempt to destroy a locked mutex");
    }

    try {
        CMutex held(true);
        throw std::runtime_error("first");
    } catch (const std::runtime_error& e) {
        EXPECT_STREQ(e.what(), "first") << "the destructor's failure replaced the first one";
    }

    // The creator can't destroy a locked named mutex; the area stays for
    // whoever may still hold it.
    NameGuard name("locked");
    try {
        delete new CProcMutex(name.name.c_str(), true);
        ADD_FAILURE() << "destroying a locked named mutex";
    } catch (const mutexExp& e) {
        EXPECT_EQ(e.code, SyncCode::Close);
        EXPECT_EQ(Text(e),
                  "CProcMutex::~CProcMutex - failed close mutex\n  error code = 16\n"
                  "  error desc = attempt to destroy a locked mutex");
    }
    const int descriptor = shm_open(("/" + name.name).c_str(), O_RDWR, 0);
    EXPECT_GE(descriptor, 0) << "the area was removed";
    if (descriptor >= 0) close(descriptor);
}

}  // namespace
}  // namespace Orlo

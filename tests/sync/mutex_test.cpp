// CMutex and CProcMutex: time-outs against a held mutex, the named mutex's
// life cycle (who owns it, who removes it, across fork), and failures.

#include "orlo/mutex.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <cstring>
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
using synctest::ThrownCode;

// The caller holds `held`, once. Another thread finds it taken, with every
// form of time-out; the holder itself may lock again.
template <class Mutex>
void CheckTimeOutsOnAHeldMutex(Mutex& held) {
    std::thread([&] {
        EXPECT_FALSE(held.TryLock());
        EXPECT_FALSE(held.TimedLock(0));
        const auto start = Clock::now();
        EXPECT_FALSE(held.TimedLock(40));
        const int64_t waited = MillisecondsSince(start);
        EXPECT_GE(waited, 39);
        EXPECT_LT(waited, 2000);
        EXPECT_FALSE(held.TimedLock(timespec{1, 0})) << "a deadline long past";
        EXPECT_EQ(ThrownCode<mutexExp>([&] {
                      held.TimedLock(timespec{0, 1000000000});
                  }),
                  SyncCode::Wait);
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

// A child process attaches by name and adds under the lock.
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
        // Attaching with "initially owned" must not take the mutex.
        CProcMutex attached(name.name.c_str(), true);
        EXPECT_FALSE(attached.CreatedByMe());
        EXPECT_EQ(attached.Name(), ("/" + name.name).c_str());
        std::thread([&] {
            EXPECT_TRUE(creator->TimedLock(0)) << "the second attach owns the mutex";
            creator->UnLock();
        }).join();
    }
    EXPECT_NO_THROW(CProcMutex{name.name.c_str()}) << "an attached side removed the name";
    creator.reset();
    EXPECT_THROW(CProcMutex{name.name.c_str()}, mutexExp) << "the creator left the name";
}

TEST(CProcMutex, SharedMemoryFailuresAreWrapped) {
    const std::string missing = NamePrefix() + "missing";
    try {
        CProcMutex m(missing.c_str());
        ADD_FAILURE() << "open-existing of a name nobody made";
    } catch (const mutexExp& e) {
        EXPECT_EQ(e.code, SyncCode::Create);
        EXPECT_EQ(Text(e),
                  "CProcMutex::CProcMutex - failed open shared memory\n  name = " + missing +
                      "\n@ OpenSharedMemoryObject - failed create shared memory object\n"
                      "  smo name    = /" +
                      missing +
                      "\n  flag        = 0x2\n  access mode = 0666\n  error code  = 2\n"
                      "  error desc  = the shared memory object does not exist");
    }
}

// Misuse that the system detects. ThreadSanitizer stops the process at the
// misuse itself, before the library can report it.
TEST(Mutexes, MisuseIsReported) {
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
    EXPECT_EQ(ThrownCode<mutexExp>([] { delete new CMutex(true); }), SyncCode::Close);
    try {
        CMutex held(true);
        throw std::runtime_error("first");
    } catch (const std::runtime_error& e) {
        EXPECT_STREQ(e.what(), "first") << "the destructor's failure replaced the first one";
    }
    // The creator can't destroy a locked named mutex; the area stays for
    // whoever may still hold it.
    NameGuard name("locked");
    EXPECT_EQ(ThrownCode<mutexExp>([&] { delete new CProcMutex(name.name.c_str(), true); }),
              SyncCode::Close);
    const int descriptor = shm_open(("/" + name.name).c_str(), O_RDWR, 0);
    EXPECT_GE(descriptor, 0) << "the area was removed";
    if (descriptor >= 0) close(descriptor);
}

}  // namespace
}  // namespace Orlo

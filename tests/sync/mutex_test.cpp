// CMutex and CProcMutex: time-outs against a held mutex, the named mutex's
// life cycle (who owns it, who removes it, across fork), and failures.

#include "orlo/mutex.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <atomic>
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

// The caller holds `held`, once. Another thread finds it taken; the holder
// itself may lock again.
template <class Mutex>
void CheckTimeOutsOnAHeldMutex(Mutex& held) {
    std::thread([&] {
        EXPECT_FALSE(held.TryLock());
        const auto start = Clock::now();
        EXPECT_FALSE(held.TimedLock(40));
        EXPECT_GE(MillisecondsSince(start), 39);
        EXPECT_FALSE(held.TimedLock(timespec{1, 0})) << "a deadline long past";
        EXPECT_EQ(ThrownCode<mutexExp>([&] {
                      held.TimedLock(timespec{0, 1000000000});
                  }),
                  SyncCode::Wait);
    }).join();

    EXPECT_TRUE(held.TimedLock(0)) << "the holder may lock again";
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

// Two children attach by name and add under the lock, as does the parent.
TEST(CProcMutex, ExcludesAcrossProcesses) {
    constexpr int kProcesses = 3;
    constexpr int kRounds = 20000;
    NameGuard lockName("fork-lock");
    NameGuard areaName("fork-area");
    CProcMutex created(lockName.name.c_str(), false);
    CSharedMemoryObject area(areaName.name.c_str(), O_RDWR, sizeof(int64_t));
    auto* counter = static_cast<volatile int64_t*>(area.Address());

    pid_t children[kProcesses - 1] = {fork(), 0};
    if (children[0] > 0) children[1] = fork();
    const bool isChild = children[0] == 0 || children[1] == 0;
    try {
        CProcMutex lock(lockName.name.c_str());
        for (int i = 0; i < kRounds; ++i) {
            lock.Lock();
            *counter = *counter + 1;
            lock.UnLock();
        }
    } catch (...) {
        if (isChild) _exit(1);
        throw;
    }
    if (isChild) _exit(0);
    for (pid_t child : children) {
        int status = 0;
        ASSERT_EQ(waitpid(child, &status, 0), child);
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "child status " << status;
    }
    EXPECT_EQ(*counter, int64_t{kProcesses} * kRounds);
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
        EXPECT_TRUE(
            Text(e).starts_with("CProcMutex::CProcMutex - failed open shared memory\n"
                                "  name = " +
                                missing + "\n@ OpenSharedMemoryObject - "))
            << Text(e);
    }
}

// Misuse that the system detects. ThreadSanitizer stops the process at the
// misuse itself, before the library can report it.
TEST(Mutexes, MisuseIsReported) {
    if (kUnderThreadSanitizer) GTEST_SKIP() << "ThreadSanitizer reports the misuse itself";
    EXPECT_EQ(ThrownCode<mutexExp>([] { CMutex().UnLock(); }), SyncCode::Unlock);
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

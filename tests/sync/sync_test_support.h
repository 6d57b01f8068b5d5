// Helpers for the synchronisation tests: unique names for named objects, a
// guard that removes them whatever happens to the test, a check that the
// process leaves nothing in /dev/shm, and small timing and threading aids.

#ifndef ORLO_TESTS_SYNC_SYNC_TEST_SUPPORT_H
#define ORLO_TESTS_SYNC_SYNC_TEST_SUPPORT_H

#include <dirent.h>
#include <fcntl.h>
#include <semaphore.h>
#include <sys/mman.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "orlo/exceptions.h"

namespace Orlo::synctest {

#if defined(__SANITIZE_THREAD__)
inline constexpr bool kUnderThreadSanitizer = true;
#else
inline constexpr bool kUnderThreadSanitizer = false;
#endif

// Every name a test makes starts with this, so leftovers can be told apart
// from those of other processes.
inline std::string NamePrefix() {
    return "orlo-sync-test-" + std::to_string(getpid()) + "-";
}

// A name no other test or process uses; `tag` says which test made it.
inline std::string UniqueName(const char* tag) {
    static std::atomic<int> counter{0};
    return NamePrefix() + std::to_string(++counter) + "-" + tag;
}

// Owns a unique name and removes the semaphore and the shared memory area of
// that name when the test ends, also when it fails half-way.
struct NameGuard {
    explicit NameGuard(const char* tag) : name(UniqueName(tag)) {}
    NameGuard(const NameGuard&) = delete;
    NameGuard& operator=(const NameGuard&) = delete;
    ~NameGuard() {
        sem_unlink(("/" + name).c_str());
        shm_unlink(("/" + name).c_str());
    }
    std::string name;
};

// The entries of /dev/shm that this process made (semaphores appear there
// as "sem." and their name).
inline std::vector<std::string> LeftoversInDevShm() {
    std::vector<std::string> found;
    DIR* dir = opendir("/dev/shm");
    if (!dir) return found;
    const std::string prefix = NamePrefix();
    while (dirent* entry = readdir(dir)) {
        if (std::string(entry->d_name).find(prefix) != std::string::npos) {
            found.emplace_back(entry->d_name);
        }
    }
    closedir(dir);
    return found;
}

class NoLeftoversCheck : public ::testing::Environment {
  public:
    void TearDown() override {
        for (const std::string& name : LeftoversInDevShm()) {
            ADD_FAILURE() << "left behind in /dev/shm: " << name;
        }
    }
};

inline ::testing::Environment* const kNoLeftoversCheck =
    ::testing::AddGlobalTestEnvironment(new NoLeftoversCheck);

// A name longer than the system takes for a shared memory area or a
// semaphore.
inline std::string OverlongName() {
    return NamePrefix() + std::string(300, 'n');
}

// True if the C library answers an overlong name with ENAMETOOLONG; glibc
// up to 2.36 says EINVAL, as for any other name it can't take.
inline bool OverlongNameIsTooLong() {
    std::string path = "/";
    path += OverlongName();
    const int descriptor = shm_open(path.c_str(), O_RDONLY, 0);
    if (descriptor >= 0) close(descriptor);
    return descriptor < 0 && errno == ENAMETOOLONG;
}

inline std::string Text(const byExp& e) {
    return std::string(e.message.view());
}

using Clock = std::chrono::steady_clock;

inline int64_t MillisecondsSince(Clock::time_point start) {
    return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start).count();
}

inline void SleepMs(int milliseconds) {
    std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
}

// Polls `condition` for up to five seconds; returns whether it came true.
// Used where a test must wait for another thread to reach a state that has
// no event of its own (e.g. "counted in and asleep").
inline bool Eventually(const std::function<bool()>& condition) {
    const auto deadline = Clock::now() + std::chrono::seconds(5);
    while (!condition()) {
        if (Clock::now() > deadline) return false;
        std::this_thread::sleep_for(std::chrono::microseconds(200));
    }
    return true;
}

// Runs `body(index)` on `count` threads and joins them.
inline void RunThreads(int count, const std::function<void(int)>& body) {
    std::vector<std::thread> threads;
    for (int i = 0; i < count; ++i)
        threads.emplace_back(body, i);
    for (std::thread& t : threads)
        t.join();
}

}  // namespace Orlo::synctest

#endif  // ORLO_TESTS_SYNC_SYNC_TEST_SUPPORT_H

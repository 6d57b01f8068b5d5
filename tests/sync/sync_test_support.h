// Helpers for the synchronisation tests: unique names, a guard that removes
// them, a check that nothing is left in /dev/shm, timing and thread aids.

#ifndef ORLO_TESTS_SYNC_SYNC_TEST_SUPPORT_H
#define ORLO_TESTS_SYNC_SYNC_TEST_SUPPORT_H

#include <dirent.h>
#include <semaphore.h>
#include <sys/mman.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <atomic>
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

inline std::string NamePrefix() {
    return "orlo-sync-test-" + std::to_string(getpid()) + "-";
}

// Owns a unique name; removes the semaphore and area of that name.
struct NameGuard {
    explicit NameGuard(const char* tag) {
        static std::atomic<int> counter{0};
        name = NamePrefix() + std::to_string(++counter) + "-" + tag;
    }
    NameGuard(const NameGuard&) = delete;
    NameGuard& operator=(const NameGuard&) = delete;
    ~NameGuard() {
        sem_unlink(("/" + name).c_str());
        shm_unlink(("/" + name).c_str());
    }
    std::string name;
};

// Fails if this process left anything in /dev/shm.
class NoLeftoversCheck : public ::testing::Environment {
  public:
    void TearDown() override {
        DIR* dir = opendir("/dev/shm");
        if (!dir) return;
        while (dirent* entry = readdir(dir)) {
            if (std::string(entry->d_name).find(NamePrefix()) != std::string::npos)
                ADD_FAILURE() << "left behind in /dev/shm: " << entry->d_name;
        }
        closedir(dir);
    }
};

inline ::testing::Environment* const kNoLeftoversCheck =
    ::testing::AddGlobalTestEnvironment(new NoLeftoversCheck);

inline std::string Text(const byExp& e) {
    return std::string(e.message.view());
}

// The code of the `Exp` that `body` throws, or -1 if it throws none.
template <class Exp, class Body>
int32_t ThrownCode(Body&& body) {
    try {
        body();
    } catch (const Exp& e) {
        return e.code;
    }
    return -1;
}

using Clock = std::chrono::steady_clock;

inline int64_t MillisecondsSince(Clock::time_point start) {
    return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start).count();
}

inline void SleepMs(int ms) {
    std::this_thread::sleep_for(std::chrono::milliseconds(ms));
}

// Polls `condition` for up to five seconds; returns whether it came true.
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

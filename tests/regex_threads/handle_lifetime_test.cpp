// Handles copied, passed on and dropped across threads.
//
// The count of a handle is atomic and the last owner frees the compiled
// pattern, whichever thread that is. A count that loses an update frees
// too early (a use after free under the address sanitizer) or never (a
// leak); a release without the right ordering lets the free race with
// another thread's last match, which the thread sanitizer reports. A
// thread also keeps the DFAs of patterns it matched after another thread
// has freed them; its later searches must not touch the freed patterns.

#include <gtest/gtest.h>

#include <deque>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "orlo/regex.h"
#include "orlo/regex_replace.h"
#include "regex_threads/thread_test_support.h"

namespace Orlo::regex_threads {
namespace {

template <class CharT>
basic_regex_handle<CharT> Compile(std::u32string_view pattern) {
    basic_buffer<CharT> p = Text<CharT>(pattern);
    return compile_pattern_handle(p, false, false, 1, false);
}

// "offset,length" of the first match, or "none".
template <class CharT>
std::string FirstMatch(const basic_regex_handle<CharT>& h, const basic_buffer<CharT>& subject) {
    CRegMatch match;
    if (!RegFind(subject, match, h, 0, 0, false, false, false)) return "none";
    std::string out;
    AppendNumber(out, match[0].first);
    out += ',';
    AppendNumber(out, match[0].second);
    return out;
}

template <class CharT>
class HandleLifetimeTest : public ::testing::Test {};
using CharTypes = ::testing::Types<char, wchar_t>;
TYPED_TEST_SUITE(HandleLifetimeTest, CharTypes);

// The creator lets go first; the copies are made, traded and dropped by
// the threads, so the free happens on whichever thread ends last.
TYPED_TEST(HandleLifetimeTest, TheLastOwnerFreesOnWhicheverThread) {
    using CharT = TypeParam;
    constexpr int kThreads = 4;
    constexpr int kRounds = 40;
    const basic_buffer<CharT> subject = Text<CharT>(U"xxabcabcabcyy");
    for (int round = 0; round < kRounds; ++round) {
        std::optional<basic_regex_handle<CharT>> created = Compile<CharT>(U"(abc)+");
        ASSERT_FALSE(created->empty());
        // Holds one handle at a time; the threads trade theirs for it.
        std::mutex mailboxLock;
        basic_regex_handle<CharT> mailbox = *created;
        int finished = 0;
        std::string seen[kThreads];
        std::latch copied(kThreads + 1);
        std::vector<std::thread> pool;
        for (int t = 0; t < kThreads; ++t) {
            pool.emplace_back([&, t] {
                basic_regex_handle<CharT> mine = *created;  // all at once, from one handle
                copied.arrive_and_wait();
                for (int i = 0; i < 20; ++i) {
                    basic_regex_handle<CharT> copy = mine;
                    copy = copy;  // a self-assignment keeps the count
                    seen[t] += FirstMatch(copy, subject);
                    seen[t] += ' ';
                    std::lock_guard<std::mutex> guard(mailboxLock);
                    std::swap(mine, mailbox);  // trade with whoever was last here
                }
                std::lock_guard<std::mutex> guard(mailboxLock);
                if (++finished == kThreads) mailbox = basic_regex_handle<CharT>();
            });
        }
        copied.arrive_and_wait();
        created.reset();
        for (std::thread& thread : pool)
            thread.join();
        for (int t = 0; t < kThreads; ++t) {
            std::string expected;
            for (int i = 0; i < 20; ++i)
                expected += "2,9 ";
            EXPECT_EQ(seen[t], expected) << "thread " << t << " round " << round;
        }
    }
}

// One thread compiles and holds on to its last few handles; others take
// copies, match and drop them. Each pattern is freed by whichever thread
// lets go last, while the consumers go on searching with DFAs kept from
// patterns that may already be gone.
TYPED_TEST(HandleLifetimeTest, HandlesCompiledOnOneThreadAreFreedOnOthers) {
    using CharT = TypeParam;
    constexpr int kConsumers = 3;
    constexpr int kHandles = 300;
    // a{n}b on ten a's and a b: each n has its own answer.
    const basic_buffer<CharT> subject = Text<CharT>(U"aaaaaaaaaab");
    auto patternFor = [](int n) {
        std::u32string p = U"a{";
        for (char c : std::to_string(n))
            p.push_back(char32_t(c));
        p += U"}b";
        return p;
    };
    auto expectedFor = [](int n) {
        std::string out;
        AppendNumber(out, 10 - n);
        out += ',';
        AppendNumber(out, n + 1);
        return out;
    };

    std::mutex queueLock;
    std::deque<std::pair<int, basic_regex_handle<CharT>>> queue;
    bool done = false;
    std::vector<std::string> wrong[kConsumers];
    int matched[kConsumers] = {};

    std::thread producer([&] {
        std::deque<basic_regex_handle<CharT>> recent;
        for (int i = 0; i < kHandles; ++i) {
            const int n = 1 + i % 10;
            recent.push_back(Compile<CharT>(patternFor(n)));
            if (recent.size() > 4) recent.pop_front();
            std::lock_guard<std::mutex> guard(queueLock);
            queue.emplace_back(n, recent.back());
        }
        recent.clear();
        std::lock_guard<std::mutex> guard(queueLock);
        done = true;
    });
    std::vector<std::thread> consumers;
    for (int c = 0; c < kConsumers; ++c) {
        consumers.emplace_back([&, c] {
            for (;;) {
                std::optional<std::pair<int, basic_regex_handle<CharT>>> item;
                {
                    std::lock_guard<std::mutex> guard(queueLock);
                    if (!queue.empty()) {
                        item = std::move(queue.front());
                        queue.pop_front();
                    } else if (done) {
                        return;
                    }
                }
                if (!item) {
                    std::this_thread::yield();
                    continue;
                }
                const std::string got = FirstMatch(item->second, subject);
                if (got != expectedFor(item->first)) {
                    std::string note = "a{";
                    AppendNumber(note, item->first);
                    note += "}b gave ";
                    note += got;
                    wrong[c].push_back(note);
                }
                ++matched[c];
            }
        });
    }
    producer.join();
    for (std::thread& consumer : consumers)
        consumer.join();

    int total = 0;
    for (int c = 0; c < kConsumers; ++c) {
        total += matched[c];
        for (const std::string& w : wrong[c])
            ADD_FAILURE() << "consumer " << c << ": " << w;
    }
    EXPECT_EQ(total, kHandles);
}

}  // namespace
}  // namespace Orlo::regex_threads

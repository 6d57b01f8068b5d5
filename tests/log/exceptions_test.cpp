// The exception tree and its objects. The tree is checked against a table of
// class -> base written out independently of the header: every class is
// thrown and offered to a handler of every class, and must be caught exactly
// by itself and its ancestors.

#include "orlo/exceptions.h"

#include <gtest/gtest.h>

#include <map>
#include <string>
#include <tuple>

namespace Orlo {
namespace {

const std::map<std::string, std::string> kBaseOf = {
    {"utilExp", "byExp"},        {"ioExp", "utilExp"},      {"fileExp", "ioExp"},
    {"sysfileExp", "fileExp"},   {"pipeExp", "sysfileExp"}, {"cfileExp", "fileExp"},
    {"fmppExp", "fileExp"},      {"dirExp", "ioExp"},       {"shmemExp", "ioExp"},
    {"isxfExp", "ioExp"},        {"syssrvExp", "utilExp"},  {"tconvExp", "syssrvExp"},
    {"libiconvExp", "tconvExp"}, {"libicuExp", "tconvExp"}, {"dlllExp", "syssrvExp"},
    {"timeExp", "syssrvExp"},    {"procExp", "syssrvExp"},  {"regExp", "syssrvExp"},
    {"threadExp", "syssrvExp"},  {"tlsExp", "syssrvExp"},   {"syncExp", "utilExp"},
    {"mutexExp", "syncExp"},     {"eventExp", "syncExp"},   {"semExp", "syncExp"},
    {"auxExp", "utilExp"},       {"logExp", "auxExp"},      {"csvExp", "auxExp"},
};

bool IsSelfOrAncestor(const std::string& handler, std::string thrown) {
    for (;;) {
        if (thrown == handler) return true;
        const auto base = kBaseOf.find(thrown);
        if (base == kBaseOf.end()) return false;
        thrown = base->second;
    }
}

template <class T>
struct Named {
    const char* name;
};

const auto kAllClasses = std::make_tuple(
    Named<byExp>{"byExp"}, Named<utilExp>{"utilExp"}, Named<ioExp>{"ioExp"},
    Named<fileExp>{"fileExp"}, Named<sysfileExp>{"sysfileExp"}, Named<pipeExp>{"pipeExp"},
    Named<cfileExp>{"cfileExp"}, Named<fmppExp>{"fmppExp"}, Named<dirExp>{"dirExp"},
    Named<shmemExp>{"shmemExp"}, Named<isxfExp>{"isxfExp"}, Named<syssrvExp>{"syssrvExp"},
    Named<tconvExp>{"tconvExp"}, Named<libiconvExp>{"libiconvExp"}, Named<libicuExp>{"libicuExp"},
    Named<dlllExp>{"dlllExp"}, Named<timeExp>{"timeExp"}, Named<procExp>{"procExp"},
    Named<regExp>{"regExp"}, Named<threadExp>{"threadExp"}, Named<tlsExp>{"tlsExp"},
    Named<syncExp>{"syncExp"}, Named<mutexExp>{"mutexExp"}, Named<eventExp>{"eventExp"},
    Named<semExp>{"semExp"}, Named<auxExp>{"auxExp"}, Named<logExp>{"logExp"},
    Named<csvExp>{"csvExp"});

template <class Thrown, class Handler>
bool CaughtBy() {
    try {
        throw Thrown(stringEx("head"), 1);
    } catch (const Handler&) {
        return true;
    } catch (...) {
        return false;
    }
}

template <class Thrown, class Handler>
void ExpectCaughtOnlyByAncestors(const Named<Thrown>& thrown, const Named<Handler>& handler) {
    EXPECT_EQ((CaughtBy<Thrown, Handler>()), IsSelfOrAncestor(handler.name, thrown.name))
        << thrown.name << " offered to a handler of " << handler.name;
}

template <class Thrown>
void CheckAgainstEveryHandler(const Named<Thrown>& thrown) {
    std::apply([&](const auto&... handler) { (ExpectCaughtOnlyByAncestors(thrown, handler), ...); },
               kAllClasses);
    // No class adds state: a catch by any base sees the whole object.
    EXPECT_EQ(sizeof(Thrown), sizeof(byExp)) << thrown.name;
}

TEST(ExpTree, EveryClassIsCaughtByItselfAndItsAncestorsOnly) {
    ASSERT_EQ(std::tuple_size_v<decltype(kAllClasses)>, kBaseOf.size() + 1);
    std::apply([](const auto&... thrown) { (CheckAgainstEveryHandler(thrown), ...); }, kAllClasses);
}

TEST(ExpObject, SharesTheMessageBufferAndKeepsTheCode) {
    const stringEx text("CDir::ReadFile - read what ?");
    const dirExp original(text, DirCode::InvalidArgument);
    EXPECT_EQ(original.message.data(), text.data());
    EXPECT_EQ(original.code, 2);

    const dirExp copy(original);
    EXPECT_EQ(copy.message.data(), text.data());
    EXPECT_EQ(text.use_count(), 3u);
    EXPECT_EQ(copy.code, DirCode::InvalidArgument);
}

TEST(ExpObject, ThrownAndCaughtByBaseKeepsTextAndCode) {
    const stringEx text("CMutex::Lock - failed lock mutex\n  error code = 35");
    try {
        throw mutexExp(text, SyncCode::Wait);
    } catch (const syncExp& e) {
        EXPECT_EQ(e.message.data(), text.data());
        EXPECT_EQ(e.message.view(), text.view());
        EXPECT_EQ(e.code, 4);
        return;
    }
    FAIL() << "not caught";
}

// ---- destructors that may throw ---------------------------------------------------

struct FailsOnClose {
    ~FailsOnClose() noexcept(false) {
        ThrowUnlessUnwinding([] {
            throw eventExp(stringEx("CEvent::~CEvent - failed close event"), SyncCode::Close);
        });
    }
};

TEST(ThrowingDestructor, FailureReachesTheCallerInNormalFlow) {
    try {
        FailsOnClose object;
    } catch (const eventExp& e) {
        EXPECT_EQ(e.code, SyncCode::Close);
        return;
    }
    FAIL() << "the destructor's failure was lost";
}

TEST(ThrowingDestructor, FailureIsSwallowedWhileAnotherExceptionUnwinds) {
    try {
        FailsOnClose object;
        throw dirExp(stringEx("CDir::Open - nothing to open"), DirCode::InvalidArgument);
    } catch (const dirExp& e) {
        EXPECT_EQ(e.message.view(), "CDir::Open - nothing to open");
        return;
    } catch (const byExp&) {
        FAIL() << "the destructor's failure replaced the first one";
    }
    FAIL() << "nothing was caught";
}

// Inside a handler the first exception is caught, not unwinding: a
// destructor run there reports its failure.
TEST(ThrowingDestructor, FailureInsideAHandlerReachesTheCaller) {
    bool reported = false;
    try {
        throw logExp(stringEx("CLog::PopLogger - nothing to pop"), LogCode::NothingToPop);
    } catch (const logExp&) {
        try {
            FailsOnClose object;
        } catch (const eventExp&) {
            reported = true;
        }
    }
    EXPECT_TRUE(reported);
}

}  // namespace
}  // namespace Orlo

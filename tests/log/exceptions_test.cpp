// The exception tree and its objects. The tree is checked against bases
// written out by hand, independently of the header: every class is thrown and
// offered to a handler of every class, and must be caught exactly by itself
// and its ancestors.

#include "orlo/exceptions.h"

#include <gtest/gtest.h>

#include <map>
#include <string>
#include <tuple>

namespace Orlo {
namespace {

template <class T>
struct Class {
    const char* name;
    const char* base;  // "" for the root
};

#define CLASS(T, base) (Class<T>{#T, #base})
const auto kTree = std::make_tuple(
    CLASS(byExp, ), CLASS(utilExp, byExp), CLASS(ioExp, utilExp), CLASS(fileExp, ioExp),
    CLASS(sysfileExp, fileExp), CLASS(pipeExp, sysfileExp), CLASS(cfileExp, fileExp),
    CLASS(fmppExp, fileExp), CLASS(dirExp, ioExp), CLASS(shmemExp, ioExp), CLASS(isxfExp, ioExp),
    CLASS(syssrvExp, utilExp), CLASS(tconvExp, syssrvExp), CLASS(libiconvExp, tconvExp),
    CLASS(libicuExp, tconvExp), CLASS(dlllExp, syssrvExp), CLASS(timeExp, syssrvExp),
    CLASS(procExp, syssrvExp), CLASS(regExp, syssrvExp), CLASS(threadExp, syssrvExp),
    CLASS(tlsExp, syssrvExp), CLASS(syncExp, utilExp), CLASS(mutexExp, syncExp),
    CLASS(eventExp, syncExp), CLASS(semExp, syncExp), CLASS(auxExp, utilExp), CLASS(logExp, auxExp),
    CLASS(csvExp, auxExp));
#undef CLASS

bool IsSelfOrAncestor(const std::string& handler, std::string thrown) {
    std::map<std::string, std::string> baseOf;
    std::apply([&](const auto&... c) { (baseOf.emplace(c.name, c.base), ...); }, kTree);
    for (; !thrown.empty(); thrown = baseOf.at(thrown))
        if (thrown == handler) return true;
    return false;
}

template <class Thrown>
void CheckAgainstEveryHandler(const Class<Thrown>& thrown) {
    auto offer = [&]<class Handler>(const Class<Handler>& handler) {
        bool caught = false;
        try {
            throw Thrown(stringEx("head"), 1);
        } catch (const Handler&) {
            caught = true;
        } catch (...) {
        }
        EXPECT_EQ(caught, IsSelfOrAncestor(handler.name, thrown.name))
            << thrown.name << " offered to a handler of " << handler.name;
    };
    std::apply([&](const auto&... handler) { (offer(handler), ...); }, kTree);
    // No class adds state: a catch by any base sees the whole object.
    EXPECT_EQ(sizeof(Thrown), sizeof(byExp)) << thrown.name;
}

TEST(ExpTree, EveryClassIsCaughtByItselfAndItsAncestorsOnly) {
    std::apply([](const auto&... thrown) { (CheckAgainstEveryHandler(thrown), ...); }, kTree);
}

TEST(ExpObject, CopiesShareTheMessageBufferAndKeepTheCode) {
    const stringEx text("CDir::ReadFile - read what ?");
    const dirExp original(text, DirCode::InvalidArgument);
    const ioExp& copy = dirExp(original);
    EXPECT_EQ(copy.message.data(), text.data());
    EXPECT_EQ(text.use_count(), 3u);
    EXPECT_EQ(copy.code, 2);
}

struct FailsOnClose {
    ~FailsOnClose() noexcept(false) {
        ThrowUnlessUnwinding([] { throw eventExp(stringEx("close failed"), SyncCode::Close); });
    }
};

bool CloseFailureReported() {
    try {
        FailsOnClose object;
    } catch (const eventExp&) {
        return true;
    }
    return false;
}

TEST(ThrowingDestructor, ReportsUnlessAnotherExceptionUnwinds) {
    EXPECT_TRUE(CloseFailureReported()) << "normal flow";
    std::string caught;
    try {
        FailsOnClose object;
        throw dirExp(stringEx("CDir::Open - nothing to open"), DirCode::InvalidArgument);
    } catch (const byExp& e) {
        caught = e.message.view();
    }
    EXPECT_EQ(caught, "CDir::Open - nothing to open") << "the first failure must survive";
}

}  // namespace
}  // namespace Orlo

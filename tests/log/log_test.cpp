// The log front. Loggers here write into one shared journal, so that a test
// sees the order in which the filter and the loggers were called, and where
// the flushes fell between the writes.

#include "orlo/log.h"

#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <string>
#include <thread>
#include <vector>

#include "orlo/exceptions.h"

namespace Orlo {
namespace {

using Journal = std::vector<std::string>;

class JournalLogger : public ILogger {
  public:
    JournalLogger(std::string id, Journal& journal, bool passes = true)
        : m_id(std::move(id)), m_journal(journal), m_passes(passes) {}

    bool Write(const CTime& when, int level, const stringEx& name, const stringEx& text) override {
        lastTime = when;
        m_journal.push_back(m_id + " " + std::to_string(level) + " " + std::string(name.view()) +
                            " " + std::string(text.view()));
        return m_passes;
    }
    void Flush() override { m_journal.push_back(m_id + " flush"); }

    CTime lastTime;

  private:
    std::string m_id;
    Journal& m_journal;
    bool m_passes;
};

// The code of the logExp that `body` throws, or -1.
template <class Body>
int32_t ThrownCode(Body&& body) {
    try {
        body();
    } catch (const logExp& e) {
        return e.code;
    }
    return -1;
}

// Every test starts and ends with no process-wide object.
class LogTest : public ::testing::Test {
  protected:
    void SetUp() override { CLog::SetCurrent(nullptr); }
    void TearDown() override { CLog::SetCurrent(nullptr); }

    // Installs a log object with one logger "A" and returns it.
    std::shared_ptr<CLog> InstallWithLogger(uint32_t formatSize = CLog::kDefaultFormatSize) {
        auto log = std::make_shared<CLog>(formatSize);
        log->PushLogger(std::make_shared<JournalLogger>("A", journal));
        CLog::SetCurrent(log);
        return log;
    }

    Journal journal;
};

// A pointer that a %s conversion can't read without a fault.
const char* const kUnreadable = reinterpret_cast<const char*>(1);

TEST(LogLevels, WordsAndNineCharacterTags) {
    struct Case {
        int level;
        const char* word;
        const char* tag;
    };
    const Case cases[] = {{0, "debug only", "Debug]   "},
                          {4, "important notice", "Notice]  "},
                          {6, "disabled", "Unknown] "},
                          {-1, "unknown", "Unknown] "}};
    for (const Case& c : cases) {
        EXPECT_STREQ(CLog::LevelText(c.level), c.word) << c.level;
        EXPECT_STREQ(CLog::LevelTag(c.level), c.tag) << c.level;
    }
}

using StaticText = void (*)(const stringEx&, const stringEx&);
using StaticFormat = void (*)(const char*, const char*, ...);
using MemberText = void (CLog::*)(const stringEx&, const stringEx&);
using MemberFormat = void (CLog::*)(const char*, const char*, ...);

struct FormCase {
    int level;
    StaticText staticText;
    StaticFormat staticFormat;
    MemberText memberText;
    MemberFormat memberFormat;
};

const FormCase kForms[] = {
    {0, &CLog::Debug, &CLog::Debug, &CLog::WriteDebug, &CLog::WriteDebug},
    {1, &CLog::Info, &CLog::Info, &CLog::WriteInfo, &CLog::WriteInfo},
    {2, &CLog::Warning, &CLog::Warning, &CLog::WriteWarning, &CLog::WriteWarning},
    {3, &CLog::Error, &CLog::Error, &CLog::WriteError, &CLog::WriteError},
    {4, &CLog::Notice, &CLog::Notice, &CLog::WriteNotice, &CLog::WriteNotice},
    {5, &CLog::Fatal, &CLog::Fatal, &CLog::WriteFatal, &CLog::WriteFatal},
};

TEST_F(LogTest, EachFormWritesItsLevelAndOnlyFatalRecordsAreFlushedAtOnce) {
    auto log = InstallWithLogger();
    for (const FormCase& c : kForms) {
        SCOPED_TRACE(c.level);
        c.staticText(stringEx("t"), stringEx("100% plain"));
        c.staticFormat("t", "%d-%s", 7, "x");
        (log.get()->*c.memberText)(stringEx("t"), stringEx("member"));
        (log.get()->*c.memberFormat)("t", "<%s>", "m");
        Journal expected;
        for (const char* text : {"100% plain", "7-x", "member", "<m>"}) {
            expected.push_back("A " + std::to_string(c.level) + " t " + text);
            if (c.level == LogLevel::Fatal) expected.push_back("A flush");
        }
        EXPECT_EQ(journal, expected);
        journal.clear();
    }
}

TEST_F(LogTest, TheFormsWithALevelArgumentPassAnyLevelOnWithTheTime) {
    auto log = std::make_shared<CLog>();
    auto logger = std::make_shared<JournalLogger>("A", journal);
    log->PushLogger(logger);
    CLog::SetCurrent(log);
    const CTime before = CTime::now();
    CLog::Log(3, stringEx("n"), stringEx("a"));
    EXPECT_LE(before.us, logger->lastTime.us);
    EXPECT_LE(logger->lastTime.us, CTime::now().us);
    CLog::Log(7, "n", "b%d", 1);
    log->Write(5, stringEx("n"), stringEx("c"));
    log->Write(9, "n", "d");
    EXPECT_EQ(journal, (Journal{"A 3 n a", "A 7 n b1", "A 5 n c", "A flush", "A 9 n d"}));
}

TEST_F(LogTest, AVariadicRecordIsNeverCutWhateverTheFirstRoom) {
    const uint32_t kRoom = 16;
    auto log = InstallWithLogger(kRoom);
    for (size_t length : {size_t(kRoom - 1), size_t(kRoom), size_t(1000)}) {
        journal.clear();
        const std::string text(length, 'x');
        CLog::Info("n", "%s", text.c_str());
        EXPECT_EQ(journal, Journal{"A 1 n " + text}) << "length " << length;
    }
}

TEST_F(LogTest, RecordsBelowTheMinimumLevelAreDropped) {
    struct Case {
        int32_t minLevel;
        int level;
        bool written;
    };
    const Case cases[] = {{3, 2, false}, {3, 3, true}, {5, 5, true}, {6, 5, false}};
    auto log = InstallWithLogger();
    for (const Case& c : cases) {
        log->SetMinLevel(c.minLevel);
        journal.clear();
        CLog::Log(c.level, stringEx("n"), stringEx("text"));
        CLog::Log(c.level, "n", "%s", "format");
        log->Write(c.level, stringEx("n"), stringEx("member"));
        EXPECT_EQ(CLog::Accepts(c.level), c.written) << c.minLevel << " / " << c.level;
        EXPECT_EQ(journal.size(), !c.written                   ? 0u
                                  : c.level == LogLevel::Fatal ? 6u
                                                               : 3u)
            << c.minLevel << " / " << c.level;
    }
}

// With nothing to write to, the format arguments are never read: a %s of an
// unreadable pointer would fault.
TEST_F(LogTest, NothingToWriteToMeansTheArgumentsAreNotTouched) {
    struct Case {
        const char* name;
        void (*setUp)(Journal&);
    };
    const Case cases[] = {
        {"no log object", [](Journal&) {}},
        {"level below the minimum",
         [](Journal& j) {
             auto log = std::make_shared<CLog>();
             log->PushLogger(std::make_shared<JournalLogger>("A", j));
             log->SetMinLevel(LogLevel::Off);
             CLog::SetCurrent(log);
         }},
        {"log object without loggers",
         [](Journal&) { CLog::SetCurrent(std::make_shared<CLog>()); }},
    };
    for (const Case& c : cases) {
        CLog::SetCurrent(nullptr);
        c.setUp(journal);
        for (const FormCase& form : kForms)
            form.staticFormat("n", "%s", kUnreadable);
        CLog::Log(2, "n", "%s", kUnreadable);
        if (auto log = CLog::GetCurrent()) {
            log->WriteError("n", "%s", kUnreadable);
            log->Write(5, "n", "%s", kUnreadable);
        }
        EXPECT_FALSE(CLog::Accepts(LogLevel::Fatal)) << c.name;
        EXPECT_EQ(journal, Journal{}) << c.name;
    }
}

TEST_F(LogTest, TheFilterSeesEachRecordFirstAndMayStopIt) {
    auto log = InstallWithLogger();
    log->PushLogger(std::make_shared<JournalLogger>("B", journal));

    log->SetFilter(std::make_shared<JournalLogger>("F", journal, false));
    CLog::Warning(stringEx("n"), stringEx("stopped"));
    EXPECT_EQ(journal, Journal{"F 2 n stopped"});

    journal.clear();
    log->SetFilter(std::make_shared<JournalLogger>("F", journal, true));
    CLog::Warning(stringEx("n"), stringEx("passed"));
    EXPECT_EQ(journal, (Journal{"F 2 n passed", "A 2 n passed", "B 2 n passed"}));
}

TEST_F(LogTest, LoggersAreCalledInPushOrderAndPoppedFromTheTop) {
    auto log = std::make_shared<CLog>();
    CLog::SetCurrent(log);
    EXPECT_FALSE(log->HasLoggers());
    auto a = std::make_shared<JournalLogger>("A", journal);
    auto b = std::make_shared<JournalLogger>("B", journal);
    log->PushLogger(a);
    log->PushLogger(b);
    EXPECT_TRUE(log->HasLoggers());

    CLog::Fatal("n", "one");
    EXPECT_EQ(journal, (Journal{"A 5 n one", "B 5 n one", "A flush", "B flush"}));

    EXPECT_EQ(log->PopLogger(), b);
    journal.clear();
    CLog::Info("n", "two");
    CLog::Flush();
    EXPECT_EQ(journal, (Journal{"A 1 n two", "A flush"}));

    EXPECT_EQ(log->PopLogger(), a);
    EXPECT_FALSE(log->HasLoggers());
    EXPECT_EQ(ThrownCode([&] { log->PopLogger(); }), LogCode::NothingToPop);
    EXPECT_EQ(ThrownCode([&] { log->PushLogger(nullptr); }), LogCode::InvalidLogger)
        << "push of null";
}

class ThrowingLogger : public ILogger {
  public:
    bool Write(const CTime&, int, const stringEx&, const stringEx&) override {
        throw dirExp(stringEx("logger failed"), DirCode::InvalidObject);
    }
};

// Writes a record on another thread; false if that doesn't finish, which
// means a lock was left held.
bool WritesFromAnotherThread() {
    std::promise<void> done;
    std::future<void> finished = done.get_future();
    std::thread([&done] {
        CLog::Info("n", "other thread");
        done.set_value();
    }).detach();
    return finished.wait_for(std::chrono::seconds(10)) == std::future_status::ready;
}

TEST_F(LogTest, ALoggersExceptionReachesTheCallerAndReleasesTheLocks) {
    auto log = InstallWithLogger();
    log->PushLogger(std::make_shared<ThrowingLogger>());
    try {
        CLog::Error("n", "%s", "x");
        ADD_FAILURE() << "the logger's exception was swallowed";
    } catch (const dirExp& e) {
        EXPECT_EQ(e.message.view(), "logger failed");
    }
    log->PopLogger();
    ASSERT_TRUE(WritesFromAnotherThread());
    EXPECT_EQ(journal, (Journal{"A 3 n x", "A 1 n other thread"}));
}

// The layout is checked in the child program's report; here, absent parts.
TEST(DebugCheckReport, AbsentPartsAreEmpty) {
    EXPECT_EQ(
        IMPL::DebugCheckReport(nullptr, nullptr, nullptr, -1, nullptr, nullptr, nullptr).view(),
        "debug checking failure\n  expression    = \"\"\n  description   = \"\"\n"
        "  file name     = \"\"\n  line number   = \"-1\"\n  last compiled = \" \"\n"
        "  last modified = \"\"");
}

}  // namespace
}  // namespace Orlo

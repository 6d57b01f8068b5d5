// Every worked example of the user documentation, run against the real
// binary: the ```console blocks of docs/regex.md and the .EX/.EE blocks of
// docs/mendo.1. A block is "$ command" lines, each followed by the lines it
// shows. "$ cat NAME" makes the file with the lines shown, or checks them if
// the session already made it. Any other command is a pipeline of mendo,
// orlo-re, printf and od that must exit 0 and show exactly its standard
// output, then its standard error. Words follow shell rules for single
// quotes; other shell syntax is refused, so that examples paste as they stand.

#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <fstream>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "cli/run_mendo.h"

namespace {

using mendo_test::Printable;
using Words = std::vector<std::string>;

struct Step {
    std::string command;  // the text behind "$ "
    std::string shown;    // the lines after it, each with its line feed
    int line = 0;
};

struct Session {
    std::string document;  // file name under docs/
    int line = 0;          // line of the block's opening
    std::vector<Step> steps;
    std::string error;  // set when the block itself is malformed
};

void PrintTo(const Session& session, std::ostream* os) {
    *os << session.document << ":" << session.line;
}

std::string ReadFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

// The roff escapes that an example may use, as the reader sees them; an
// unknown escape or a control line would show the reader something else.
std::optional<std::string> DecodeRoff(const std::string& line) {
    static const std::pair<std::string, std::string> kEscapes[] = {
        {"\\-", "-"},    {"\\e", "\\"},  {"\\&", ""},    {"\\(aq", "'"},
        {"\\(dq", "\""}, {"\\(ha", "^"}, {"\\(ti", "~"}, {"\\(ga", "`"},
    };
    if (line.starts_with('.') || line.starts_with('\'')) return std::nullopt;
    std::string text;
    for (size_t i = 0; i < line.size();) {
        const auto* e = std::ranges::find_if(
            kEscapes, [&](const auto& e) { return line.compare(i, e.first.size(), e.first) == 0; });
        if (line[i] != '\\')
            text += line[i++];
        else if (e == std::end(kEscapes))
            return std::nullopt;
        else
            text += e->second, i += e->first.size();
    }
    return text;
}

// The blocks of docs/`name` between the lines `open` and `close`; a man
// page's lines are decoded from roff first.
std::vector<Session> Sessions(const std::string& name) {
    const bool roff = name.ends_with(".1");
    const std::string open = roff ? ".EX" : "```console", close = roff ? ".EE" : "```";
    std::vector<std::string> lines;
    std::istringstream in(ReadFile(std::string(ORLO_SOURCE_DIR) + "/docs/" + name));
    for (std::string line; std::getline(in, line);)
        lines.push_back(line);
    std::vector<Session> sessions;
    for (size_t i = 0; i < lines.size(); ++i) {
        if (lines[i] != open) continue;
        Session& session = sessions.emplace_back(Session{name, int(i + 1), {}, ""});
        for (++i; i < lines.size() && lines[i] != close && session.error.empty(); ++i) {
            const std::optional<std::string> text = roff ? DecodeRoff(lines[i]) : lines[i];
            if (!text)
                session.error = "unknown roff escape or control line: " + lines[i];
            else if (text->starts_with("$ "))
                session.steps.push_back({text->substr(2), "", int(i + 1)});
            else if (session.steps.empty())
                session.error = "a session must begin with a \"$ \" line";
            else
                session.steps.back().shown += *text + "\n";
        }
        if (i >= lines.size() && session.error.empty()) session.error = "block is not closed";
        if (session.steps.empty() && session.error.empty()) session.error = "empty session";
    }
    return sessions;
}

std::vector<Session> AllSessions() {
    auto sessions = Sessions("regex.md");
    for (auto& session : Sessions("mendo.1"))
        sessions.push_back(session);
    return sessions;
}

// Splits a command line into the word lists of its pipeline stages.
std::vector<Words> SplitPipeline(const std::string& command, std::string& error) {
    std::vector<Words> stages(1);
    std::string word;
    bool inWord = false;
    for (size_t i = 0; i <= command.size() && error.empty(); ++i) {
        const char c = i < command.size() ? command[i] : '|';
        if (c == '\'') {
            const size_t close = command.find('\'', i + 1);
            if (close == std::string::npos) error = "unclosed single quote";
            word += command.substr(i + 1, close - i - 1);
            inWord = true;
            i = close;
        } else if (c == ' ' || c == '|') {
            if (inWord) stages.back().push_back(word);
            word.clear();
            inWord = false;
            if (c != '|') continue;
            if (stages.back().empty()) error = "empty pipeline stage";
            stages.emplace_back();
        } else if (std::string("\"\\$`;&<>()*?[]{}~#!").find(c) != std::string::npos) {
            error = std::string("'") + c + "' outside single quotes";
        } else {
            word += c;
            inWord = true;
        }
    }
    stages.pop_back();
    return stages;
}

// The programs an example may run.
std::string ProgramPath(const std::string& name) {
    if (name == "mendo") return MENDO_BINARY;
    if (name == "orlo-re") return ORLO_RE_BINARY;
    if (name == "printf" || name == "od")
        for (const std::string dir : {"/usr/bin/", "/bin/"})
            if (access((dir + name).c_str(), X_OK) == 0) return dir + name;
    return "";
}

class DocsExample : public ::testing::TestWithParam<Session> {
  protected:
    void SetUp() override {
        char name[] = "/tmp/mendo-docs-XXXXXX";
        ASSERT_NE(mkdtemp(name), nullptr);
        dir_ = name;
        // od shows bytes above 0x7F by the locale; the examples show them in C.
        if (const char* old = getenv("LC_ALL")) oldLocale_ = old;
        setenv("LC_ALL", "C", 1);
    }
    void TearDown() override {
        std::filesystem::remove_all(dir_);
        oldLocale_ ? setenv("LC_ALL", oldLocale_->c_str(), 1) : unsetenv("LC_ALL");
    }

    std::string dir_;
    std::optional<std::string> oldLocale_;
};

TEST_P(DocsExample, ShowsWhatTheBinaryDoes) {
    const Session& session = GetParam();
    ASSERT_EQ(session.error, "") << session.document << ":" << session.line;
    for (const Step& step : session.steps) {
        SCOPED_TRACE(session.document + ":" + std::to_string(step.line) + ": $ " + step.command);
        std::string error;
        const std::vector<Words> stages = SplitPipeline(step.command, error);
        ASSERT_EQ(error, "");
        if (stages.size() == 1 && stages[0].size() == 2 && stages[0][0] == "cat") {
            const std::string path = dir_ + "/" + stages[0][1];
            if (std::filesystem::exists(path))
                EXPECT_EQ(Printable(ReadFile(path)), Printable(step.shown))
                    << stages[0][1] << " after the commands above";
            else
                std::ofstream(path, std::ios::binary) << step.shown;
            continue;
        }
        std::string input, errors;
        for (const Words& stage : stages) {
            const std::string program = ProgramPath(stage[0]);
            ASSERT_NE(program, "") << "no such program for an example: " << stage[0];
            const Words args(stage.begin() + 1, stage.end());
            const mendo_test::RunResult run = mendo_test::RunProgram(program, args, input, dir_);
            EXPECT_EQ(run.status, 0) << mendo_test::CommandLine(args, stage[0]) << "\n" << run.err;
            errors += run.err;
            input = run.out;
        }
        EXPECT_EQ(Printable(input + errors), Printable(step.shown));
    }
}

std::string SessionName(const ::testing::TestParamInfo<Session>& info) {
    std::string name = info.param.document + "_line_" + std::to_string(info.param.line);
    for (char& c : name)
        if (!isalnum(static_cast<unsigned char>(c))) c = '_';
    return name;
}

INSTANTIATE_TEST_SUITE_P(Docs, DocsExample, ::testing::ValuesIn(AllSessions()), SessionName);

// A document whose examples could not be found would pass silently above.
TEST(DocsExamples, EveryDocumentHasExamplesThatRunSomething) {
    for (const std::string name : {"regex.md", "mendo.1"}) {
        const std::vector<Session> sessions = Sessions(name);
        EXPECT_GE(sessions.size(), 3u) << name;
        size_t runs = 0;
        for (const Session& session : sessions)
            for (const Step& step : session.steps)
                runs += !step.command.starts_with("cat ");
        EXPECT_GE(runs, sessions.size()) << name << ": every session should run a command";
    }
}

}  // namespace

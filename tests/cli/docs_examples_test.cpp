// Every worked example of the user documentation, run against the real
// binary: the console sessions of docs/regex.md (```console blocks) and the
// EXAMPLES of docs/mendo.1 (.EX/.EE blocks).
//
// A session is a list of "$ command" lines, each followed by the lines it
// shows. "$ cat NAME" of a file the session has not made yet makes it with
// the lines shown; of a file that exists, it checks the file's bytes. Any
// other command is a pipeline of mendo, orlo-re, printf and od. It must end
// with status 0, and its standard output, then its standard error, must be
// exactly the lines shown, each ended by a line feed. Words are split by
// POSIX shell rules for single quotes, and a character that a shell would
// treat specially outside quotes is an error, so that every example can be
// pasted into a shell as it stands.

#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <cctype>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "cli/run_mendo.h"

namespace {

using mendo_test::CommandLine;
using mendo_test::Printable;
using mendo_test::RunProgram;
using mendo_test::RunResult;
using Words = std::vector<std::string>;

struct Step {
    std::string command;  // the text behind "$ "
    std::string shown;    // the lines after it, each with its line feed
    int line = 0;         // where the command stands in its document
};

struct Session {
    std::string document;  // file name under docs/
    int line = 0;          // line of the block's opening
    std::vector<Step> steps;
    std::string error;  // set when the block itself is malformed
};

// Failure output names a session by where it stands.
void PrintTo(const Session& session, std::ostream* os) {
    *os << session.document << ":" << session.line;
}

std::string ReadDoc(const std::string& name) {
    std::ifstream in(std::string(ORLO_SOURCE_DIR) + "/docs/" + name, std::ios::binary);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

std::vector<std::string> Lines(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);)
        lines.push_back(line);
    return lines;
}

// Turns the lines of one block into steps; `first` is the line number of the
// block's first line.
void ReadSteps(const std::vector<std::string>& block, int first, Session& session) {
    for (size_t i = 0; i < block.size(); ++i) {
        const std::string& line = block[i];
        if (line.rfind("$ ", 0) == 0) {
            session.steps.push_back({line.substr(2), "", first + int(i)});
        } else if (session.steps.empty()) {
            session.error = "a session must begin with a \"$ \" line";
            return;
        } else {
            session.steps.back().shown += line + "\n";
        }
    }
    if (session.steps.empty()) session.error = "empty session";
}

std::vector<Session> MarkdownSessions(const std::string& name) {
    std::vector<Session> sessions;
    const auto lines = Lines(ReadDoc(name));
    for (size_t i = 0; i < lines.size(); ++i) {
        if (lines[i] != "```console") continue;
        Session session{name, int(i + 1), {}, ""};
        std::vector<std::string> block;
        size_t j = i + 1;
        while (j < lines.size() && lines[j] != "```")
            block.push_back(lines[j++]);
        if (j == lines.size()) session.error = "block is not closed";
        ReadSteps(block, int(i + 2), session);
        sessions.push_back(session);
        i = j;
    }
    return sessions;
}

// The roff escapes that an example may use, as the reader sees them.
bool DecodeRoff(const std::string& line, std::string& text, std::string& error) {
    static const std::map<std::string, std::string> kEscapes = {
        {"\\-", "-"},    {"\\e", "\\"},  {"\\&", ""},    {"\\(aq", "'"},
        {"\\(dq", "\""}, {"\\(ha", "^"}, {"\\(ti", "~"}, {"\\(ga", "`"},
    };
    if (!line.empty() && (line[0] == '.' || line[0] == '\'')) {
        error = "control line inside an example: " + line;
        return false;
    }
    text.clear();
    for (size_t i = 0; i < line.size();) {
        if (line[i] != '\\') {
            text += line[i++];
            continue;
        }
        bool known = false;
        for (const auto& [escape, meaning] : kEscapes) {
            if (line.compare(i, escape.size(), escape) == 0) {
                text += meaning;
                i += escape.size();
                known = true;
                break;
            }
        }
        if (!known) {
            error = "unknown roff escape in: " + line;
            return false;
        }
    }
    return true;
}

std::vector<Session> ManSessions(const std::string& name) {
    std::vector<Session> sessions;
    const auto lines = Lines(ReadDoc(name));
    for (size_t i = 0; i < lines.size(); ++i) {
        if (lines[i] != ".EX") continue;
        Session session{name, int(i + 1), {}, ""};
        std::vector<std::string> block;
        size_t j = i + 1;
        for (; j < lines.size() && lines[j] != ".EE"; ++j) {
            std::string text;
            if (!DecodeRoff(lines[j], text, session.error)) break;
            block.push_back(text);
        }
        if (session.error.empty() && j == lines.size()) session.error = "block is not closed";
        if (session.error.empty()) ReadSteps(block, int(i + 2), session);
        sessions.push_back(session);
        i = j;
    }
    return sessions;
}

std::vector<Session> AllSessions() {
    auto sessions = MarkdownSessions("regex.md");
    for (auto& session : ManSessions("mendo.1"))
        sessions.push_back(session);
    return sessions;
}

// Splits a command line into the word lists of its pipeline stages.
bool SplitPipeline(const std::string& command, std::vector<Words>& stages, std::string& error) {
    static const std::string kSpecial = "\"\\$`;&<>()*?[]{}~#!";
    stages.assign(1, Words());
    std::string word;
    bool inWord = false;
    for (size_t i = 0; i < command.size(); ++i) {
        const char c = command[i];
        if (c == '\'') {
            const size_t close = command.find('\'', i + 1);
            if (close == std::string::npos) {
                error = "unclosed single quote";
                return false;
            }
            word += command.substr(i + 1, close - i - 1);
            inWord = true;
            i = close;
        } else if (c == ' ' || c == '|') {
            if (inWord) stages.back().push_back(word);
            word.clear();
            inWord = false;
            if (c == '|') {
                if (stages.back().empty()) {
                    error = "empty pipeline stage";
                    return false;
                }
                stages.emplace_back();
            }
        } else if (kSpecial.find(c) != std::string::npos) {
            error = std::string("'") + c + "' outside single quotes";
            return false;
        } else {
            word += c;
            inWord = true;
        }
    }
    if (inWord) stages.back().push_back(word);
    if (stages.back().empty()) {
        error = "empty pipeline stage";
        return false;
    }
    return true;
}

// The programs an example may run.
std::string ProgramPath(const std::string& name) {
    if (name == "mendo") return MENDO_BINARY;
    if (name == "orlo-re") return ORLO_RE_BINARY;
    if (name == "printf" || name == "od") {
        for (const char* dir : {"/usr/bin/", "/bin/"})
            if (access((std::string(dir) + name).c_str(), X_OK) == 0) return dir + name;
    }
    return "";
}

// Sets a variable of the environment for the life of the object.
class ScopedEnv {
  public:
    ScopedEnv(const char* name, const char* value) : name_(name) {
        if (const char* old = getenv(name)) old_ = old, had_ = true;
        setenv(name, value, 1);
    }
    ~ScopedEnv() {
        if (had_)
            setenv(name_, old_.c_str(), 1);
        else
            unsetenv(name_);
    }

  private:
    const char* name_;
    std::string old_;
    bool had_ = false;
};

class DocsExample : public ::testing::TestWithParam<Session> {
  protected:
    void SetUp() override {
        char name[] = "/tmp/mendo-docs-XXXXXX";
        ASSERT_NE(mkdtemp(name), nullptr);
        dir_ = name;
    }
    void TearDown() override { std::filesystem::remove_all(dir_); }

    std::string Path(const std::string& file) const { return dir_ + "/" + file; }

    void Cat(const std::string& file, const std::string& shown) {
        const std::string path = Path(file);
        if (!std::filesystem::exists(path)) {
            std::ofstream(path, std::ios::binary) << shown;
            return;
        }
        std::ifstream in(path, std::ios::binary);
        std::stringstream bytes;
        bytes << in.rdbuf();
        EXPECT_EQ(Printable(bytes.str()), Printable(shown)) << file << " after the commands above";
    }

    void Pipeline(const std::vector<Words>& stages, const std::string& shown) {
        std::string input, errors;
        RunResult last;
        for (const Words& stage : stages) {
            const std::string program = ProgramPath(stage[0]);
            ASSERT_NE(program, "") << "no such program for an example: " << stage[0];
            const Words args(stage.begin() + 1, stage.end());
            last = RunProgram(program, args, input, dir_);
            EXPECT_EQ(last.status, 0) << CommandLine(args, stage[0]) << "\n" << last.err;
            errors += last.err;
            input = last.out;
        }
        EXPECT_EQ(Printable(last.out + errors), Printable(shown));
    }

    std::string dir_;
};

TEST_P(DocsExample, ShowsWhatTheBinaryDoes) {
    const Session& session = GetParam();
    ASSERT_EQ(session.error, "") << session.document << ":" << session.line;
    // od shows bytes above 0x7F by the locale; the examples show them in C.
    ScopedEnv locale("LC_ALL", "C");
    for (const Step& step : session.steps) {
        SCOPED_TRACE(session.document + ":" + std::to_string(step.line) + ": $ " + step.command);
        std::vector<Words> stages;
        std::string error;
        ASSERT_TRUE(SplitPipeline(step.command, stages, error)) << error;
        if (stages.size() == 1 && stages[0].size() == 2 && stages[0][0] == "cat") {
            Cat(stages[0][1], step.shown);
        } else {
            Pipeline(stages, step.shown);
        }
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
    const std::vector<std::pair<std::string, std::vector<Session>>> docs = {
        {"regex.md", MarkdownSessions("regex.md")},
        {"mendo.1", ManSessions("mendo.1")},
    };
    for (const auto& [name, sessions] : docs) {
        EXPECT_GE(sessions.size(), 3u) << name;
        size_t runs = 0;
        for (const Session& session : sessions)
            for (const Step& step : session.steps)
                runs += step.command.rfind("cat ", 0) != 0;
        EXPECT_GE(runs, sessions.size()) << name << ": every session should run a command";
    }
}

}  // namespace

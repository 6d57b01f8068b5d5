// The mendo command driver.
//
// One pass: read the switches, settle the find mode and the two texts,
// prepare them, show the usage screen if the command is incomplete, gather
// the inputs, compile the pattern once, then run each input through the
// loop: read it whole into `content`, replace into `output` (memory expand,
// the default) or inside `content` (-noexp), swap the two by reference, and
// deliver. `content` and `output` live across the inputs so that their
// blocks are reused.
//
// Precedence is that of the lookups, not of the command line: the first
// present of f, fic, r, ric, rnnl, rnnlic gives the find mode, the first of
// t, tu, tl the replacement, each by its first occurrence. Unknown switches
// are accepted and ignored.
//
// Every failure travels as an exception to the three catches of RunMendo,
// which report it on standard error and still end with status 0: callers of
// the tool see a fatal error on standard error only.

#include "mendo.h"

#include <sys/mman.h>

#include <algorithm>
#include <atomic>
#include <exception>
#include <thread>
#include <vector>

#include "cmdline.h"
#include "orlo/dir.h"
#include "orlo/exceptions.h"
#include "orlo/exp_message.h"
#include "orlo/regex.h"
#include "orlo/regex_replace.h"
#include "orlo/stringEx.h"
#include "std_io.h"
#include "text_prep.h"
#include "usage.h"

namespace Orlo {
namespace {

enum FindMode { kNoFind = 0, kPlain = 1, kPlainNoCase = 2, kRegex = 3 };

// What the command line asks for, after preparation of the texts.
struct Request {
    int findMode = kNoFind;
    bool regexIgnoreCase = false;
    bool regexIgnoreNewline = false;
    stringEx findText;
    stringEx replaceText;
    bool replaceSwitchT = false;  // a plain -t was given (it alone may be empty)
    bool noExpand = false;
    bool useStdio = false;
    bool recurse = false;
    bool toStdout = false;
    bool fileCounts = false;
    bool totalCount = false;
    bool errStop = false;
    bool wantsUsage = false;
    uint32_t freeWords = 0;  // words that are no switch, as the option store counts them
};

bool Has(const CCmdLine& cmd, const char* name) {
    return cmd.FindSwitch(stringEx::view(name)) != npos;
}

void TakeFindSwitch(const CCmdLine& cmd, Request& req) {
    static const struct {
        const char* name;
        FindMode mode;
        bool ignoreCase;
        bool ignoreNewline;
    } kFindSwitches[] = {
        {"f", kPlain, false, false},   {"fic", kPlainNoCase, false, false},
        {"r", kRegex, false, false},   {"ric", kRegex, true, false},
        {"rnnl", kRegex, false, true}, {"rnnlic", kRegex, true, true},
    };
    for (const auto& row : kFindSwitches) {
        if (!Has(cmd, row.name)) continue;
        req.findMode = row.mode;
        req.regexIgnoreCase = row.ignoreCase;
        req.regexIgnoreNewline = row.ignoreNewline;
        req.findText = cmd.GetValue(stringEx::view(row.name));
        if (req.findMode == kRegex) ExpandAliases(req.findText);
        return;
    }
}

void TakeReplaceSwitch(const CCmdLine& cmd, Request& req) {
    static const char* const kReplaceSwitches[] = {"t", "tu", "tl"};
    for (const char* name : kReplaceSwitches) {
        if (!Has(cmd, name)) continue;
        req.replaceText = cmd.GetValue(stringEx::view(name));
        if (req.findMode == kRegex) ExpandAliases(req.replaceText);
        // Case change after the aliases, so that "[:nl:]" is not spoiled.
        if (name[1] == 'u') req.replaceText.ToUpper(0, npos);
        if (name[1] == 'l') req.replaceText.ToLower(0, npos);
        break;
    }
    req.replaceSwitchT = Has(cmd, "t");
}

Request ReadRequest(const CCmdLine& cmd) {
    Request req;
    TakeFindSwitch(cmd, req);
    req.noExpand = Has(cmd, "noexp");
    TakeReplaceSwitch(cmd, req);
    if (Has(cmd, "ue")) {
        PercentDecode(req.findText, false);
        PercentDecode(req.replaceText, false);
    }
    // Decided on the texts as decoded: "-f:% -ue" has nothing to find.
    const bool complete = !Has(cmd, "h") && cmd.FindSwitchCase(stringEx::view("?")) == npos &&
                          req.findMode != kNoFind && !req.findText.empty() &&
                          (!req.replaceText.empty() || req.replaceSwitchT);
    req.wantsUsage = !complete;

    req.freeWords = uint32_t(cmd.args.size()) - cmd.switchCount - cmd.skip;
    req.useStdio = Has(cmd, "stdio") || req.freeWords == 0;
    req.recurse = Has(cmd, "s");
    req.toStdout = Has(cmd, "stdout");
    req.fileCounts = Has(cmd, "frc");
    req.totalCount = Has(cmd, "trc");
    req.errStop = Has(cmd, "errstop");
    return req;
}

// The two buffers of the run and the pattern, compiled once.
struct Workspace {
    byteEx content;
    byteEx output;
    regex_handle regex;
};

// What becomes of the run after one input.
enum class Next { kGoOn, kStop };

// Cannot arise: an incomplete command shows the usage screen first.
[[noreturn]] void UnknownFindMode() {
    WriteStderr("[FATAL ERROR] unknown func!\n");
    std::_Exit(1);
}

// In place: the content itself changes.
uint32_t ReplaceInPlace(const Request& req, Workspace& ws) {
    byteEx& content = ws.content;
    switch (req.findMode) {
        case kPlain:
            return content.Replace(req.findText, req.replaceText, 0, true);
        case kPlainNoCase:
            return content.ReplaceIC(req.findText, req.replaceText, 0, true);
        case kRegex:
            return RegReplace(content, ws.regex, req.replaceText, false, false, true);
    }
    UnknownFindMode();
}

// Fresh memory costs a page fault and the kernel's zeroing of the page at
// its first touch, which for a large output is most of the replace's time.
// This warms the pages the output will surely use (as many as the input
// has) from a second thread, a slice at a time ahead of the writer, so the
// zeroing runs beside the replace instead of inside it. It asks the kernel
// to populate pages and writes nothing itself; where the kernel cannot,
// it does nothing.
class PageWarmer {
  public:
    PageWarmer(char* block, size_t bytes) {
#ifdef MADV_POPULATE_WRITE
        if (!block || bytes < kWorthIt) return;
        const uintptr_t first = (reinterpret_cast<uintptr_t>(block) + kPage - 1) & ~(kPage - 1);
        const uintptr_t last = (reinterpret_cast<uintptr_t>(block) + bytes) & ~(kPage - 1);
        if (last <= first) return;
        // Only a help: a thread that cannot be had (no memory left for its
        // stack, a process limit) leaves the replace to fault its own pages.
        try {
            m_thread = std::thread([this, first, last] {
                for (uintptr_t at = first; at < last && !m_stop.load(std::memory_order_relaxed);
                     at += kSlice) {
                    const size_t n = std::min<uintptr_t>(kSlice, last - at);
                    if (madvise(reinterpret_cast<void*>(at), n, MADV_POPULATE_WRITE) != 0) return;
                }
            });
        } catch (const std::exception&) {
        }
#else
        (void)block;
        (void)bytes;
#endif
    }
    ~PageWarmer() {
        m_stop.store(true, std::memory_order_relaxed);
        if (m_thread.joinable()) m_thread.join();
    }
    PageWarmer(const PageWarmer&) = delete;
    PageWarmer& operator=(const PageWarmer&) = delete;

  private:
    static constexpr size_t kWorthIt = size_t(16) << 20;
    static constexpr uintptr_t kPage = 4096;
    static constexpr uintptr_t kSlice = uintptr_t(4) << 20;
    std::atomic<bool> m_stop{false};
    std::thread m_thread;
};

// Hands a replace's result to standard output while it is produced: the
// delivery of -stdio and -stdout needs no second buffer as large as the
// input, nor the fresh pages of one.
class StdoutDrain final : public basic_drain<char> {
  public:
    void Take(const char* data, uint32_t n) override { WriteStdout(std::string_view(data, n)); }
};

// Replaces from ws.content into ws.output, handing slices to `drain` when
// there is one.
uint32_t ReplaceIntoOutput(const Request& req, Workspace& ws, basic_drain<char>* drain) {
    const byteEx& content = ws.content;
    byteEx& output = ws.output;
    switch (req.findMode) {
        case kPlain:
            return drain ? content.ReplaceTo(output, req.findText, req.replaceText, 0, *drain)
                         : content.ReplaceTo(output, req.findText, req.replaceText, 0);
        case kPlainNoCase:
            return drain ? content.ReplaceToIC(output, req.findText, req.replaceText, 0, *drain)
                         : content.ReplaceToIC(output, req.findText, req.replaceText, 0);
        case kRegex:
            return drain ? RegReplaceTo(content, output, ws.regex, req.replaceText, false, false,
                                        true, *drain)
                         : RegReplaceTo(content, output, ws.regex, req.replaceText, false, false,
                                        true);
    }
    UnknownFindMode();
}

// Memory expand: the result goes to `output`, which then trades places with
// the content; the swap copies no byte. When the result is bound for
// standard output (`toStdout`), most of it is printed on the way and the
// content holds only the rest, which the delivery prints after it.
uint32_t ReplaceExpanding(const Request& req, Workspace& ws, bool toStdout) {
    byteEx& content = ws.content;
    byteEx& output = ws.output;
    // A usable pattern without a single match would copy the content into
    // `output` unchanged: leave it where it is and spare the copy, and the
    // fresh pages it would take. (An unusable pattern still empties the
    // content through the swap below, as it always has.)
    if (req.findMode == kRegex && !ws.regex.empty() && !RegMatches(content, ws.regex, false, false))
        return 0;
    output.clear();
    uint32_t count = 0;
    if (toStdout) {
        ExpectStdout(content.size());
        StdoutDrain drain;
        count = ReplaceIntoOutput(req, ws, &drain);
    } else {
        // Room for an eighth of growth up front: past the replace's own
        // estimate a large output would otherwise be copied as it grows.
        // Pages that are never written cost nothing.
        const uint64_t room = uint64_t(content.size()) + content.size() / 8 + 4096;
        if (room < byteEx::max_size()) output.reserve_exact(uint32_t(room));
        PageWarmer warmer(output.data(), content.size());
        count = ReplaceIntoOutput(req, ws, nullptr);
    }
    content.swap(output);
    return count;
}

// Replaces every match in ws.content by the request's mode and strategy and
// returns the count. The result is in ws.content, but for what went to
// standard output on the way when it is bound there (`toStdout`).
uint32_t ReplaceInput(const Request& req, Workspace& ws, bool toStdout) {
    if (req.noExpand) return ReplaceInPlace(req, ws);
    // A plain replace gives the same bytes and count in place as through a
    // second buffer (both search only the original text, left to right),
    // and in place it needs no second buffer. A result bound for standard
    // output goes there on the way instead.
    const bool plain = req.findMode == kPlain || req.findMode == kPlainNoCase;
    if (plain && !toStdout) return ReplaceInPlace(req, ws);
    return ReplaceExpanding(req, ws, toStdout);
}

void PrintTotal(uint32_t total) {
    stringEx line("\n## total replaced ");
    line.AppendUInt(total, 10);
    line.append(" matchs\n");
    WriteStdout(line.view());
}

void PrintFileCount(uint32_t count, const stringEx& file) {
    stringEx line("\n## ");
    line.AppendUInt(count, 10);
    line.append(" replacements in file: ");
    line.append(file);
    line.append("\n");
    WriteStdout(line.view());
}

void PrintError(const char* what, const stringEx& file) {
    stringEx line(what);
    line.append(file);
    line.append("\n");
    WriteStderr(line.view());
}

// Full paths of the files the free words name, in enumeration order; a file
// named by two patterns stands twice.
PathList FindFiles(const CCmdLine& cmd, const Request& req) {
    CDir base;
    base.Open(stringEx::view("."));
    PathList files;
    for (uint32_t i = 0; i < req.freeWords; ++i) {
        stringEx pattern(cmd.GetFreeArg(i));
        base.GetAllFiles(files, pattern, req.recurse, true, !req.errStop);
    }
    return files;
}

// One file: read it whole, replace, and write it back only when something
// changed, so that a file without a match keeps its bytes and time stamps.
// Read and write failures are reported here; -errstop ends the run on them.
Next ProcessFile(const Request& req, Workspace& ws, const stringEx& file, uint32_t& total) {
    ws.content.clear();
    try {
        CDir::ReadFile(file, ws.content);
    } catch (...) {
        PrintError("[ERROR] failed reading file: ", file);
        return req.errStop ? Next::kStop : Next::kGoOn;
    }
    if (ws.content.empty()) return Next::kGoOn;

    const uint32_t count = ReplaceInput(req, ws, req.toStdout);
    if (req.toStdout) {
        WriteStdout(ws.content.view());
        total += count;
        return Next::kGoOn;
    }
    if (count != 0) {
        try {
            CDir::WriteFile(file, ws.content, false, false);
        } catch (const byExp& e) {
            PrintError("[ERROR] can't write to file: ", file);
            stringEx detail("  ");
            detail.append(e.message);
            detail.append("\n");
            WriteStderr(detail.view());
            return req.errStop ? Next::kStop : Next::kGoOn;
        }
        if (req.fileCounts) PrintFileCount(count, file);
    }
    total += count;
    return Next::kGoOn;
}

// Standard input to standard output: one input, always printed.
void ProcessStdin(const Request& req, Workspace& ws, uint32_t& total) {
    ws.content.clear();
    ReadStandardInput(ws.content);
    if (ws.content.empty()) return;
    total += ReplaceInput(req, ws, true);
    WriteStdout(ws.content.view());
}

int Run(int argc, char** argv) {
    CCmdLine cmd(stringEx::view("-"), stringEx::view(":="), 1);
    cmd.Init(argc, argv);
    Request req = ReadRequest(cmd);
    if (req.wantsUsage) {
        WriteStdout(kUsageText);
        return 0;
    }

    PathList files;
    if (!req.useStdio) {
        files = FindFiles(cmd, req);
        if (files.empty()) {
            WriteStderr("[FATAL ERROR] can't find the file(s)!\n");
            return -1;
        }
    }

    Workspace ws;
    if (req.findMode == kRegex) {
        byteEx pattern(req.findText);
        ws.regex =
            compile_pattern_handle(pattern, req.regexIgnoreCase, !req.regexIgnoreNewline, 1, true);
    }

    uint32_t total = 0;
    if (req.useStdio) {
        ProcessStdin(req, ws, total);
    } else {
        for (const stringEx& file : files)
            if (ProcessFile(req, ws, file, total) == Next::kStop) return -1;
    }

    if (req.totalCount && total != 0) PrintTotal(total);
    return 0;
}

// Written in pieces, without allocating: the failure may be lack of memory.
void ReportFatal(std::string_view head, std::string_view detail) {
    WriteStderr(head);
    WriteStderr(detail);
    WriteStderr("\n");
}

}  // namespace

int RunMendo(int argc, char** argv) {
    try {
        return Run(argc, argv);
    } catch (const byExp& e) {
        ReportFatal("[FATAL ERROR] Orlo runtime lib error: ", e.message.view());
    } catch (const std::exception& e) {
        ReportFatal("[FATAL ERROR] vc runtime lib error: ", e.what());
    } catch (...) {
        WriteStderr("[FATAL ERROR] unknown system error\n");
    }
    return 0;
}

}  // namespace Orlo

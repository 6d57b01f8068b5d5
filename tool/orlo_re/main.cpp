// orlo-re, the pattern probe: compiles one pattern with Orlo's
// regular-expression engine under exactly the flags the options name, runs
// it over each subject, and prints where the match and each capturing group
// lie. It exists to try patterns by hand and to drive the engine from tests
// across a process boundary, so the options map one to one onto engine
// flags, nothing is translated on the way in, and the output is one plain
// line per subject.
//
// Exit status: 0 when everything ran (no match included), 1 for a command
// line it cannot use or output it could not write, 2 when the engine
// reported an error, for the pattern or for any subject.

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "orlo/regex_engine.h"

namespace Orlo {
namespace {

// Under -W offsets count characters, so one wchar_t must hold any code point.
static_assert(sizeof(wchar_t) >= 4, "-W needs a wchar_t that holds every code point");

constexpr int kStatusOk = 0;
constexpr int kStatusFailure = 1;      // unusable command line, or unwritable output
constexpr int kStatusEngineError = 2;  // the engine refused the pattern or a subject

constexpr const char kUsage[] =
    "usage: orlo-re [-b|-e|-a|-q] [-i] [-n] [-p] [-w] [-x] [-B] [-E] [-W] [--about] PATTERN "
    "[SUBJECT ...]";

// ---- the command line --------------------------------------------------------

struct Request {
    int syntax = REG_ADVANCED;  // the last of -b -e -a -q
    int compileFlags = 0;       // -i -n -p -w -x, added to the syntax
    int execFlags = 0;          // -B -E
    bool wide = false;          // -W
    bool about = false;         // --about
    std::string_view pattern;
    std::vector<std::string_view> subjects;
};

enum class Slot { kSyntax, kCompile, kExec, kWide };

struct OptionLetter {
    char letter;
    Slot slot;
    int flag;
};

constexpr OptionLetter kOptionLetters[] = {
    {'b', Slot::kSyntax, REG_BASIC},     {'e', Slot::kSyntax, REG_EXTENDED},
    {'a', Slot::kSyntax, REG_ADVANCED},  {'q', Slot::kSyntax, REG_QUOTE},
    {'i', Slot::kCompile, REG_ICASE},    {'n', Slot::kCompile, REG_NEWLINE},
    {'p', Slot::kCompile, REG_NLSTOP},   {'w', Slot::kCompile, REG_NLANCH},
    {'x', Slot::kCompile, REG_EXPANDED}, {'B', Slot::kExec, REG_NOTBOL},
    {'E', Slot::kExec, REG_NOTEOL},      {'W', Slot::kWide, 0},
};

// Applies one option letter; false for a letter that is none.
bool TakeLetter(char letter, Request& req) {
    for (const OptionLetter& option : kOptionLetters) {
        if (option.letter != letter) continue;
        switch (option.slot) {
            case Slot::kSyntax:
                req.syntax = option.flag;
                break;
            case Slot::kCompile:
                req.compileFlags |= option.flag;
                break;
            case Slot::kExec:
                req.execFlags |= option.flag;
                break;
            case Slot::kWide:
                req.wide = true;
                break;
        }
        return true;
    }
    return false;
}

// Fills `req` from argv; on a usage error returns false with `problem` set.
// Options come first and may be clustered; `--` ends them; the first other
// word is the pattern and every later word a subject, whatever it looks like.
bool ReadCommandLine(int argc, char** argv, Request& req, std::string& problem) {
    int i = 1;
    for (; i < argc; ++i) {
        const std::string_view word = argv[i];
        if (word == "--") {
            ++i;
            break;
        }
        if (word == "--about") {
            req.about = true;
            continue;
        }
        // A lone "-" is a pattern, as it is an operand for most commands.
        if (word.size() < 2 || word[0] != '-') break;
        if (word[1] == '-') {
            problem = "unknown option " + std::string(word);
            return false;
        }
        for (char letter : word.substr(1)) {
            if (!TakeLetter(letter, req)) {
                problem = std::string("unknown option -") + letter;
                return false;
            }
        }
    }
    if (i >= argc) {
        problem = "no PATTERN given";
        return false;
    }
    req.pattern = argv[i];
    for (++i; i < argc; ++i)
        req.subjects.emplace_back(argv[i]);
    return true;
}

int UsageError(const std::string& problem) {
    std::fprintf(stderr, "orlo-re: %s\n%s\n", problem.c_str(), kUsage);
    return kStatusFailure;
}

// ---- UTF-8 for -W -----------------------------------------------------------

// Strict decoding, independent of the locale: overlong forms, surrogates,
// values above U+10FFFF, stray continuation bytes and truncated sequences
// all make the whole text invalid, so that offsets never rest on a guess.
bool DecodeUtf8(std::string_view bytes, std::wstring& out) {
    out.clear();
    size_t i = 0;
    while (i < bytes.size()) {
        const unsigned char lead = static_cast<unsigned char>(bytes[i]);
        if (lead < 0x80) {
            out.push_back(static_cast<wchar_t>(lead));
            ++i;
            continue;
        }
        size_t tail;     // continuation bytes after the lead
        char32_t least;  // the smallest value a sequence of this length may carry
        if ((lead & 0xE0) == 0xC0) {
            tail = 1;
            least = 0x80;
        } else if ((lead & 0xF0) == 0xE0) {
            tail = 2;
            least = 0x800;
        } else if ((lead & 0xF8) == 0xF0) {
            tail = 3;
            least = 0x10000;
        } else {
            return false;
        }
        if (bytes.size() - i - 1 < tail) return false;
        char32_t value = lead & (0x3F >> tail);
        for (size_t k = 1; k <= tail; ++k) {
            const unsigned char next = static_cast<unsigned char>(bytes[i + k]);
            if ((next & 0xC0) != 0x80) return false;
            value = (value << 6) | (next & 0x3F);
        }
        if (value < least || value > 0x10FFFF || (value >= 0xD800 && value <= 0xDFFF)) return false;
        out.push_back(static_cast<wchar_t>(value));
        i += 1 + tail;
    }
    return true;
}

// ---- names -----------------------------------------------------------------------

struct Named {
    long value;
    const char* name;
};

constexpr Named kErrorNames[] = {
    {REG_OKAY, "REG_OKAY"},         {REG_NOMATCH, "REG_NOMATCH"}, {REG_BADPAT, "REG_BADPAT"},
    {REG_ECOLLATE, "REG_ECOLLATE"}, {REG_ECTYPE, "REG_ECTYPE"},   {REG_EESCAPE, "REG_EESCAPE"},
    {REG_ESUBREG, "REG_ESUBREG"},   {REG_EBRACK, "REG_EBRACK"},   {REG_EPAREN, "REG_EPAREN"},
    {REG_EBRACE, "REG_EBRACE"},     {REG_BADBR, "REG_BADBR"},     {REG_ERANGE, "REG_ERANGE"},
    {REG_ESPACE, "REG_ESPACE"},     {REG_BADRPT, "REG_BADRPT"},   {REG_ASSERT, "REG_ASSERT"},
    {REG_INVARG, "REG_INVARG"},     {REG_MIXED, "REG_MIXED"},     {REG_BADOPT, "REG_BADOPT"},
};

// In increasing bit order, the order --about prints them in.
constexpr Named kInfoNames[] = {
    {REG_UBACKREF, "REG_UBACKREF"},
    {REG_ULOOKAHEAD, "REG_ULOOKAHEAD"},
    {REG_UBOUNDS, "REG_UBOUNDS"},
    {REG_UBRACES, "REG_UBRACES"},
    {REG_UBSALNUM, "REG_UBSALNUM"},
    {REG_UPBOTCH, "REG_UPBOTCH"},
    {REG_UBBS, "REG_UBBS"},
    {REG_UNONPOSIX, "REG_UNONPOSIX"},
    {REG_UUNSPEC, "REG_UUNSPEC"},
    {REG_UUNPORT, "REG_UUNPORT"},
    {REG_ULOCALE, "REG_ULOCALE"},
    {REG_UEMPTYMATCH, "REG_UEMPTYMATCH"},
    {REG_UIMPOSSIBLE, "REG_UIMPOSSIBLE"},
    {REG_USHORTEST, "REG_USHORTEST"},
};

// A code the table lacks is shown as its number rather than dropped.
std::string ErrorName(int code) {
    for (const Named& entry : kErrorNames)
        if (entry.value == code) return entry.name;
    return std::to_string(code);
}

// "info" and the name of each set bit; a bit the table lacks shows in hex.
std::string InfoLine(long info) {
    std::string line = "info";
    const unsigned long bits = static_cast<unsigned long>(info);
    for (unsigned shift = 0; shift < sizeof bits * 8; ++shift) {
        const unsigned long bit = 1ul << shift;
        if (!(bits & bit)) continue;
        const char* name = nullptr;
        for (const Named& entry : kInfoNames)
            if (static_cast<unsigned long>(entry.value) == bit) name = entry.name;
        char unknown[24];
        if (!name) {
            std::snprintf(unknown, sizeof unknown, "0x%lx", bit);
            name = unknown;
        }
        line += ' ';
        line += name;
    }
    return line;
}

// ---- output ----------------------------------------------------------------------

int g_writeErrno = 0;  // the first failed write, reported when output closes

void EmitLine(const std::string& text) {
    const std::string line = text + '\n';
    if (std::fwrite(line.data(), 1, line.size(), stdout) != line.size() && g_writeErrno == 0)
        g_writeErrno = errno ? errno : EIO;
}

// Flushes and closes standard output; false, with a message, if any of it
// could not be written.
bool CloseOutput() {
    int failure = g_writeErrno;
    if (std::fclose(stdout) != 0 && failure == 0) failure = errno ? errno : EIO;
    if (failure == 0) return true;
    std::fprintf(stderr, "orlo-re: cannot write standard output: %s\n", std::strerror(failure));
    return false;
}

std::string Spans(const std::vector<regmatch_t>& groups) {
    std::string line;
    for (const regmatch_t& span : groups) {
        if (!line.empty()) line += ' ';
        line += std::to_string(span.rm_so) + ',' + std::to_string(span.rm_eo);
    }
    return line;
}

// ---- the probe -------------------------------------------------------------------

template <class CharT>
int Probe(const Request& req, std::basic_string_view<CharT> pattern,
          const std::vector<std::basic_string_view<CharT>>& subjects) {
    regex_t re;
    const int compiled =
        engine_compile(&re, pattern.data(), pattern.size(), req.syntax | req.compileFlags);
    if (compiled != REG_OKAY) {
        // A failed compilation has already released the record.
        EmitLine("error " + ErrorName(compiled));
        return kStatusEngineError;
    }
    if (req.about) {
        EmitLine("nsub " + std::to_string(re.re_nsub));
        EmitLine(InfoLine(re.re_info));
    }
    int status = kStatusOk;
    std::vector<regmatch_t> groups(re.re_nsub + 1);
    for (const auto& subject : subjects) {
        // Pre-set, so that an entry the engine leaves alone reads as absent.
        for (regmatch_t& span : groups)
            span = {-1, -1};
        rm_detail_t detail{{-1, -1}};
        const int rc = engine_exec(&re, subject.data(), subject.size(), &detail, groups.size(),
                                   groups.data(), req.execFlags);
        if (rc == REG_OKAY) {
            EmitLine(Spans(groups));
        } else if (rc == REG_NOMATCH) {
            EmitLine("nomatch");
        } else {
            EmitLine("error " + ErrorName(rc));
            status = kStatusEngineError;
        }
    }
    engine_free(&re);
    return status;
}

// Decodes everything before anything runs, so that a bad subject gives a
// usage error and no partial output.
int ProbeWide(const Request& req) {
    std::wstring pattern;
    if (!DecodeUtf8(req.pattern, pattern)) return UsageError("PATTERN is not valid UTF-8");
    std::vector<std::wstring> texts(req.subjects.size());
    for (size_t i = 0; i < texts.size(); ++i)
        if (!DecodeUtf8(req.subjects[i], texts[i]))
            return UsageError("SUBJECT " + std::to_string(i + 1) + " is not valid UTF-8");
    const std::vector<std::wstring_view> subjects(texts.begin(), texts.end());
    return Probe<wchar_t>(req, pattern, subjects);
}

}  // namespace

int RunProbe(int argc, char** argv) {
    Request req;
    std::string problem;
    if (!ReadCommandLine(argc, argv, req, problem)) return UsageError(problem);
    const int status = req.wide ? ProbeWide(req) : Probe<char>(req, req.pattern, req.subjects);
    return CloseOutput() ? status : kStatusFailure;
}

}  // namespace Orlo

int main(int argc, char** argv) {
    return Orlo::RunProbe(argc, argv);
}

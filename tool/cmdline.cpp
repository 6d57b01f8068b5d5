// The option store. Parsing is a pass over the raw words that rebuilds
// every `name` and `value` from scratch, so the table can be parsed again at
// any time with other sets or another `skip`. The splitter for command text
// is a small state machine (between words, in a word, in double quotes, in
// single quotes) with an escape flag; it builds each word from pieces so that
// single-quoted text can bypass the environment expansion.

#include "cmdline.h"

#include <cctype>
#include <cstdlib>
#include <string>
#include <string_view>

namespace Orlo {

namespace {

// Words and names arrive in the system's default encoding. Narrow text is
// kept as it is; the system default text conversion will plug in here.
stringEx FromSystemText(const stringEx& text, uint32_t pos, uint32_t count) {
    return stringEx(text, pos, count);
}

bool NamesEqual(const stringEx& a, const stringEx& b, bool ignoreCase) {
    if (a.size() != b.size()) return false;
    if (!ignoreCase) return a.view() == b.view();
    for (uint32_t i = 0; i < a.size(); ++i) {
        if (std::tolower(static_cast<unsigned char>(a[i])) !=
            std::tolower(static_cast<unsigned char>(b[i]))) {
            return false;
        }
    }
    return true;
}

// ---- environment expansion ----------------------------------------------------

bool IsNameByte(char c, bool first) {
    const unsigned char u = static_cast<unsigned char>(c);
    return c == '_' || std::isalpha(u) || (!first && std::isdigit(u));
}

// Length of the variable name that starts at `pos`; 0 when there is none.
size_t NameLength(std::string_view text, size_t pos) {
    size_t end = pos;
    while (end < text.size() && IsNameByte(text[end], end == pos))
        ++end;
    return end - pos;
}

// Replaces $NAME and ${NAME} by the variable's value, empty when it is unset.
// A "$" that does not open a well-formed reference stands for itself.
stringEx ExpandEnvironment(std::string_view text) {
    stringEx out;
    size_t i = 0;
    while (i < text.size()) {
        if (text[i] != '$') {
            out.push_back(text[i++]);
            continue;
        }
        const bool braced = i + 1 < text.size() && text[i + 1] == '{';
        const size_t nameStart = i + 1 + (braced ? 1 : 0);
        const size_t length = NameLength(text, nameStart);
        const size_t nameEnd = nameStart + length;
        const bool closed = !braced || (nameEnd < text.size() && text[nameEnd] == '}');
        if (length == 0 || !closed) {
            out.push_back(text[i++]);
            continue;
        }
        const std::string name(text.substr(nameStart, length));
        if (const char* value = std::getenv(name.c_str())) out.append(value);
        i = nameEnd + (braced ? 1 : 0);
    }
    return out;
}

// ---- command text splitter ----------------------------------------------------

class TextSplitter {
  public:
    TextSplitter(bool expandEnv, std::vector<CCmdArg>& words)
        : m_expandEnv(expandEnv), m_words(words) {}

    void Feed(char c);
    // Closes an open word or quote and stores the word.
    void Finish();

  private:
    enum class State { Between, Word, DoubleQuoted, SingleQuoted };

    // The rules shared by words and both kinds of quotes.
    void FeedInside(char c);
    // Moves the piece into the word, through the expansion when asked.
    void FlushPiece(bool expand);
    void EndWord();

    const bool m_expandEnv;
    std::vector<CCmdArg>& m_words;
    State m_state = State::Between;
    bool m_escape = false;
    stringEx m_piece;
    stringEx m_word;
};

void TextSplitter::Feed(char c) {
    switch (m_state) {
        case State::Between:
            if (c == ' ') return;
            if (c == '"') {
                m_state = State::DoubleQuoted;
            } else if (c == '\'') {
                m_state = State::SingleQuoted;
            } else {
                m_state = State::Word;
                FeedInside(c);
            }
            return;
        case State::Word:
            if (c == ' ') {
                if (!m_escape) return EndWord();
                m_piece.push_back(' ');
                m_escape = false;
                return;
            }
            if (!m_escape && c == '"') {
                m_state = State::DoubleQuoted;
                return;
            }
            if (!m_escape && c == '\'') {
                FlushPiece(m_expandEnv);
                m_state = State::SingleQuoted;
                return;
            }
            break;
        case State::DoubleQuoted:
            if (!m_escape && c == '"') {
                m_state = State::Word;
                return;
            }
            break;
        case State::SingleQuoted:
            if (!m_escape && c == '\'') {
                FlushPiece(false);
                m_state = State::Word;
                return;
            }
            break;
    }
    FeedInside(c);
}

void TextSplitter::FeedInside(char c) {
    if (!m_escape) {
        if (c == '\\') {
            m_escape = true;
        } else {
            m_piece.push_back(c);
        }
        return;
    }
    m_escape = false;
    // Only quotes and the backslash itself are escapable here; before any
    // other byte the backslash stands for itself.
    if (c != '"' && c != '\'' && c != '\\') m_piece.push_back('\\');
    m_piece.push_back(c);
}

void TextSplitter::FlushPiece(bool expand) {
    if (m_piece.empty()) return;
    if (expand) {
        m_word.append(ExpandEnvironment(m_piece.view()));
    } else {
        m_word.append(m_piece);
    }
    m_piece.clear();
}

void TextSplitter::EndWord() {
    FlushPiece(m_expandEnv);
    if (!m_word.empty()) m_words.push_back(CCmdArg{m_word, stringEx(), stringEx()});
    m_word.clear();
    m_state = State::Between;
}

void TextSplitter::Finish() {
    if (m_state == State::Between) return;
    // A backslash at the very end escapes nothing and stands for itself.
    if (m_escape) m_piece.push_back('\\');
    m_escape = false;
    if (m_state == State::SingleQuoted) FlushPiece(false);
    EndWord();
}

}  // namespace

CCmdLine::CCmdLine(const stringEx& prefixes, const stringEx& suffixes, uint32_t skip)
    : prefixes(prefixes), suffixes(suffixes), skip(skip) {}

bool CCmdLine::Init(int argc, const char* const* argv) {
    args.clear();
    switchCount = 0;
    if (argc <= 0) return false;
    args.resize(argc);
    for (int i = 0; i < argc; ++i) {
        const stringEx word(argv[i]);
        args[i].raw = FromSystemText(word, 0, npos);
    }
    return Parse();
}

bool CCmdLine::Parse() {
    switchCount = 0;
    if (args.empty()) return false;
    for (uint32_t i = 0; i < args.size(); ++i) {
        CCmdArg& arg = args[i];
        arg.name.clear();
        arg.value.clear();
        // Without prefixes nothing is a switch; words before `skip` are never
        // parsed.
        if (i >= skip && !prefixes.empty()) ParseWord(arg);
    }
    return true;
}

void CCmdLine::ParseWord(CCmdArg& arg) {
    const stringEx& raw = arg.raw;
    if (raw.empty() || prefixes.find(raw[0]) == npos) return;
    // A lone prefix byte ("-") is a free word.
    if (raw.size() == 1) return;
    // The search starts behind the prefix, and the first suffix byte wins:
    // later ones belong to the value.
    const uint32_t suffixAt = suffixes.empty() ? npos : raw.find_first_of(suffixes, 1);
    const uint32_t nameEnd = suffixAt == npos ? raw.size() : suffixAt;
    arg.name = FromSystemText(raw, 1, nameEnd - 1);
    if (suffixAt != npos && suffixAt + 1 < raw.size()) arg.value = stringEx(raw, suffixAt + 1);
    ++switchCount;
}

bool CCmdLine::ParseText(const stringEx& text, bool expandEnv) {
    args.clear();
    switchCount = 0;
    if (text.empty()) return false;
    TextSplitter splitter(expandEnv, args);
    for (char c : text.view())
        splitter.Feed(c);
    splitter.Finish();
    return Parse();
}

bool CCmdLine::SetSkip(uint32_t n) {
    skip = n;
    if (args.empty()) return true;
    return Parse();
}

bool CCmdLine::SetDelimiters(const stringEx& newPrefixes, const stringEx& newSuffixes) {
    prefixes = newPrefixes;
    suffixes = newSuffixes;
    return Parse();
}

bool CCmdLine::SetDelimiters(const stringEx& newPrefixes, const stringEx& newSuffixes, uint32_t n) {
    skip = n;
    return SetDelimiters(newPrefixes, newSuffixes);
}

uint32_t CCmdLine::FindNth(const stringEx& name, uint32_t nth, bool ignoreCase) const {
    if (name.empty()) return npos;
    uint32_t seen = 0;
    for (uint32_t i = skip; i < args.size(); ++i) {
        if (!NamesEqual(args[i].name, name, ignoreCase)) continue;
        if (seen == nth) return i;
        ++seen;
    }
    return npos;
}

uint32_t CCmdLine::CountMatches(const stringEx& name, bool ignoreCase) const {
    if (name.empty()) return 0;
    uint32_t count = 0;
    for (uint32_t i = skip; i < args.size(); ++i) {
        if (NamesEqual(args[i].name, name, ignoreCase)) ++count;
    }
    return count;
}

uint32_t CCmdLine::FindSwitch(const stringEx& name, uint32_t nth) const {
    return FindNth(name, nth, true);
}

uint32_t CCmdLine::FindSwitchCase(const stringEx& name, uint32_t nth) const {
    return FindNth(name, nth, false);
}

uint32_t CCmdLine::CountSwitch(const stringEx& name) const {
    return CountMatches(name, true);
}

uint32_t CCmdLine::CountSwitchCase(const stringEx& name) const {
    return CountMatches(name, false);
}

stringEx CCmdLine::GetValue(const stringEx& name, uint32_t nth) const {
    const uint32_t index = FindSwitch(name, nth);
    return index == npos ? stringEx() : args[index].value;
}

stringEx CCmdLine::GetValueCase(const stringEx& name, uint32_t nth) const {
    const uint32_t index = FindSwitchCase(name, nth);
    return index == npos ? stringEx() : args[index].value;
}

stringEx CCmdLine::GetFreeArg(uint32_t i) const {
    uint32_t seen = 0;
    for (uint32_t index = skip; index < args.size(); ++index) {
        if (!args[index].name.empty()) continue;
        if (seen == i) return args[index].raw;
        ++seen;
    }
    return stringEx();
}

bool CCmdLine::IsSwitch(uint32_t index) const {
    return InRange(index) && !args[index].name.empty();
}

bool CCmdLine::IsFreeArg(uint32_t index) const {
    return InRange(index) && args[index].name.empty();
}

stringEx CCmdLine::NameAt(uint32_t index) const {
    return InRange(index) ? args[index].name : stringEx();
}

stringEx CCmdLine::ValueAt(uint32_t index) const {
    return InRange(index) ? args[index].value : stringEx();
}

uint32_t CCmdLine::GetAll(std::vector<CCmdArg>& out) const {
    uint32_t count = 0;
    for (uint32_t i = skip; i < args.size(); ++i, ++count)
        out.push_back(args[i]);
    return count;
}

}  // namespace Orlo

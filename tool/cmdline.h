// CCmdLine: the option store. It turns the words of a command line into a
// table of records and answers questions about them: is this switch present,
// what is its value, what is the n-th word that is not a switch.
//
// It knows nothing of any tool's options. A word is a switch when its first
// byte is one of `prefixes` and it is longer than that byte; the name runs
// from the second byte to the first byte that is one of `suffixes`, and the
// value is what follows that byte. So with prefixes "-" and suffixes ":="
// the word "-f:a=b" is the switch "f" with the value "a=b", "--x" is the
// switch "-x", and "-" alone is free. The first `skip` words (the program's
// path, for an argument vector) are never parsed and never answered for.
//
// One oddity is kept on purpose: a word such as "-:x" is counted in
// `switchCount`, yet its name is empty, so no lookup can find it and it
// reads as a free word. Users count free words as
// args.size() - switchCount - skip.
//
// Changing the prefixes, the suffixes or `skip` parses the whole table again
// from the raw words. One object belongs to one thread. Nothing fails but
// memory (std::bad_alloc).

#ifndef MENDO_CMDLINE_H
#define MENDO_CMDLINE_H

#include <cstdint>
#include <vector>

#include "orlo/stringEx.h"

namespace Orlo {

// One word of the command line.
struct CCmdArg {
    stringEx raw;    // the word itself
    stringEx name;   // switch name without prefix and suffix; empty for a free word
    stringEx value;  // text behind the suffix; empty when there is none
};

class CCmdLine {
  public:
    // Copies the two sets; nothing is parsed until Init or ParseText.
    CCmdLine(const stringEx& prefixes, const stringEx& suffixes, uint32_t skip = 1);

    // Replaces the table with the argc words of argv and parses it. Returns
    // false when argc is 0 (the table is then empty), otherwise what Parse
    // returns.
    bool Init(int argc, const char* const* argv);

    // Parses the table again with the present sets and `skip`. Returns false
    // for an empty table, true otherwise.
    bool Parse();

    // Splits one string of command text into words and parses them. Blanks
    // separate words; '...' and "..." group them; a backslash escapes a
    // quote, a backslash, or (outside quotes) a blank, and otherwise stands
    // for itself. An unterminated quote is closed at the end of the text, and
    // an empty word is dropped:  a"b c"'d e' \"x  gives  |ab cd e| |"x|.
    // With `expandEnv`, $NAME and ${NAME} in unquoted and double-quoted text
    // are replaced by the environment's value (empty when unset); text in
    // single quotes is never expanded. Returns false for an empty text.
    bool ParseText(const stringEx& text, bool expandEnv);

    // Sets `skip` and parses again. Returns true at once for an empty table.
    bool SetSkip(uint32_t n);
    // Replaces the two sets, and `skip` in the second form, and parses again.
    // Returns what Parse returns.
    bool SetDelimiters(const stringEx& newPrefixes, const stringEx& newSuffixes);
    bool SetDelimiters(const stringEx& newPrefixes, const stringEx& newSuffixes, uint32_t n);

    // Index in `args` of the nth occurrence (0 is the first) of the switch
    // `name`, or npos. FindSwitch compares without regard to case ("FIC"
    // finds "fic"), FindSwitchCase exactly. An empty name is never found.
    uint32_t FindSwitch(const stringEx& name, uint32_t nth = 0) const;
    uint32_t FindSwitchCase(const stringEx& name, uint32_t nth = 0) const;

    // Number of occurrences of the switch `name`; 0 for an empty name.
    uint32_t CountSwitch(const stringEx& name) const;
    uint32_t CountSwitchCase(const stringEx& name) const;

    // Value of the nth occurrence of the switch `name` (shares the record's
    // buffer); an empty string when there is no such occurrence.
    stringEx GetValue(const stringEx& name, uint32_t nth = 0) const;
    stringEx GetValueCase(const stringEx& name, uint32_t nth = 0) const;

    // Raw text of the i-th free word (0 is the first) counted from `skip`;
    // an empty string when there are not that many.
    stringEx GetFreeArg(uint32_t i) const;

    // Whether `index` lies in [skip, args.size()) and is a switch, or a free
    // word. Both are false outside that range.
    bool IsSwitch(uint32_t index) const;
    bool IsFreeArg(uint32_t index) const;

    // Name or value of the record at `index`; an empty string outside
    // [skip, args.size()).
    stringEx NameAt(uint32_t index) const;
    stringEx ValueAt(uint32_t index) const;

    // Appends the records from `skip` on to `out`; returns how many.
    uint32_t GetAll(std::vector<CCmdArg>& out) const;

    std::vector<CCmdArg> args;  // all words, in order, including the skipped ones
    stringEx prefixes;          // bytes that introduce a switch
    stringEx suffixes;          // bytes that end a switch name
    uint32_t switchCount = 0;   // words the last parse took for switches
    uint32_t skip;              // leading words that are never parsed

  private:
    bool InRange(uint32_t index) const { return index >= skip && index < args.size(); }
    uint32_t FindNth(const stringEx& name, uint32_t nth, bool ignoreCase) const;
    uint32_t CountMatches(const stringEx& name, bool ignoreCase) const;
    void ParseWord(CCmdArg& arg);
};

}  // namespace Orlo

#endif  // MENDO_CMDLINE_H

// Match commands: the strategy behind the library's escape expansions.
//
// An expansion engine (stringEx::ExpandEscapes, ExpandDelimited and the
// restore services built on them) finds an escape in a string and asks a
// command what to put in its place. The engine owns the scanning rules
// (doubled escapes, a dangling escape at the end, where the scan resumes);
// the command only looks at the text behind the escape and answers. So one
// engine serves percent-decoding, markup and JSON restore, and environment
// and time expansion, each with a command of a few lines.
//
// A command is called with a view into the string being expanded: it must not
// keep the view beyond the call, and it must not edit the string it came from.

#ifndef ORLO_MATCH_CMD_H
#define ORLO_MATCH_CMD_H

#include <cstdint>

#include "orlo/stringEx.h"

namespace Orlo {

// The interface, for T = stringEx, byteEx or wstringEx.
template <class T>
class IStrMatchCmd {
  public:
    virtual ~IStrMatchCmd() = default;

    // Examines `view`, the text behind the escape (for the delimited forms:
    // the name between the delimiters), and on a match stores the replacement
    // in `out`, which the library's engines hand over empty. Returns 0 for no
    // match (the text stays as it is), 1 for a match, and any other value to
    // stop the expansion where it stands.
    virtual int Match(const T& view, T& out) = 0;

    // Number of elements behind the escape that the last match used, and
    // that the engine removes together with the escape. The default, 0, suits
    // commands whose match replaces the escape alone or that are used with
    // the delimited forms, where the delimiters fix the extent.
    virtual uint32_t MatchLength() { return 0; }
};

// Percent-decoding: "%41" -> "A". Always matches and always uses two bytes,
// or fewer when the text ends earlier. The byte stored is the low byte of
// what ToUInt reads from at most two bytes in base 16, with no check that
// they are hexadecimal digits, so "%zz" gives a zero byte, "% 7" the byte 7
// (the parser skips white space) and "%-1" the byte 0xFF (it takes a sign).
// Stateless; one object may serve any number of expansions.
class CQueryStrEscapeCmd : public IStrMatchCmd<stringEx> {
  public:
    int Match(const stringEx& view, stringEx& out) override;
    uint32_t MatchLength() override { return 2; }
};

}  // namespace Orlo

#endif  // ORLO_MATCH_CMD_H

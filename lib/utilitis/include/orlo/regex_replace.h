// Regular-expression search and replace on strings, with the groups of each
// match available to the replacement as \0 to \9.
//
// The same two strategies as the plain replace (orlo/buffer.h): the expand
// form appends the result to a second buffer, moving each byte once; the
// in-place form changes one buffer, moving the tail at each match.
//
// Each search starts in the middle of the subject, and the engine knows
// nothing of what lies before, so these functions tell it whether the start
// is a line start. The expand form decides that from the output written so
// far (a replacement ending in a line feed makes what follows a line start),
// the in-place form from the buffer as changed. Newline sensitivity is the
// handle's (its flags masked with REG_NEWLINE).
//
// Offsets and counts are unsigned 32-bit. An engine failure reads as "no
// more matches". Every function works for narrow (byteEx, stringEx) and
// wide (wstringEx) strings, with the handle of the same width.

#ifndef ORLO_REGEX_REPLACE_H
#define ORLO_REGEX_REPLACE_H

#include <cstdint>
#include <utility>
#include <vector>

#include "orlo/buffer.h"
#include "orlo/escape_table.h"
#include "orlo/regex.h"

namespace Orlo {

// (offset, length) of the whole match (index 0) and of each group. A group
// that took no part has length 0. Only the first ten entries are ever
// filled from the engine; later ones are not to be used.
using CRegMatch = std::vector<std::pair<uint32_t, uint32_t>>;

// Finds match number `nth` (0: the next) at or after `start`. False, with
// `match` empty, when there is none, when the handle is empty, or when
// `start` is not below the subject's length. `notbol` / `noteol` say the
// subject's start / end is no line start / end. With `rescan` false the
// first search trusts `notbol` even away from offset 0; later ones (and all
// with `rescan`) look at the element before their start.
template <class CharT>
bool RegFind(const basic_buffer<CharT>& subject, CRegMatch& match,
             const basic_regex_handle<CharT>& handle, uint32_t nth, uint32_t start, bool notbol,
             bool noteol, bool rescan);

// Appends `source` to `dest` with every match replaced by the expansion of
// `replacement` (see ExpandTemplate), and returns the number of matches.
// With `prepare`, the control escapes of the replacement (\n \t ...) are
// translated once first. An empty handle returns 0 and appends nothing.
template <class CharT>
uint32_t RegReplaceTo(const basic_buffer<CharT>& source, basic_buffer<CharT>& dest,
                      const basic_regex_handle<CharT>& handle, basic_buffer<CharT> replacement,
                      bool notbol, bool noteol, bool prepare);
// The same, handing the result to `drain` as it grows, so that `dest` holds
// no more than a slice of it at a time.
template <class CharT>
uint32_t RegReplaceTo(const basic_buffer<CharT>& source, basic_buffer<CharT>& dest,
                      const basic_regex_handle<CharT>& handle, basic_buffer<CharT> replacement,
                      bool notbol, bool noteol, bool prepare, basic_drain<CharT>& drain);

// The same in place; an empty handle leaves `text` as it is.
template <class CharT>
uint32_t RegReplace(basic_buffer<CharT>& text, const basic_regex_handle<CharT>& handle,
                    basic_buffer<CharT> replacement, bool notbol, bool noteol, bool prepare);

// The replacement for one match: `\0`-`\9` become the subject's text of that
// pair (nothing for a pair the match lacks), `\\` a backslash, `\x` for any
// other x gives x, and a backslash in the last place vanishes. Inserted text
// is not scanned again.
template <class CharT>
basic_buffer<CharT> ExpandTemplate(const basic_buffer<CharT>& tmpl, const CRegMatch& match,
                                   const basic_buffer<CharT>& subject);

// True when `subject` holds a match anywhere.
template <class CharT>
bool RegMatches(const basic_buffer<CharT>& subject, const basic_regex_handle<CharT>& handle,
                bool notbol, bool noteol);

// The offsets of the first match, start and end; false when none.
template <class CharT>
bool RegRange(const basic_buffer<CharT>& subject, const basic_regex_handle<CharT>& handle,
              uint32_t& start, uint32_t& end, bool notbol, bool noteol);

}  // namespace Orlo

#endif  // ORLO_REGEX_REPLACE_H

// Preparation of mendo's find and replacement texts: the shell-friendly
// aliases for awkward bytes, and percent-decoding for -ue. Case change is
// stringEx's own ToUpper / ToLower. The driver decides which text gets
// which treatment.

#ifndef MENDO_TEXT_PREP_H
#define MENDO_TEXT_PREP_H

#include "orlo/stringEx.h"

namespace Orlo {

// Replaces, in this order and each on the result of the one before, every
// "[:dq:]", "[:sq:]", "[:nl:]", "[:rt:]", "[:tb:]" and "[:bs:]" with the
// double quote, single quote, line feed, carriage return, tab and
// backspace. The comparison is exact and knows nothing of context.
void ExpandAliases(stringEx& text);

// Decodes "%HH" escapes in place: the two bytes behind '%' are read as a
// base-16 number (no check that they are hex digits) and its low byte
// replaces all three; "%%" gives "%", a '%' at the end is removed. With
// `plusIsSpace`, each '+' first becomes a space.
void PercentDecode(stringEx& text, bool plusIsSpace);

}  // namespace Orlo

#endif  // MENDO_TEXT_PREP_H

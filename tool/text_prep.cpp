// Alias expansion and percent-decoding of the find and replacement texts.

#include "text_prep.h"

#include "orlo/match_cmd.h"

namespace Orlo {

void ExpandAliases(stringEx& text) {
    static const struct {
        const char* alias;
        const char* byte;
    } kAliases[] = {
        {"[:dq:]", "\""}, {"[:sq:]", "'"},  {"[:nl:]", "\n"},
        {"[:rt:]", "\r"}, {"[:tb:]", "\t"}, {"[:bs:]", "\b"},
    };
    for (const auto& row : kAliases)
        text.Replace(stringEx::view(row.alias), stringEx::view(row.byte), 0, true);
}

void PercentDecode(stringEx& text, bool plusIsSpace) {
    text.unview();
    if (plusIsSpace) text.Replace(stringEx::view("+"), stringEx::view(" "), 0, true);
    CQueryStrEscapeCmd command;
    text.ExpandEscapes('%', command, true, false);
}

}  // namespace Orlo

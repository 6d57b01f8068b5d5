// Escape tables: the translation of backslash forms by a table of written
// forms and what each stands for, as the regular-expression front and the
// replacement text use it.

#ifndef ORLO_ESCAPE_TABLE_H
#define ORLO_ESCAPE_TABLE_H

#include "orlo/buffer.h"

namespace Orlo {

// One row: the text written behind the escape, and the text it stands for.
// A table is an array of rows ended by a row whose `written` is empty.
template <class CharT>
struct escape_entry {
    const CharT* written;
    const CharT* meant;
};

// Changes `text` in place: each `escape` followed by a row's written form
// (rows tried in order, the first hit wins) becomes that row's text, which
// is not looked at again. A doubled escape is left as it is with
// `keepDouble`, else it becomes one; an escape with no hit, or one in the
// last place, is removed with `dropUnknown`, else left.
template <class CharT>
void EscapeTranslate(basic_buffer<CharT>& text, CharT escape, const escape_entry<CharT>* table,
                     bool dropUnknown, bool keepDouble);

// The table of control and quote escapes that a replacement text may use:
// \r \n \b \t \v \" \'.
template <class CharT>
const escape_entry<CharT>* plain_escape_table();

}  // namespace Orlo

#endif  // ORLO_ESCAPE_TABLE_H

// Engines behind the text services of stringEx and wstringEx. The members of
// basic_text (text.cpp) are thin: they clip positions and hand raw element
// ranges or whole buffers to the routines declared here, which live in
// text_numbers.cpp (the parsers and printers) and text_escapes.cpp (the
// escape expansions and the markup and JSON tables). Each routine is written
// once over the element type and instantiated for char and wchar_t.
//
// Implementation details only.

#ifndef ORLO_SRC_STRING_TEXT_IMPL_H
#define ORLO_SRC_STRING_TEXT_IMPL_H

#include <algorithm>
#include <cstdint>
#include <type_traits>

#include "orlo/buffer.h"
#include "orlo/match_cmd.h"
#include "orlo/stringEx.h"

namespace Orlo::IMPL {

template <class CharT>
using text_string_t = std::conditional_t<sizeof(CharT) == 1, stringEx, wstringEx>;

template <class CharT>
using text_match_cmd = IStrMatchCmd<text_string_t<CharT>>;

// The library's white-space set. A zero counts, so that a terminator or a
// zero byte inside a record ends nothing by accident; a form feed does not.
template <class CharT>
constexpr bool IsTextSpace(CharT c) {
    return c == 0x00 || c == 0x09 || c == 0x0A || c == 0x0B || c == 0x0D || c == 0x20;
}

// A room request computed in 64 bits; one past max_size when it cannot be
// had, so that the room function reports the lack of memory.
template <class CharT>
uint32_t RoomRequest(uint64_t n) {
    return uint32_t(std::min<uint64_t>(n, uint64_t(basic_buffer<CharT>::max_size()) + 1));
}

// Appends an ASCII literal, widened element by element for wide buffers.
template <class CharT>
void AppendAscii(basic_buffer<CharT>& out, const char* text) {
    if constexpr (sizeof(CharT) == 1) {
        out.append(text);
    } else {
        for (; *text; ++text)
            out.push_back(CharT(static_cast<unsigned char>(*text)));
    }
}

// ---- numbers (text_numbers.cpp) ----------------------------------------------
// Each parser reads [first, last) and sets `stop` to the element behind the
// last one it consumed; the callers turn that into an offset.

template <class CharT>
int32_t ParseInt32(const CharT* first, const CharT* last, int base, const CharT*& stop);
template <class CharT>
uint32_t ParseUInt32(const CharT* first, const CharT* last, int base, const CharT*& stop);
template <class CharT>
double ParseDouble(const CharT* first, const CharT* last, const CharT*& stop);

// Appends the digits of `magnitude` in `base`, with a minus in front when
// `negative` and the base is 10; an unusable base appends "0".
template <class CharT>
void AppendInteger(basic_buffer<CharT>& out, uint32_t magnitude, bool negative, int base);

// ---- escapes (text_escapes.cpp) ----------------------------------------------

// In-place escape expansion of `text` from `start` on; the text before
// `start` is neither scanned nor changed.
// `dropUnknown` removes an escape that `cmd` does not match.
template <class CharT>
void ExpandEscapesFrom(basic_buffer<CharT>& text, uint32_t start, CharT escape,
                       text_match_cmd<CharT>& cmd, bool dropDangling, bool keepDouble,
                       bool dropUnknown = false);

// `source` is taken by value, so that `output` may be the very record it
// came from: the copy shares the block, and the first append to `output`
// then gives `output` a block of its own.
template <class CharT>
void ExpandDelimitedTo(basic_buffer<CharT> source, basic_buffer<CharT>& output,
                       const basic_buffer<CharT>& open, const basic_buffer<CharT>& close,
                       text_match_cmd<CharT>& cmd, bool keepDouble);
template <class CharT>
void ExpandDelimitedInPlace(basic_buffer<CharT>& text, const basic_buffer<CharT>& open,
                            const basic_buffer<CharT>& close, text_match_cmd<CharT>& cmd,
                            bool keepDouble);

enum class EscapeFlavour { kHtml, kXml, kJson };

template <class CharT>
void AppendEscaped(basic_buffer<CharT> source, basic_buffer<CharT>& output, EscapeFlavour flavour);
template <class CharT>
void AppendRestored(basic_buffer<CharT> source, basic_buffer<CharT>& output, EscapeFlavour flavour);

}  // namespace Orlo::IMPL

#endif  // ORLO_SRC_STRING_TEXT_IMPL_H

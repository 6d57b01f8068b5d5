// Escape expansion and the markup and JSON escape tables.
//
// Two engines walk a text and ask a match command what to put in place of
// an escape:
//
//   - the single-escape engine ("%41", "\n"): an escape element, then
//     whatever the command reads behind it. It edits in place.
//   - the delimited engine ("&lt;", "${HOME}"): an open text, a name, a close
//     text. It appends to an output (which may be the source's own record)
//     or edits in place; both forms share one scanner, so that they agree
//     on every odd case: a doubled first element of `open` collapses (or is
//     kept), an open element in the very last place is dropped, and a
//     missing close ends the walk with the rest copied as it stands.
//
// In both engines the inserted text is never scanned again, and an unknown
// name or escape (answer 0) stays in the text as written.
//
// The restore services are these engines with small private commands; the
// escape services need no command and are a per-element mapping.

#include <algorithm>
#include <cstring>

#include "string/text_impl.h"

namespace Orlo::IMPL {

namespace {

// ---- the delimited scanner -------------------------------------------------

enum class DelimitedKind {
    kNone,      // no first element of `open` from here on
    kDangling,  // that element stands in the very last place
    kDouble,    // it is followed by itself
    kNotOpen,   // it does not begin a whole `open`, or there is no room for one
    kNoClose,   // a whole `open` with no `close` anywhere behind it
    kName,      // open, name, close
};

struct DelimitedHit {
    DelimitedKind kind = DelimitedKind::kNone;
    uint32_t at = 0;         // where the first element of `open` stands; kNone: the length
    uint32_t nameBegin = 0;  // kName: the name is [nameBegin, nameEnd)
    uint32_t nameEnd = 0;
    uint32_t resume = 0;  // kName: behind `close`
};

template <class CharT>
DelimitedHit NextDelimited(const basic_buffer<CharT>& text, uint32_t from,
                           const basic_buffer<CharT>& open, const basic_buffer<CharT>& close) {
    DelimitedHit hit;
    hit.at = text.find(open[0], from);
    if (hit.at == npos) {
        hit.at = text.size();
        return hit;
    }
    if (hit.at + 1 == text.size()) {
        hit.kind = DelimitedKind::kDangling;
        return hit;
    }
    if (text[hit.at + 1] == open[0]) {
        hit.kind = DelimitedKind::kDouble;
        return hit;
    }
    const bool fits = uint64_t(hit.at) + open.size() + close.size() <= text.size();
    if (!fits || text.compare(hit.at, open.size(), open) != 0) {
        hit.kind = DelimitedKind::kNotOpen;
        return hit;
    }
    hit.nameBegin = hit.at + open.size();
    const uint32_t closeAt = text.find(close, hit.nameBegin);
    if (closeAt == npos) {
        hit.kind = DelimitedKind::kNoClose;
        return hit;
    }
    hit.kind = DelimitedKind::kName;
    hit.nameEnd = closeAt;
    hit.resume = closeAt + close.size();
    return hit;
}

// ---- the restore commands ------------------------------------------------------

// True when `name` is exactly the ASCII text `literal`.
template <class T>
bool IsName(const T& name, const char* literal) {
    const uint32_t length = uint32_t(std::strlen(literal));
    if (name.size() != length) return false;
    for (uint32_t i = 0; i < length; ++i) {
        if (name.c_str()[i] != static_cast<unsigned char>(literal[i])) return false;
    }
    return true;
}

template <class T>
int StoreOne(T& out, typename T::value_type c) {
    out.assign(&c, 1);
    return 1;
}

// The four named entities of HTML; numeric references are not understood.
template <class T>
class CHtmlRestorer : public IStrMatchCmd<T> {
  public:
    int Match(const T& name, T& out) override {
        if (IsName(name, "amp")) return StoreOne(out, '&');
        if (IsName(name, "gt")) return StoreOne(out, '>');
        if (IsName(name, "lt")) return StoreOne(out, '<');
        if (IsName(name, "quot")) return StoreOne(out, '"');
        return 0;
    }
};

// HTML's entities and the single quotation mark, which only XML names.
template <class T>
class CXmlRestorer : public CHtmlRestorer<T> {
  public:
    int Match(const T& name, T& out) override {
        if (IsName(name, "apos")) return StoreOne(out, '\'');
        return CHtmlRestorer<T>::Match(name, out);
    }
};

// JSON's one-letter escapes; a doubled backslash is the engine's business.
// "\u" is not understood and stays as written.
template <class T>
class CJsonRestorer : public IStrMatchCmd<T> {
  public:
    int Match(const T& view, T& out) override {
        if (view.empty()) return 0;
        switch (view.c_str()[0]) {
            case '"':
                return StoreOne(out, '"');
            case 'n':
                return StoreOne(out, '\n');
            case 'r':
                return StoreOne(out, '\r');
            case 't':
                return StoreOne(out, '\t');
            default:
                return 0;
        }
    }
    uint32_t MatchLength() override { return 1; }
};

// ---- the escape tables ----------------------------------------------------------

// The escaped form of `c`, or null when it is copied as it is.
template <class CharT>
const char* EscapedForm(CharT c, EscapeFlavour flavour) {
    if (flavour == EscapeFlavour::kJson) {
        switch (c) {
            case '"':
                return "\\\"";
            case '\\':
                return "\\\\";
            case '\r':
                return "\\r";
            case '\n':
                return "\\n";
            default:
                return nullptr;
        }
    }
    switch (c) {
        case '&':
            return "&amp;";
        case '<':
            return "&lt;";
        case '>':
            return "&gt;";
        case '"':
            return "&quot;";
        case '\'':
            return flavour == EscapeFlavour::kXml ? "&apos;" : nullptr;
        default:
            return nullptr;
    }
}

}  // namespace

template <class CharT>
void ExpandEscapesFrom(basic_buffer<CharT>& text, uint32_t start, CharT escape,
                       text_match_cmd<CharT>& cmd, bool dropDangling, bool keepDouble,
                       bool dropUnknown) {
    text_string_t<CharT> out;
    uint32_t pos = start;
    for (;;) {
        const uint32_t at = text.find(escape, pos);
        if (at == npos) return;
        if (at + 1 == text.size()) {
            if (dropDangling) text.erase(at, 1);
            return;
        }
        if (text.c_str()[at + 1] == escape) {
            if (keepDouble) {
                pos = at + 2;
            } else {
                text.erase(at, 1);
                pos = at + 1;
            }
            continue;
        }

        out.clear();
        const int answer = cmd.Match(text_string_t<CharT>(as_view, text, at + 1), out);
        if (answer == 0) {
            if (dropUnknown) text.erase(at, 1);
            pos = dropUnknown ? at : at + 1;
            continue;
        }
        if (answer != 1) return;
        const uint32_t used = std::min(cmd.MatchLength(), text.size() - at - 1);
        text.replace(at, used + 1, out);
        pos = at + out.size();
    }
}

template <class CharT>
void ExpandDelimitedTo(basic_buffer<CharT> source, basic_buffer<CharT>& output,
                       const basic_buffer<CharT>& open, const basic_buffer<CharT>& close,
                       text_match_cmd<CharT>& cmd, bool keepDouble) {
    if (open.empty() || close.empty()) {
        output.append(source);
        return;
    }
    const uint32_t length = source.size();
    output.reserve_exact(RoomRequest<CharT>(uint64_t(length) + output.size() + 1 + (length >> 3)));
    const CharT* text = source.c_str();
    text_string_t<CharT> out;
    uint32_t last = 0;  // start of the elements not yet copied
    uint32_t scan = 0;
    for (;;) {
        const DelimitedHit hit = NextDelimited(source, scan, open, close);
        output.append(text + last, hit.at - last);
        last = hit.at;
        switch (hit.kind) {
            case DelimitedKind::kNone:
            case DelimitedKind::kDangling:
                return;
            case DelimitedKind::kDouble:
                output.append(keepDouble ? 2 : 1, open[0]);
                last = scan = hit.at + 2;
                break;
            case DelimitedKind::kNotOpen:
                scan = hit.at + 1;
                break;
            case DelimitedKind::kNoClose:
                output.append(text + last, length - last);
                return;
            case DelimitedKind::kName: {
                out.clear();
                const text_string_t<CharT> name(as_view, source, hit.nameBegin,
                                                hit.nameEnd - hit.nameBegin);
                const int answer = cmd.Match(name, out);
                if (answer != 0 && answer != 1) {
                    output.append(text + last, length - last);
                    return;
                }
                if (answer == 1) {
                    output.append(out);
                    last = hit.resume;
                }
                scan = hit.resume;
            }
        }
    }
}

template <class CharT>
void ExpandDelimitedInPlace(basic_buffer<CharT>& text, const basic_buffer<CharT>& open,
                            const basic_buffer<CharT>& close, text_match_cmd<CharT>& cmd,
                            bool keepDouble) {
    if (open.empty() || close.empty()) return;
    text_string_t<CharT> out;
    uint32_t scan = 0;
    for (;;) {
        const DelimitedHit hit = NextDelimited(text, scan, open, close);
        switch (hit.kind) {
            case DelimitedKind::kNone:
            case DelimitedKind::kNoClose:
                return;
            case DelimitedKind::kDangling:
                text.erase(hit.at, 1);
                return;
            case DelimitedKind::kDouble:
                if (!keepDouble) text.erase(hit.at, 1);
                scan = hit.at + (keepDouble ? 2 : 1);
                break;
            case DelimitedKind::kNotOpen:
                scan = hit.at + 1;
                break;
            case DelimitedKind::kName: {
                out.clear();
                const int answer = cmd.Match(
                    text_string_t<CharT>(as_view, text, hit.nameBegin, hit.nameEnd - hit.nameBegin),
                    out);
                if (answer != 0 && answer != 1) return;
                if (answer == 0) {
                    scan = hit.resume;
                    break;
                }
                text.replace(hit.at, hit.resume - hit.at, out);
                scan = hit.at + out.size();
            }
        }
    }
}

template <class CharT>
void AppendEscaped(basic_buffer<CharT> source, basic_buffer<CharT>& output, EscapeFlavour flavour) {
    const uint32_t length = source.size();
    uint64_t room = uint64_t(length) + output.size() + 1;
    if (flavour == EscapeFlavour::kJson) room += length >> 3;
    output.reserve_exact(RoomRequest<CharT>(room));

    const CharT* text = source.c_str();
    uint32_t copied = 0;  // elements before this are in `output` already
    for (uint32_t i = 0; i < length; ++i) {
        const char* form = EscapedForm(text[i], flavour);
        if (!form) continue;
        output.append(text + copied, i - copied);
        AppendAscii(output, form);
        copied = i + 1;
    }
    output.append(text + copied, length - copied);
}

template <class CharT>
void AppendRestored(basic_buffer<CharT> source, basic_buffer<CharT>& output,
                    EscapeFlavour flavour) {
    using string_type = text_string_t<CharT>;
    static const CharT kAmpersand[] = {'&', 0};
    static const CharT kSemicolon[] = {';', 0};
    const string_type open(as_view, kAmpersand, 1);
    const string_type close(as_view, kSemicolon, 1);
    switch (flavour) {
        case EscapeFlavour::kHtml: {
            CHtmlRestorer<string_type> cmd;
            ExpandDelimitedTo(source, output, open, close, cmd, true);
            return;
        }
        case EscapeFlavour::kXml: {
            CXmlRestorer<string_type> cmd;
            ExpandDelimitedTo(source, output, open, close, cmd, true);
            return;
        }
        case EscapeFlavour::kJson: {
            CJsonRestorer<string_type> cmd;
            const uint32_t start = output.size();
            output.append(source);
            ExpandEscapesFrom<CharT>(output, start, '\\', cmd, true, false);
            return;
        }
    }
}

#define ORLO_INSTANTIATE_ESCAPES(CharT)                                                            \
    template void ExpandEscapesFrom(basic_buffer<CharT>&, uint32_t, CharT, text_match_cmd<CharT>&, \
                                    bool, bool, bool);                                             \
    template void ExpandDelimitedTo(basic_buffer<CharT>, basic_buffer<CharT>&,                     \
                                    const basic_buffer<CharT>&, const basic_buffer<CharT>&,        \
                                    text_match_cmd<CharT>&, bool);                                 \
    template void ExpandDelimitedInPlace(basic_buffer<CharT>&, const basic_buffer<CharT>&,         \
                                         const basic_buffer<CharT>&, text_match_cmd<CharT>&,       \
                                         bool);                                                    \
    template void AppendEscaped(basic_buffer<CharT>, basic_buffer<CharT>&, EscapeFlavour);         \
    template void AppendRestored(basic_buffer<CharT>, basic_buffer<CharT>&, EscapeFlavour);

ORLO_INSTANTIATE_ESCAPES(char)
ORLO_INSTANTIATE_ESCAPES(wchar_t)

#undef ORLO_INSTANTIATE_ESCAPES

}  // namespace Orlo::IMPL

namespace Orlo {

int CQueryStrEscapeCmd::Match(const stringEx& view, stringEx& out) {
    const char byte = char(view.ToUInt(0, 2, 16) & 0xFFu);
    out.assign(&byte, 1);
    return 1;
}

}  // namespace Orlo

// ExpMessage: the one builder of exception texts.
//
// A message has a head line "Class::Method - what failed", then detail lines
// "  label = value", then, when it wraps a caught exception, a last line
// "@ " and the inner text. The builder keeps one invariant: every line but
// the first is preceded by a single line feed, so a message never ends in a
// line feed and a head line alone is the whole text.
//
// Labels are passed whole, with their two leading blanks, their padding and
// their "= ": the padding that lines up the "=" signs differs from message to
// message, and a reviewer checks a message by reading the literals at the
// call site. The builder never pads, trims or inserts anything between a
// label and its value.
//
//   throw dirExp(ExpMessage("CDir::GetAttributes - failed getting path attributes")
//                    .Detail("  file path  = ", path)
//                    .SysError("  error code = ", "  error desc = ", err, kStatErrors),
//                DirCode::GetAttributes);
//
// Nothing here throws but std::bad_alloc.

#ifndef ORLO_EXP_MESSAGE_H
#define ORLO_EXP_MESSAGE_H

#include <cstdint>
#include <span>

#include "orlo/exceptions.h"
#include "orlo/stringEx.h"

namespace Orlo {

// One documented error number of a system call and the sentence that
// describes it in a message. A call site keeps a small constant table:
//   constexpr SysErrorText kCloseErrors[] = {{EBADF, "invalid descriptor"}};
struct SysErrorText {
    int error;
    const char* text;
};

class ExpMessage {
  public:
    // Starts the message with its head line, given without a line feed.
    explicit ExpMessage(const char* head);

    // A line of its own, e.g. "  encoding doesn't exist".
    ExpMessage& Line(const char* text);

    // "label" + a name or text as it stands. A null pointer reads as "".
    ExpMessage& Detail(const char* label, const char* value);
    ExpMessage& Detail(const char* label, const stringEx& value);
    // A literal 0 would otherwise be taken for a null text.
    ExpMessage& Detail(const char* label, int value) = delete;

    // "label" + a signed or unsigned integer in decimal.
    ExpMessage& Int(const char* label, int32_t value);
    ExpMessage& UInt(const char* label, uint32_t value);
    // "label" + a 64-bit integer (sizes, positions, offsets) in decimal.
    ExpMessage& Int64(const char* label, int64_t value);
    // "label" + flags or a size in the printf form "%#x": "0x1a", and "0"
    // for zero. Values above 32 bits print all their digits.
    ExpMessage& Hex(const char* label, uint64_t value);
    // "label" + an access mode in the printf form "%#o": "0644".
    ExpMessage& Octal(const char* label, uint32_t value);
    // "label" + an address in the printf form "%p".
    ExpMessage& Pointer(const char* label, const void* value);
    // "label" + "true" or "false".
    ExpMessage& Bool(const char* label, bool value);

    // The two system-error lines: codeLabel + `error` in decimal, then
    // descLabel + the sentence that `known` gives for `error`, or, for a
    // number it doesn't list, "unexpect system error: " + strerror(error).
    // `known` may be empty.
    ExpMessage& SysError(const char* codeLabel, const char* descLabel, int error,
                         std::span<const SysErrorText> known = {});
    // As SysError, for the families whose unlisted numbers read
    // "unknown system error", without the system's text.
    ExpMessage& SysErrorOrUnknown(const char* codeLabel, const char* descLabel, int error,
                                  std::span<const SysErrorText> known = {});

    // The context line: "@ " + the whole text of a caught exception, which
    // may itself end in further "@ " lines. Call it last.
    ExpMessage& Wraps(const byExp& inner) { return Wraps(inner.message); }
    ExpMessage& Wraps(const stringEx& innerMessage);

    // Continues the current line, for the odd message whose value is not on
    // a detail line ("CSysFile::Open - unknown console type: 7").
    ExpMessage& Append(const stringEx& text);
    ExpMessage& AppendInt(int32_t value);

    // The text built so far; an exception constructor shares it.
    const stringEx& Text() const noexcept { return m_text; }
    operator const stringEx&() const noexcept { return m_text; }  // NOLINT

  private:
    // Starts a new line: a line feed, then `label`.
    void NewLine(const char* label);
    ExpMessage& ErrorLines(const char* codeLabel, const char* descLabel, int error,
                           std::span<const SysErrorText> known, bool withSystemText);

    stringEx m_text;
};

}  // namespace Orlo

#endif  // ORLO_EXP_MESSAGE_H

// The exception text builder. Each method writes one line: a line feed, the
// caller's label literal unchanged, the value in its fixed rendering. The head
// line is written by the constructor without a line feed, which gives the
// invariant that a message never ends in one.

#include "orlo/exp_message.h"

#include <cinttypes>
#include <cstring>

namespace Orlo {

namespace {

// The sentence a call site documents for `error`, or null.
const char* KnownErrorText(int error, std::span<const SysErrorText> known) {
    for (const SysErrorText& entry : known) {
        if (entry.error == error) return entry.text;
    }
    return nullptr;
}

}  // namespace

ExpMessage::ExpMessage(const char* head) : m_text(head) {}

void ExpMessage::NewLine(const char* label) {
    m_text.push_back('\n');
    if (label) m_text.append(label);
}

ExpMessage& ExpMessage::Line(const char* text) {
    NewLine(text);
    return *this;
}

ExpMessage& ExpMessage::Detail(const char* label, const char* value) {
    NewLine(label);
    if (value) m_text.append(value);
    return *this;
}

ExpMessage& ExpMessage::Detail(const char* label, const stringEx& value) {
    NewLine(label);
    m_text.append(value);
    return *this;
}

ExpMessage& ExpMessage::Int(const char* label, int32_t value) {
    NewLine(label);
    m_text.AppendInt(value, 10);
    return *this;
}

ExpMessage& ExpMessage::UInt(const char* label, uint32_t value) {
    NewLine(label);
    m_text.AppendUInt(value, 10);
    return *this;
}

ExpMessage& ExpMessage::Int64(const char* label, int64_t value) {
    NewLine(label);
    m_text.AppendFormat("%" PRId64, value);
    return *this;
}

ExpMessage& ExpMessage::Hex(const char* label, uint64_t value) {
    NewLine(label);
    m_text.AppendFormat("%#" PRIx64, value);
    return *this;
}

ExpMessage& ExpMessage::Octal(const char* label, uint32_t value) {
    NewLine(label);
    m_text.AppendFormat("%#o", unsigned(value));
    return *this;
}

ExpMessage& ExpMessage::Pointer(const char* label, const void* value) {
    NewLine(label);
    m_text.AppendFormat("%p", value);
    return *this;
}

ExpMessage& ExpMessage::Bool(const char* label, bool value) {
    NewLine(label);
    m_text.append(value ? "true" : "false");
    return *this;
}

ExpMessage& ExpMessage::SysError(const char* codeLabel, const char* descLabel, int error,
                                 std::span<const SysErrorText> known) {
    return ErrorLines(codeLabel, descLabel, error, known, true);
}

ExpMessage& ExpMessage::SysErrorOrUnknown(const char* codeLabel, const char* descLabel, int error,
                                          std::span<const SysErrorText> known) {
    return ErrorLines(codeLabel, descLabel, error, known, false);
}

ExpMessage& ExpMessage::ErrorLines(const char* codeLabel, const char* descLabel, int error,
                                   std::span<const SysErrorText> known, bool withSystemText) {
    Int(codeLabel, error);
    NewLine(descLabel);
    if (const char* text = KnownErrorText(error, known)) {
        m_text.append(text);
    } else if (withSystemText) {
        m_text.append("unexpect system error: ");
        m_text.append(strerror(error));
    } else {
        m_text.append("unknown system error");
    }
    return *this;
}

ExpMessage& ExpMessage::Wraps(const stringEx& innerMessage) {
    NewLine("@ ");
    m_text.append(innerMessage);
    return *this;
}

ExpMessage& ExpMessage::Append(const stringEx& text) {
    m_text.append(text);
    return *this;
}

ExpMessage& ExpMessage::AppendInt(int32_t value) {
    m_text.AppendInt(value, 10);
    return *this;
}

}  // namespace Orlo

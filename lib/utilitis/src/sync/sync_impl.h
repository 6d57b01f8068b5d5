// Helpers shared by the synchronisation sources: object names, deadlines and
// the error tables whose sentence doesn't depend on the error number.
// Implementation details only; nothing here is part of the library's surface.

#ifndef ORLO_SRC_SYNC_SYNC_IMPL_H
#define ORLO_SRC_SYNC_SYNC_IMPL_H

#include <array>
#include <cstdint>
#include <ctime>

#include "orlo/exp_message.h"
#include "orlo/stringEx.h"

namespace Orlo::IMPL {

// The time-out that means "wait for ever"; 0 means "only try".
inline constexpr uint32_t kWaitForever = 0xFFFFFFFFu;

// `name` with a leading "/", put in front when it is missing (also of an
// empty name). The result owns its text, so it may be kept.
stringEx SlashName(const stringEx& name);

// `name` in the narrow encoding of the present locale; a character that has
// no narrow form becomes "?".
stringEx NarrowName(const wstringEx& name);

// The absolute time `milliseconds` from now on the system clock, for the
// timed waits. Throws timeExp (TimeCode::OutOfRange) when its seconds leave
// the range of a signed 32-bit time_t.
timespec DeadlineAfter(uint32_t milliseconds);

// A one-entry table that gives `text` for `error`, for call sites whose
// documented answer is the same sentence whatever the number.
inline std::array<SysErrorText, 1> AnyError(int error, const char* text) {
    return {SysErrorText{error, text}};
}

}  // namespace Orlo::IMPL

#endif  // ORLO_SRC_SYNC_SYNC_IMPL_H

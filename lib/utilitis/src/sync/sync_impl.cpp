// Names and deadlines of the synchronisation objects.
//
// A named object's name is handed to the system with a leading "/". A wide
// name is narrowed one character at a time in the present locale.
//
// A millisecond time-out becomes an absolute deadline on the system clock,
// the clock that the timed system waits measure. Its seconds must fit a
// signed 32-bit time_t, whatever the width of the platform's own; beyond
// that (past 2038) the wait refuses rather than guess.

#include "sync_impl.h"

#include <cerrno>
#include <climits>
#include <cwchar>

#include "orlo/exceptions.h"
#include "orlo/time.h"

namespace Orlo::IMPL {

stringEx SlashName(const stringEx& name) {
    if (!name.empty() && name[0] == '/') {
        stringEx owned(name);
        owned.unview();
        return owned;
    }
    stringEx slashed("/");
    slashed.append(name);
    return slashed;
}

stringEx NarrowName(const wstringEx& name) {
    stringEx narrow;
    std::mbstate_t state{};
    char bytes[MB_LEN_MAX];
    for (wchar_t ch : name.view()) {
        const size_t count = std::wcrtomb(bytes, ch, &state);
        if (count == static_cast<size_t>(-1)) {
            narrow.push_back('?');
            state = std::mbstate_t{};
            continue;
        }
        narrow.append(bytes, static_cast<uint32_t>(count));
    }
    return narrow;
}

timespec DeadlineAfter(uint32_t milliseconds) {
    const int64_t at = CTime::now().us + static_cast<int64_t>(milliseconds) * 1000;
    int64_t seconds = at / kUsPerSecond;
    int64_t micros = at % kUsPerSecond;
    if (micros < 0) {
        --seconds;
        micros += kUsPerSecond;
    }
    if (seconds < INT32_MIN || seconds > INT32_MAX) {
        throw timeExp(ExpMessage("CTime::GetTime_T - out of range when converting to time_t")
                          .Int64("  seconds offset = ", seconds),
                      TimeCode::OutOfRange);
    }
    timespec deadline{};
    deadline.tv_sec = static_cast<time_t>(seconds);
    deadline.tv_nsec = static_cast<long>(micros * 1000);
    return deadline;
}

}  // namespace Orlo::IMPL

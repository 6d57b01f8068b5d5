// The system clock: reading it (now), setting it (SetSysTime) and the
// conversions between the microsecond count and the system's time_t.
//
// time_t seconds are the microseconds divided with a floor, so that the
// second of a value before the epoch is the one it lies in, as the calendar
// form has it. Whether the seconds fit is asked of time_t's own limits: on a
// system with a 64-bit time_t every value fits.

#include <sys/time.h>

#include <cerrno>

#include "orlo/exceptions.h"
#include "orlo/exp_message.h"
#include "orlo/time.h"

namespace Orlo {

namespace {

// Whole seconds of `microseconds`, rounded toward the past.
int64_t FloorSeconds(int64_t microseconds) noexcept {
    const int64_t seconds = microseconds / kUsPerSecond;
    return microseconds % kUsPerSecond < 0 ? seconds - 1 : seconds;
}

// What remains of `microseconds` past FloorSeconds: 0 to 999999.
int64_t MicrosecondsPastSecond(int64_t microseconds) noexcept {
    const int64_t rest = microseconds % kUsPerSecond;
    return rest < 0 ? rest + kUsPerSecond : rest;
}

constexpr SysErrorText kSetTimeErrors[] = {
    {EPERM, "insufficient privilege to set the system time"},
    {EINVAL, "the time is out of the range the system accepts"},
};

}  // namespace

CTime CTime::now() noexcept {
    timeval clock{};
    if (gettimeofday(&clock, nullptr) != 0) return CTime(kNullValue);
    return CTime(static_cast<int64_t>(clock.tv_sec) * kUsPerSecond + clock.tv_usec);
}

time_t CTime::GetTime_T() const {
    if (!IMPL::FitsSeconds<time_t>(us)) {
        throw timeExp(ExpMessage("CTime::GetTime_T - out of range when converting to time_t")
                          .Int64("  seconds offset = ", FloorSeconds(us)),
                      TimeCode::OutOfRange);
    }
    return static_cast<time_t>(FloorSeconds(us));
}

CTime& CTime::SetTime_T(time_t seconds) noexcept {
    us = static_cast<int64_t>(seconds) * kUsPerSecond;
    return *this;
}

void CTime::SetSysTime() const {
    if (!IMPL::FitsSeconds<time_t>(us)) {
        throw timeExp(ExpMessage("SetSysTime - overflow when converting to time_t")
                          .Line("             may be out of range")
                          .Int64("  microseconds since unix epoch = ", us),
                      TimeCode::OutOfRange);
    }
    timeval clock{};
    clock.tv_sec = static_cast<time_t>(FloorSeconds(us));
    clock.tv_usec = static_cast<suseconds_t>(MicrosecondsPastSecond(us));
    if (settimeofday(&clock, nullptr) == 0) return;
    const int error = errno;
    throw timeExp(ExpMessage("SetSysTime - system error, failed set system time")
                      .SysError("  system error                  = ",
                                "  system error description      = ", error, kSetTimeErrors),
                  TimeCode::SetSystemTime);
}

}  // namespace Orlo

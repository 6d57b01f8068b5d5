// Process-level error handling; see orlo/errhnd.h.
//
// This first cut ends the process on the unexpected path; the handlers and
// their records come with the log front.

#include "orlo/errhnd.h"

#include <unistd.h>

namespace Orlo {

void ExitProcess(bool /*flushLog*/) {
    _exit(-1);
}

namespace IMPL {

void InstallProcessHandlers() {}

void OnUnexpectedException() {
    ExitProcess(true);
}

}  // namespace IMPL
}  // namespace Orlo

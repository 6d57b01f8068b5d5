// The contended paths of the fast locks, and the processor flag that decides
// whether the spin lock spins. The uncontended paths are inline in
// orlo/fast_lock.h; everything here runs only when threads meet.
//
// The wait semaphore is made by whichever thread needs it first: a waiter
// about to sleep, or an unlocker about to wake a waiter that has counted
// itself in but not yet installed it. Both go through InstalledSemaphore, so
// the post and the wait always reach the one semaphore that won the
// compare-and-exchange.

#include "orlo/fast_lock.h"

#include <unistd.h>

#include "orlo/errhnd.h"
#include "orlo/exceptions.h"
#include "orlo/semaphore.h"

namespace Orlo {

namespace IMPL {

namespace {

bool HasSeveralProcessors() noexcept {
    return sysconf(_SC_NPROCESSORS_ONLN) > 1;
}

}  // namespace

bool multiProcessor = HasSeveralProcessors();

}  // namespace IMPL

FASTPDU_PCLOCK::~FASTPDU_PCLOCK() noexcept(false) {
    CSem* sem = m_waitSem.load(std::memory_order_acquire);
    if (!sem) return;
    // The storage goes back even if the destructor throws.
    ThrowUnlessUnwinding([&] { GuardDeclared<semExp>([&] { delete sem; }); });
}

CSem& FASTPDU_PCLOCK::InstalledSemaphore() {
    CSem* installed = m_waitSem.load(std::memory_order_acquire);
    if (installed) return *installed;
    CSem* mine = new CSem(0, 0);
    if (m_waitSem.compare_exchange_strong(installed, mine, std::memory_order_acq_rel,
                                          std::memory_order_acquire)) {
        return *mine;
    }
    // Another thread installed its own first; that one serves everybody.
    delete mine;
    return *installed;
}

void FASTPDU_PCLOCK::WaitForTurn() {
    GuardDeclared<semExp>([&] { InstalledSemaphore().P(); });
}

void FASTPDU_PCLOCK::WakeOneWaiter() {
    GuardDeclared<semExp>([&] { InstalledSemaphore().V(1); });
}

}  // namespace Orlo

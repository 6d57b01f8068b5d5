// The shared handle on a compiled pattern. The last owner frees the record.

#include "orlo/regex.h"

namespace Orlo {

namespace IMPL {
// The compiled form; defined with the engine.
struct compiled_regex {};
}  // namespace IMPL

regex_handle::regex_handle(const regex_handle& other) noexcept
    : m_record(other.m_record), m_refs(other.m_refs) {
    if (m_refs) m_refs->fetch_add(1, std::memory_order_acq_rel);
}

regex_handle& regex_handle::operator=(const regex_handle& other) noexcept {
    if (this == &other) return *this;
    regex_handle copy(other);
    std::swap(m_record, copy.m_record);
    std::swap(m_refs, copy.m_refs);
    return *this;
}

regex_handle::~regex_handle() {
    release();
}

void regex_handle::release() noexcept {
    if (!m_refs) return;
    if (m_refs->fetch_sub(1, std::memory_order_acq_rel) == 1) {
        delete m_record;
        delete m_refs;
    }
    m_record = nullptr;
    m_refs = nullptr;
}

regex_handle compile_pattern_handle(byteEx& /*pattern*/, bool /*ignore_case*/, bool /*newline*/,
                                    uint8_t /*raw_flags*/, bool /*expand*/) {
    return regex_handle();
}

}  // namespace Orlo

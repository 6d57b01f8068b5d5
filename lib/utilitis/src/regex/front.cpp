// The front: shared handles, the class-letter translation, and the
// per-thread cache behind regex_find.

#include <pthread.h>

#include <cstdlib>
#include <mutex>
#include <new>
#include <string>

#include "orlo/regex.h"

namespace Orlo {

// ---- handles ---------------------------------------------------------------------

// A compiled pattern and the flags it was compiled with.
template <class CharT>
struct basic_regex_handle<CharT>::record {
    regex_t re;
    uint32_t flags;
};

template <class CharT>
basic_regex_handle<CharT>::basic_regex_handle(const basic_regex_handle& other) noexcept
    : m_record(other.m_record), m_refs(other.m_refs) {
    if (m_refs) m_refs->fetch_add(1, std::memory_order_relaxed);
}

template <class CharT>
basic_regex_handle<CharT>& basic_regex_handle<CharT>::operator=(
    const basic_regex_handle& other) noexcept {
    if (this == &other) return *this;
    basic_regex_handle copy(other);
    std::swap(m_record, copy.m_record);
    std::swap(m_refs, copy.m_refs);
    return *this;
}

template <class CharT>
basic_regex_handle<CharT>::~basic_regex_handle() {
    release();
}

template <class CharT>
void basic_regex_handle<CharT>::release() noexcept {
    if (!m_refs) return;
    if (m_refs->fetch_sub(1, std::memory_order_acq_rel) == 1) {
        engine_free(&m_record->re);
        delete m_record;
        delete m_refs;
    }
    m_record = nullptr;
    m_refs = nullptr;
}

template <class CharT>
regex_t* basic_regex_handle<CharT>::get() const noexcept {
    return m_record ? &m_record->re : nullptr;
}

template <class CharT>
uint32_t basic_regex_handle<CharT>::flags() const noexcept {
    return m_record ? m_record->flags : 0;
}

template <class CharT>
basic_regex_handle<CharT> basic_regex_handle<CharT>::adopt(regex_t* re, uint32_t flags) {
    basic_regex_handle h;
    auto* rec = new record{*re, flags};
    try {
        h.m_refs = new std::atomic<uint32_t>(1);
    } catch (...) {
        engine_free(&rec->re);
        delete rec;
        throw;
    }
    h.m_record = rec;
    return h;
}

template class basic_regex_handle<char>;
template class basic_regex_handle<wchar_t>;

// ---- the class-letter table -----------------------------------------------------------

namespace {

// Written narrow once; the wide table is widened from it on first use.
constexpr escape_entry<char> kPerlClasses[] = {
    {"a", "[[:alpha:]]"},
    {"l", "[[:lower:]]"},
    {"u", "[[:upper:]]"},
    {"s", "[[:space:]]"},
    {"d", "[[:digit:]]"},
    {"x", "[[:xdigit:]]"},
    {"p", "[[:print:]]"},
    {"o", "[0-7]"},
    {"O", "[^0-7]"},
    {"w", "[[:alnum:]_]"},
    {"W", "[^[:alnum:]_]"},
    {"A", "[^[:alpha:]]"},
    {"L", "[^[:lower:]]"},
    {"U", "[^[:upper:]]"},
    {"S", "[^[:space:]]"},
    {"D", "[^[:digit:]]"},
    {"X", "[^[:xdigit:]]"},
    {"P", "[^[:print:]]"},
    {"<", "[^[:alpha:]_]"},
    {">", "[^[:alnum:]_]"},
    {"r", "\r"},
    {"n", "\n"},
    {"b", "\b"},
    {"t", "\t"},
    {"v", "\v"},
    {"\"", "\""},
    {"'", "'"},
    {"", ""},
};
constexpr size_t kPerlRows = std::size(kPerlClasses);

struct wide_perl_table {
    std::wstring texts[kPerlRows][2];
    escape_entry<wchar_t> rows[kPerlRows];
    wide_perl_table() {
        for (size_t i = 0; i < kPerlRows; ++i) {
            for (const char* c = kPerlClasses[i].written; *c; ++c)
                texts[i][0].push_back(wchar_t(static_cast<unsigned char>(*c)));
            for (const char* c = kPerlClasses[i].meant; *c; ++c)
                texts[i][1].push_back(wchar_t(static_cast<unsigned char>(*c)));
            rows[i] = {texts[i][0].c_str(), texts[i][1].c_str()};
        }
    }
};

}  // namespace

template <>
const escape_entry<char>* perl_class_table<char>() {
    return kPerlClasses;
}

template <>
const escape_entry<wchar_t>* perl_class_table<wchar_t>() {
    static const wide_perl_table table;
    return table.rows;
}

// ---- the option probe ------------------------------------------------------------------

template <class CharT>
bool probe_newline_option(const basic_buffer<CharT>& pattern) {
    static constexpr char kHead[] = "***:(?";
    const uint32_t head = sizeof kHead - 1;
    if (pattern.size() < head) return false;
    const CharT* p = pattern.c_str();
    for (uint32_t i = 0; i < head; ++i)
        if (p[i] != CharT(kHead[i])) return false;
    static constexpr char kFirst[] = "beqcinmpwsxt";
    const uint32_t close = pattern.find(CharT(')'), head);
    const uint32_t end = close == npos ? pattern.size() : close;
    if (end == head) return false;
    bool first = false;
    for (const char* c = kFirst; *c; ++c)
        if (p[head] == CharT(*c)) first = true;
    if (!first) return false;
    for (uint32_t i = head; i < end; ++i)
        if (p[i] == CharT('n') || p[i] == CharT('m') || p[i] == CharT('w')) return true;
    return false;
}

template bool probe_newline_option(const basic_buffer<char>&);
template bool probe_newline_option(const basic_buffer<wchar_t>&);

// ---- compiling -------------------------------------------------------------------------

namespace {

template <class CharT>
bool starts_with_directors(const basic_buffer<CharT>& pattern) {
    const CharT* p = pattern.c_str();
    return pattern.size() >= 3 && p[0] == CharT('*') && p[1] == CharT('*') && p[2] == CharT('*');
}

uint32_t front_flags(bool ignore_case, bool newline, uint8_t raw_flags) {
    return uint32_t(raw_flags) | (ignore_case ? REG_ICASE : 0) | (newline ? REG_NEWLINE : 0);
}

template <class CharT>
basic_regex_handle<CharT> compile(basic_buffer<CharT>& pattern, bool ignore_case, bool newline,
                                  uint8_t raw_flags, bool expand) {
    if (pattern.empty()) return {};
    if (expand && starts_with_directors(pattern)) {
        expand = false;
        newline = probe_newline_option(pattern);
    }
    if (expand) expand_escapes(pattern, CharT('\\'), perl_class_table<CharT>(), false, true);
    const uint32_t flags = front_flags(ignore_case, newline, raw_flags);
    regex_t re{};
    if (engine_compile(&re, pattern.c_str(), pattern.size(), int(flags)) != REG_OKAY) return {};
    return basic_regex_handle<CharT>::adopt(&re, flags);
}

}  // namespace

regex_handle compile_pattern_handle(basic_buffer<char>& pattern, bool ignore_case, bool newline,
                                    uint8_t raw_flags, bool expand) {
    return compile(pattern, ignore_case, newline, raw_flags, expand);
}

wregex_handle compile_pattern_handle(basic_buffer<wchar_t>& pattern, bool ignore_case, bool newline,
                                     uint8_t raw_flags, bool expand) {
    return compile(pattern, ignore_case, newline, raw_flags, expand);
}

// ---- regex_find and its cache ----------------------------------------------------------

namespace {

// The last pattern a thread searched with, compiled.
template <class CharT>
struct tls_regex_cache {
    basic_buffer<CharT> pattern;  // as given; empty: nothing compiled
    uint32_t flags = 0;
    regex_t re{};
    uint8_t expand = 0;
};

template <class CharT>
void free_cache(void* p) {
    auto* cache = static_cast<tls_regex_cache<CharT>*>(p);
    if (!cache->pattern.empty()) engine_free(&cache->re);
    delete cache;
}

// One key per character width, made on first use and kept for the life of
// the process; the key's destructor frees a thread's record when it ends.
template <class CharT>
pthread_key_t cache_key() {
    static std::recursive_mutex lock;
    static pthread_key_t key;
    static bool made = false;
    std::lock_guard<std::recursive_mutex> guard(lock);
    if (!made) {
        if (pthread_key_create(&key, &free_cache<CharT>) != 0) throw std::bad_alloc();
        made = true;
    }
    return key;
}

// The key is looked up under the lock once per thread; afterwards a
// thread-local copy answers.
template <class CharT>
pthread_key_t thread_cache_key() {
    thread_local pthread_key_t key = cache_key<CharT>();
    return key;
}

template <class CharT>
void drop_cache(pthread_key_t key) {
    if (void* p = pthread_getspecific(key)) {
        free_cache<CharT>(p);
        pthread_setspecific(key, nullptr);
    }
}

template <class CharT>
tls_regex_cache<CharT>* thread_cache(pthread_key_t key) {
    auto* cache = static_cast<tls_regex_cache<CharT>*>(pthread_getspecific(key));
    if (cache) return cache;
    cache = new tls_regex_cache<CharT>();
    if (pthread_setspecific(key, cache) != 0) {
        delete cache;
        throw std::bad_alloc();
    }
    return cache;
}

// Brings the thread's cache to `pattern` under `flags`; false when the
// pattern does not compile (the cache is then empty).
template <class CharT>
bool prepare(tls_regex_cache<CharT>* cache, basic_buffer<CharT>& pattern, uint32_t flags,
             bool expand) {
    if (!cache->pattern.empty() && cache->flags == flags && cache->expand == uint8_t(expand) &&
        cache->pattern == pattern)
        return true;
    if (!cache->pattern.empty()) engine_free(&cache->re);
    cache->pattern.clear();
    // The caller's text gets a block of its own, which the cache shares
    // until the translation below changes the caller's copy.
    if (pattern.is_view()) pattern = basic_buffer<CharT>(pattern.c_str(), pattern.size());
    basic_buffer<CharT> given = pattern;
    if (expand) expand_escapes(pattern, CharT('\\'), perl_class_table<CharT>(), false, true);
    if (engine_compile(&cache->re, pattern.c_str(), pattern.size(), int(flags)) != REG_OKAY)
        return false;
    cache->pattern = given;
    cache->flags = flags;
    cache->expand = uint8_t(expand);
    return true;
}

template <class CharT>
bool find(const basic_buffer<CharT>& subject, regex_results& results, basic_buffer<CharT>& pattern,
          uint32_t ordinal, uint32_t start, bool ignore_case, bool newline, uint8_t raw_flags,
          uint8_t not_bol, bool not_eol, bool expand, bool start_not_bol) {
    results.clear();
    const pthread_key_t key = thread_cache_key<CharT>();
    if (pattern.empty()) {
        drop_cache<CharT>(key);
        return false;
    }
    const uint32_t size = subject.size();
    if (start >= size) return false;
    tls_regex_cache<CharT>* cache = thread_cache<CharT>(key);

    const uint32_t flags = front_flags(ignore_case, newline, raw_flags);
    const bool directed = starts_with_directors(pattern);
    if (expand && directed) expand = false;
    if (!prepare(cache, pattern, flags, expand)) return false;

    const int base = int(not_bol) | REG_STARTEND | (not_eol ? REG_NOTEOL : 0);
    const CharT* text = subject.c_str();
    regmatch_t m[kRegexPairs];
    uint32_t pos = start;
    uint32_t lastEnd = 0;
    bool lastEmpty = false;
    int sensitivity = -1;  // newline sensitivity, found out when first needed
    for (uint32_t count = 0, pass = 0;; ++pass) {
        pos += lastEnd;
        if (lastEmpty && ++pos >= size) return false;
        int eflags = base;
        if (pos != 0 && (pass > 0 || start_not_bol)) {
            if (sensitivity < 0) sensitivity = directed ? probe_newline_option(pattern) : newline;
            if (sensitivity && text[pos - 1] == CharT('\n'))
                eflags &= ~REG_NOTBOL;
            else
                eflags |= REG_NOTBOL;
        }
        if (engine_exec(&cache->re, text + pos, size - pos, nullptr, kRegexPairs, m, eflags) != 0)
            return false;
        lastEmpty = m[0].rm_eo == 0;
        lastEnd = uint32_t(m[0].rm_eo);
        if (++count <= ordinal) continue;
        append_match_pairs(results, m, cache->re.re_nsub, pos);
        return true;
    }
}

}  // namespace

void append_match_pairs(regex_results& results, const regmatch_t* m, size_t nsub, uint32_t base) {
    results.reserve(results.size() + nsub + 1);
    for (size_t i = 0; i <= nsub; ++i) {
        if (i < kRegexPairs)
            results.emplace_back(base + uint32_t(m[i].rm_so), uint32_t(m[i].rm_eo - m[i].rm_so));
        else
            results.emplace_back(base - 1, 0);
    }
}

bool regex_find(const basic_buffer<char>& subject, regex_results& results,
                basic_buffer<char>& pattern, uint32_t ordinal, uint32_t start, bool ignore_case,
                bool newline, uint8_t raw_flags, uint8_t not_bol, bool not_eol, bool expand,
                bool start_not_bol) {
    return find<char>(subject, results, pattern, ordinal, start, ignore_case, newline, raw_flags,
                      not_bol, not_eol, expand, start_not_bol);
}

bool regex_find(const basic_buffer<wchar_t>& subject, regex_results& results,
                basic_buffer<wchar_t>& pattern, uint32_t ordinal, uint32_t start, bool ignore_case,
                bool newline, uint8_t raw_flags, uint8_t not_bol, bool not_eol, bool expand,
                bool start_not_bol) {
    return find<wchar_t>(subject, results, pattern, ordinal, start, ignore_case, newline, raw_flags,
                         not_bol, not_eol, expand, start_not_bol);
}

}  // namespace Orlo

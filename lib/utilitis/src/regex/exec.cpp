// engine_exec: the match driver.
//
// Finding a match takes two automata. The search automaton (the whole
// pattern behind a loop on every character) tells, walking from the text
// start, where the earliest match ends and from which point on a match may
// have begun; the root's automaton then tries each possible beginning in
// that window, leftmost first, for the end the pattern prefers. Only when the
// caller wants groups is the tree walked to place them.
//
// Without back references the automata are exact, so the walk (`dissect`)
// only splits spans that are known to match: each concatenation finds its
// midpoint with the two halves' automata, each alternation takes the first
// alternative that spans the whole. With back references an automaton only
// approximates (a reference is read as "some copy of the group's language"),
// so every candidate match is verified by `cdissect`, which may fail and
// retry: each tree node keeps, in a cell of the retry memory, how far it has
// got, so that asking it again yields its next way to match.

#include <cstdlib>

#include "regex/alloc.h"
#include "regex/dfa.h"
#include "regex/guts.h"

namespace Orlo {

namespace IMPL::re {
namespace {

// Retry cells of an alternation.
constexpr uint32_t UNTRIED = 0;
constexpr uint32_t TRYING = 1;
constexpr uint32_t TRIED = 2;

constexpr size_t LOCALMAT = 20;  // groups + 1 handled without malloc
constexpr size_t LOCALMEM = 40;  // tree nodes handled without malloc

template <class CharT>
long offset(const match_vars<CharT>* v, const CharT* p) {
    return long(p - v->start);
}

template <class CharT>
void clear_groups(match_vars<CharT>* v, size_t from) {
    for (size_t i = from; i < v->nmatch; ++i)
        v->pmatch[i] = regmatch_t{-1, -1};
}

template <class CharT>
void set_group(match_vars<CharT>* v, int subno, const CharT* begin, const CharT* end) {
    if (subno >= 0 && size_t(subno) < v->nmatch)
        v->pmatch[subno] = regmatch_t{offset(v, begin), offset(v, end)};
}

// With REG_EXPECT: the text from `cold` (no match can have begun before it)
// to the end is what the engine would need to see again.
template <class CharT>
void report_extent(match_vars<CharT>* v, const CharT* cold) {
    if (!(v->g->cflags & REG_EXPECT)) return;
    v->details->rm_extend.rm_so = offset(v, cold ? cold : v->stop);
    v->details->rm_extend.rm_eo = offset(v, v->stop);
}

// The end of the match beginning at `begin` that `t`'s automaton prefers.
template <class CharT>
const CharT* preferred_end(match_vars<CharT>* v, dfa<CharT>* d, bool shorter, const CharT* begin,
                           const CharT* min, const CharT* max, int* hitend) {
    if (shorter)
        return shortest(v, d, begin, min, max, static_cast<const CharT**>(nullptr), hitend);
    return longest(v, d, begin, max, hitend);
}

// Does the automaton of `t` match exactly from `begin` to `end`?
template <class CharT>
bool spans(match_vars<CharT>* v, dfa<CharT>* d, const CharT* begin, const CharT* end) {
    return longest(v, d, begin, end, static_cast<int*>(nullptr)) == end;
}

// ---- exact dissection ----------------------------------------------------------

template <class CharT>
int dissect(match_vars<CharT>* v, const subre* t, const CharT* begin, const CharT* end);

// The midpoint of a concatenation: the left half's preferred end from which
// the right half reaches `end`.
template <class CharT>
int split_concatenation(match_vars<CharT>* v, const subre* t, const CharT* begin, const CharT* end,
                        const CharT** midp) {
    // A half whose matches all have one length leaves one place for the
    // split, and the span is known to split somewhere: no walk is needed.
    // (Patterns with groups are mostly such halves: literal text between
    // the groups, and the empty ends.)
    const int leftlen = t->left->cnfa.fixedlen;
    const int rightlen = t->right->cnfa.fixedlen;
    if (leftlen >= 0 || rightlen >= 0) {
        const CharT* mid = leftlen >= 0 ? begin + leftlen : end - rightlen;
        if (mid < begin || mid > end) return REG_ASSERT;
        *midp = mid;
        return REG_OKAY;
    }
    dfa<CharT>* d = getdfa(v, &t->left->cnfa);
    if (!d) return v->err;
    dfa<CharT>* d2 = getdfa(v, &t->right->cnfa);
    if (!d2) {
        putdfa(d);
        return v->err;
    }
    const bool shorter = (t->left->flags & SHORTER) != 0;
    const CharT* stop = shorter ? end : begin;
    const CharT* mid = preferred_end(v, d, shorter, begin, begin, end, nullptr);
    while (mid && !has_error(v) && !spans(v, d2, mid, end)) {
        if (mid == stop) {
            mid = nullptr;
            break;
        }
        mid = shorter ? preferred_end(v, d, true, begin, mid + 1, end, nullptr)
                      : longest(v, d, begin, mid - 1, static_cast<int*>(nullptr));
    }
    putdfa(d);
    putdfa(d2);
    if (has_error(v)) return v->err;
    if (!mid) return REG_ASSERT;
    *midp = mid;
    return REG_OKAY;
}

template <class CharT>
int dissect_alternation(match_vars<CharT>* v, const subre* t, const CharT* begin, const CharT* end,
                        const subre** chosen) {
    for (; t; t = t->right) {
        dfa<CharT>* d = getdfa(v, &t->left->cnfa);
        if (!d) return v->err;
        bool whole = spans(v, d, begin, end);
        putdfa(d);
        if (has_error(v)) return v->err;
        if (whole) {
            *chosen = t->left;
            return REG_OKAY;
        }
    }
    return REG_ASSERT;
}

// Places the groups of `t` within a span it is known to match. Tail
// positions (the right of a concatenation, the inside of a group, the
// chosen alternative) are iterated, so long chains cost no stack.
template <class CharT>
int dissect(match_vars<CharT>* v, const subre* t, const CharT* begin, const CharT* end) {
    for (;;) {
        switch (t->op) {
            case '=':
                return REG_OKAY;
            case '|': {
                int er = dissect_alternation(v, t, begin, end, &t);
                if (er != REG_OKAY) return er;
                break;
            }
            case '.': {
                const CharT* mid = nullptr;
                int er = split_concatenation(v, t, begin, end, &mid);
                if (er == REG_OKAY) er = dissect(v, t->left, begin, mid);
                if (er != REG_OKAY) return er;
                t = t->right;
                begin = mid;
                break;
            }
            case '(':
                set_group(v, t->subno, begin, end);
                t = t->left;
                break;
            default:
                return REG_ASSERT;
        }
    }
}

// ---- verifying dissection, with retries ------------------------------------------

// Forgets every retry below `t`, and the groups it holds.
template <class CharT>
void zapmem(match_vars<CharT>* v, const subre* t) {
    v->mem[t->retry] = 0;
    if (t->op == '(' && size_t(t->subno) < v->nmatch) v->pmatch[t->subno] = regmatch_t{-1, -1};
    if (t->left) zapmem(v, t->left);
    if (t->right) zapmem(v, t->right);
}

template <class CharT>
int cdissect(match_vars<CharT>* v, const subre* t, const CharT* begin, const CharT* end);

// A concatenation: the left half's ends from the longest down (or, for a
// shorter-preferring left half, from the shortest up), each with every way
// the halves can match, until both verify.
template <class CharT>
int concatenation(match_vars<CharT>* v, const subre* t, const CharT* begin, const CharT* end) {
    const bool shorter = (t->left->flags & SHORTER) != 0;
    dfa<CharT>* d = getdfa(v, &t->left->cnfa);
    if (!d) return v->err;
    dfa<CharT>* d2 = getdfa(v, &t->right->cnfa);
    if (!d2) {
        putdfa(d);
        return v->err;
    }
    uint32_t& cell = v->mem[t->retry];
    auto next_mid = [&](const CharT* from_min, const CharT* from_max) {
        return shorter ? shortest(v, d, begin, from_min, end, static_cast<const CharT**>(nullptr),
                                  static_cast<int*>(nullptr))
                       : longest(v, d, begin, from_max, static_cast<int*>(nullptr));
    };

    int er = REG_NOMATCH;
    const CharT* mid;
    if (cell == 0) {
        mid = next_mid(begin, end);
        if (mid) cell = uint32_t(mid - begin) + 1;
    } else {
        mid = begin + (cell - 1);
    }
    while (mid && !has_error(v)) {
        er = cdissect(v, t->left, begin, mid);
        if (er == REG_OKAY) {
            er = spans(v, d2, mid, end) ? cdissect(v, t->right, mid, end) : REG_NOMATCH;
            if (er == REG_OKAY) break;
        }
        if (er != REG_NOMATCH) break;
        if (mid == (shorter ? end : begin)) break;
        mid = shorter ? next_mid(mid + 1, end) : next_mid(begin, mid - 1);
        if (!mid) break;
        cell = uint32_t(mid - begin) + 1;
        zapmem(v, t->left);
        zapmem(v, t->right);
    }
    putdfa(d);
    putdfa(d2);
    if (has_error(v)) return v->err;
    return er;
}

// An alternation chain: each alternative that spans the whole, in order,
// with every way it can match.
template <class CharT>
int alternation(match_vars<CharT>* v, const subre* t, const CharT* begin, const CharT* end) {
    for (; t; t = t->right) {
        uint32_t& cell = v->mem[t->retry];
        if (cell == TRIED) continue;
        if (cell == UNTRIED) {
            dfa<CharT>* d = getdfa(v, &t->left->cnfa);
            if (!d) return v->err;
            bool whole = spans(v, d, begin, end);
            putdfa(d);
            if (has_error(v)) return v->err;
            if (!whole) {
                cell = TRIED;
                continue;
            }
            cell = TRYING;
        }
        int er = cdissect(v, t->left, begin, end);
        if (er != REG_NOMATCH) return er;
        cell = TRIED;
    }
    return REG_NOMATCH;
}

// A back reference: the span must be min to max copies of the group's text;
// there is only one way to match it.
template <class CharT>
int backref(match_vars<CharT>* v, const subre* t, const CharT* begin, const CharT* end) {
    const regmatch_t& group = v->pmatch[t->subno];
    if (group.rm_so == -1) return REG_NOMATCH;
    uint32_t& cell = v->mem[t->retry];
    if (cell) return REG_NOMATCH;
    cell = 1;

    const size_t len = size_t(group.rm_eo - group.rm_so);
    if (len == 0) return begin == end ? REG_OKAY : REG_NOMATCH;
    if (size_t(end - begin) < len) return REG_NOMATCH;
    const CharT* paren = v->start + group.rm_so;
    const CharT* last = end - len;
    const bool bounded = t->max != DUPINF;
    int copies = 0;
    const CharT* p = begin;
    for (; p <= last && (!bounded || copies < t->max); p += len) {
        if (v->g->compare(paren, p, len) != 0) break;
        ++copies;
    }
    if (p != end || copies < t->min || (bounded && copies > t->max)) return REG_NOMATCH;
    return REG_OKAY;
}

template <class CharT>
int cdissect(match_vars<CharT>* v, const subre* t, const CharT* begin, const CharT* end) {
    switch (t->op) {
        case '=':
            return REG_OKAY;
        case '|':
            return alternation(v, t, begin, end);
        case 'b':
            return backref(v, t, begin, end);
        case '.':
            return concatenation(v, t, begin, end);
        case '(': {
            int er = cdissect(v, t->left, begin, end);
            if (er == REG_OKAY) set_group(v, t->subno, begin, end);
            return er;
        }
        default:
            return REG_ASSERT;
    }
}

// ---- finding the match ------------------------------------------------------------

// For patterns without back references: the automata are exact.
template <class CharT>
int find(match_vars<CharT>* v, const cnfa* cnfa) {
    dfa<CharT>* s = getdfa(v, &v->g->search);
    if (!s) return v->err;
    const CharT* cold = nullptr;
    const CharT* close = shortest(v, s, v->start, v->start, v->stop, &cold, nullptr);
    putdfa(s);
    if (has_error(v)) return v->err;
    report_extent(v, cold);
    if (!close) return REG_NOMATCH;
    if (v->nmatch == 0) return REG_OKAY;

    const CharT* open = cold;
    cold = nullptr;
    dfa<CharT>* d = getdfa(v, cnfa);
    if (!d) return v->err;
    const bool shorter = (v->g->tree->flags & SHORTER) != 0;
    const CharT* begin;
    const CharT* end = nullptr;
    for (begin = open; begin <= close; ++begin) {
        int hitend = 0;
        end = preferred_end(v, d, shorter, begin, begin, v->stop, &hitend);
        if (has_error(v)) break;
        if (hitend && !cold) cold = begin;
        if (end) break;
    }
    putdfa(d);
    if (has_error(v)) return v->err;
    if (!end) return REG_ASSERT;  // the search automaton promised a match

    v->pmatch[0] = regmatch_t{offset(v, begin), offset(v, end)};
    report_extent(v, cold);
    if (v->nmatch == 1) return REG_OKAY;
    clear_groups(v, 1);
    return dissect(v, v->g->tree, begin, end);
}

// One round of `cfind`: every beginning from `open` to `close`, each with
// every end the root's automaton offers, until one verifies.
template <class CharT>
int try_candidates(match_vars<CharT>* v, dfa<CharT>* d, const CharT* open, const CharT* close,
                   const CharT** coldp) {
    const bool shorter = (v->g->tree->flags & SHORTER) != 0;
    for (const CharT* begin = open; begin <= close; ++begin) {
        const CharT* estart = begin;
        const CharT* estop = v->stop;
        for (;;) {
            int hitend = 0;
            const CharT* end = preferred_end(v, d, shorter, begin, estart, estop, &hitend);
            if (has_error(v)) return v->err;
            if (hitend && !*coldp) *coldp = begin;
            if (!end) break;
            clear_groups(v, 0);
            zapmem(v, v->g->tree);
            int er = cdissect(v, v->g->tree, begin, end);
            if (er == REG_OKAY) {
                if (v->nmatch > 0) v->pmatch[0] = regmatch_t{offset(v, begin), offset(v, end)};
                return REG_OKAY;
            }
            if (er != REG_NOMATCH) {
                set_error(v, er);
                return er;
            }
            if (end == (shorter ? estop : begin)) break;
            if (shorter)
                estart = end + 1;
            else
                estop = end - 1;
        }
    }
    return REG_NOMATCH;
}

// For patterns with back references: every candidate is verified.
template <class CharT>
int cfind(match_vars<CharT>* v, const cnfa* cnfa) {
    dfa<CharT>* s = getdfa(v, &v->g->search);
    if (!s) return v->err;
    dfa<CharT>* d = getdfa(v, cnfa);
    if (!d) {
        putdfa(s);
        return v->err;
    }
    const CharT* cold = nullptr;
    const CharT* close = v->start;
    const CharT* min = v->start;
    int er = REG_NOMATCH;
    do {
        close = shortest(v, s, close, min, v->stop, &cold, nullptr);
        if (has_error(v)) {
            er = v->err;
            break;
        }
        if (!close) break;
        const CharT* open = cold;
        cold = nullptr;
        er = try_candidates(v, d, open, close, &cold);
        if (er != REG_NOMATCH) break;
        // Every beginning up to `close` has failed, so the next match ends
        // after it; asking again for an end at `close` would loop for ever.
        min = close + 1;
    } while (close < v->stop);
    putdfa(d);
    putdfa(s);
    report_extent(v, cold);
    return er;
}

template <class CharT>
int exec(regex_t* re, const CharT* text, size_t length, rm_detail_t* details, size_t nmatch,
         regmatch_t pmatch[], int flags) {
    if (!re || !text || re->re_magic != REMAGIC) return REG_INVARG;
    if (re->re_csize != int32_t(sizeof(CharT))) return REG_MIXED;
    const auto* g = static_cast<const guts<CharT>*>(re->re_guts);
    if (!g || g->magic != GUTSMAGIC) return REG_INVARG;
    if ((g->cflags & REG_EXPECT) && !details) return REG_INVARG;
    if (g->info & REG_UIMPOSSIBLE) return REG_NOMATCH;
    if (g->cflags & REG_NOSUB) nmatch = 0;

    match_vars<CharT> v;
    v.re = re;
    v.g = g;
    v.eflags = flags;
    v.nmatch = nmatch;
    v.pmatch = pmatch;
    v.details = details;
    v.start = text;
    v.stop = text + length;
    v.err = REG_OKAY;
    v.mem = nullptr;

    const bool backrefs = (g->info & REG_UBACKREF) != 0;
    regmatch_t localmat[LOCALMAT];
    uint32_t localmem[LOCALMEM];
    if (backrefs) {
        // The walk needs every group, whatever the caller asked for.
        v.nmatch = g->nsub + 1;
        v.pmatch = v.nmatch <= LOCALMAT
                       ? localmat
                       : static_cast<regmatch_t*>(re_malloc(v.nmatch * sizeof(regmatch_t)));
        v.mem = size_t(g->ntree) <= LOCALMEM
                    ? localmem
                    : static_cast<uint32_t*>(re_malloc(size_t(g->ntree) * sizeof(uint32_t)));
    }
    int st;
    if (backrefs && (!v.pmatch || !v.mem))
        st = REG_ESPACE;
    else
        st = backrefs ? cfind(&v, &g->tree->cnfa) : find(&v, &g->tree->cnfa);

    if (st == REG_OKAY && v.pmatch != pmatch && nmatch > 0) {
        for (size_t i = 0; i < nmatch; ++i)
            pmatch[i] = regmatch_t{-1, -1};
        for (size_t i = 0; i < nmatch && i < v.nmatch; ++i)
            pmatch[i] = v.pmatch[i];
    }
    if (v.pmatch != pmatch && v.pmatch != localmat) std::free(v.pmatch);
    if (v.mem != localmem) std::free(v.mem);
    return st;
}

}  // namespace
}  // namespace IMPL::re

int engine_exec(regex_t* re, const char* text, size_t length, rm_detail_t* details, size_t nmatch,
                regmatch_t pmatch[], int flags) {
    return IMPL::re::exec(re, text, length, details, nmatch, pmatch, flags);
}

int engine_exec(regex_t* re, const wchar_t* text, size_t length, rm_detail_t* details,
                size_t nmatch, regmatch_t pmatch[], int flags) {
    return IMPL::re::exec(re, text, length, details, nmatch, pmatch, flags);
}

}  // namespace Orlo

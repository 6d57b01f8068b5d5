// The lazy DFA: walks, the transition builder and the cache policy.

#include "regex/dfa.h"
#include "regex/alloc.h"

#include <cstdlib>
#include <cstring>

#include <emmintrin.h>

namespace Orlo::IMPL::re {
namespace {

constexpr uint32_t bit(int i) {
    return uint32_t(1) << (i % 32);
}
inline bool isbset(const uint32_t* v, int i) {
    return (v[i / 32] & bit(i)) != 0;
}
inline void bset(uint32_t* v, int i) {
    v[i / 32] |= bit(i);
}

unsigned hash_vector(const uint32_t* v, int words) {
    if (words == 1) return v[0];
    unsigned h = 0;
    for (int i = 0; i < words; ++i)
        h ^= v[i];
    return h;
}

// The later of two positions, null counting as the earliest.
template <class CharT>
const CharT* later(const CharT* a, const CharT* b) {
    if (!a) return b;
    if (!b) return a;
    return a < b ? b : a;
}

// Detaches an evicted set from every transition into and out of it.
template <class CharT>
void detach(dfa<CharT>* d, sset<CharT>* ss) {
    for (arcp<CharT> ap = ss->ins; ap.ss;) {
        sset<CharT>* from = ap.ss;
        color co = ap.co;
        from->outs[co] = nullptr;
        ap = from->inchain[co];
        from->inchain[co] = arcp<CharT>{nullptr, COLORLESS};
    }
    ss->ins = arcp<CharT>{nullptr, COLORLESS};
    for (int co = 0; co < d->ncolors; ++co) {
        sset<CharT>* to = ss->outs[co];
        if (!to) continue;
        // Unlink (ss, co) from to's list of transitions in.
        arcp<CharT>* link = &to->ins;
        while (link->ss && !(link->ss == ss && link->co == co))
            link = &link->ss->inchain[link->co];
        if (link->ss) *link = ss->inchain[co];
        ss->outs[co] = nullptr;
        ss->inchain[co] = arcp<CharT>{nullptr, COLORLESS};
    }
}

// A free set slot: a fresh one while the cache has room, else the first set
// (circularly from the cursor) last seen before the oldest third of the text
// walked, whose match information is kept in lastpost / lastnopr.
template <class CharT>
sset<CharT>* pickss(match_vars<CharT>* v, dfa<CharT>* d, const CharT* cp, const CharT* start) {
    if (d->nssused < d->nssets) {
        int i = d->nssused++;
        sset<CharT>* ss = &d->ssets[i];
        ss->states = &d->statesarea[i * d->wordsper];
        ss->flags = 0;
        ss->ins = arcp<CharT>{nullptr, COLORLESS};
        ss->lastseen = nullptr;
        ss->outs = &d->outsarea[i * d->ncolors];
        ss->inchain = &d->incarea[i * d->ncolors];
        for (int co = 0; co < d->ncolors; ++co) {
            ss->outs[co] = nullptr;
            ss->inchain[co] = arcp<CharT>{nullptr, COLORLESS};
        }
        return ss;
    }

    const long third = d->nssets * 2 / 3;
    const CharT* ancient = (cp - start > third) ? cp - third : start;
    auto expendable = [&](const sset<CharT>* ss) {
        return (!ss->lastseen || ss->lastseen < ancient) && !(ss->flags & LOCKED);
    };
    sset<CharT>* victim = nullptr;
    sset<CharT>* const end = d->ssets + d->nssets;
    for (sset<CharT>* ss = d->search; ss < end && !victim; ++ss)
        if (expendable(ss)) victim = ss;
    for (sset<CharT>* ss = d->ssets; ss < d->search && !victim; ++ss)
        if (expendable(ss)) victim = ss;
    if (victim) {
        d->search = victim + 1;
    } else {
        set_error(v, REG_ASSERT);
        victim = d->ssets;
    }

    detach(d, victim);
    if (victim == d->skipset) d->skipset = nullptr;
    if (victim == d->skiptried) d->skiptried = nullptr;
    if ((victim->flags & POSTSTATE) && victim->lastseen)
        d->lastpost = later(d->lastpost, victim->lastseen);
    if ((victim->flags & NOPROGRESS) && victim->lastseen)
        d->lastnopr = later(d->lastnopr, victim->lastseen);
    victim->flags = 0;
    victim->lastseen = nullptr;
    return victim;
}

// Sets the walk up at `start`: the start set (kept across calls on the same
// dfa), every visit forgotten.
template <class CharT>
sset<CharT>* initialize(match_vars<CharT>* v, dfa<CharT>* d, const CharT* start) {
    sset<CharT>* ss;
    if (d->nssused > 0 && (d->ssets[0].flags & STARTER)) {
        ss = &d->ssets[0];
    } else {
        ss = pickss(v, d, start, start);
        std::memset(ss->states, 0, size_t(d->wordsper) * sizeof(uint32_t));
        bset(ss->states, d->cnfa->pre);
        ss->hash = hash_vector(ss->states, d->wordsper);
        ss->flags = STARTER | LOCKED | NOPROGRESS;
    }
    for (int i = 0; i < d->nssused; ++i)
        d->ssets[i].lastseen = nullptr;
    ss->lastseen = start;
    d->lastpost = nullptr;
    d->lastnopr = nullptr;
    return ss;
}

// Does look-ahead number `index` hold at `cp`? It is matched from `cp` to the
// end of the text by a dfa of its own.
template <class CharT>
bool lacon(match_vars<CharT>* v, const CharT* cp, int index) {
    const subre& la = v->g->lacons[index];
    dfa<CharT>* d = getdfa(v, &la.cnfa);
    if (!d) return false;
    const CharT* end = longest(v, d, cp, v->stop, static_cast<int*>(nullptr));
    putdfa(d);
    if (has_error(v)) return false;
    return la.subno ? end != nullptr : end == nullptr;
}

// What `miss` learns while it adds states to the work vector.
struct step_notes {
    bool gotstate = false;
    bool ispost = false;
    bool noprogress = true;
};

inline void add_state(const cnfa* cnfa, uint32_t* work, int to, step_notes* n) {
    bset(work, to);
    n->gotstate = true;
    if (to == cnfa->post) n->ispost = true;
    if (!cnfa->states[to]->co) n->noprogress = false;
}

// Adds the targets of the look-ahead arcs whose constraint holds at `cp`,
// until a pass adds nothing. True when any such arc was seen.
template <class CharT>
bool follow_lookaheads(match_vars<CharT>* v, dfa<CharT>* d, const CharT* cp, step_notes* n) {
    const re::cnfa* cnfa = d->cnfa;
    bool saw = false;
    for (bool added = true; added && !has_error(v);) {
        added = false;
        for (int i = 0; i < d->nstates; ++i) {
            if (!isbset(d->work, i)) continue;
            for (const carc* ca = cnfa->states[i] + 1; ca->co != COLORLESS; ++ca) {
                if (ca->co <= cnfa->ncolors) continue;
                saw = true;
                if (isbset(d->work, ca->to)) continue;
                if (!lacon(v, cp, ca->co - cnfa->ncolors)) continue;
                add_state(cnfa, d->work, ca->to, n);
                added = true;
            }
        }
    }
    return saw;
}

// The set reached from `css` on colour `co` at `cp`: the cached transition,
// or a new (or existing) set computed from the cnfa. Null when no state
// follows.
template <class CharT>
sset<CharT>* miss(match_vars<CharT>* v, dfa<CharT>* d, sset<CharT>* css, color co, const CharT* cp,
                  const CharT* start) {
    if (css->outs[co]) return css->outs[co];
    const re::cnfa* cnfa = d->cnfa;
    std::memset(d->work, 0, size_t(d->wordsper) * sizeof(uint32_t));
    step_notes n;
    for (int i = 0; i < d->nstates; ++i) {
        if (!isbset(css->states, i)) continue;
        for (const carc* ca = cnfa->states[i] + 1; ca->co != COLORLESS; ++ca)
            if (ca->co == co) add_state(cnfa, d->work, ca->to, &n);
    }
    if (!n.gotstate) return nullptr;
    bool sawlacons = (cnfa->flags & HASLACONS) && follow_lookaheads(v, d, cp, &n);
    if (has_error(v)) return nullptr;

    unsigned h = hash_vector(d->work, d->wordsper);
    const size_t bytes = size_t(d->wordsper) * sizeof(uint32_t);
    sset<CharT>* p = nullptr;
    for (int i = 0; i < d->nssused && !p; ++i) {
        sset<CharT>* ss = &d->ssets[i];
        if (ss->hash == h && std::memcmp(ss->states, d->work, bytes) == 0) p = ss;
    }
    if (!p) {
        p = pickss(v, d, cp, start);
        std::memcpy(p->states, d->work, bytes);
        p->hash = h;
        p->flags = (n.ispost ? POSTSTATE : 0) | (n.noprogress ? NOPROGRESS : 0);
    }
    if (!sawlacons) {
        css->outs[co] = p;
        css->inchain[co] = p->ins;
        p->ins = arcp<CharT>{css, co};
        ++d->newouts;
    }
    return p;
}

// The colour that stands for what lies before `start`.
template <class CharT>
color colour_before(const match_vars<CharT>* v, const dfa<CharT>* d, const CharT* start) {
    if (start == v->start) return d->cnfa->bos[(v->eflags & REG_NOTBOL) ? 0 : 1];
    return getcolor(d->cm, start[-1]);
}

template <class CharT>
color colour_at_end(const match_vars<CharT>* v, const dfa<CharT>* d) {
    return d->cnfa->eos[(v->eflags & REG_NOTEOL) ? 0 : 1];
}

// The latest point from which no match can have begun before.
template <class CharT>
const CharT* lastcold(const match_vars<CharT>* v, const dfa<CharT>* d) {
    const CharT* nopr = d->lastnopr ? d->lastnopr : v->start;
    for (int i = 0; i < d->nssused; ++i) {
        const sset<CharT>* ss = &d->ssets[i];
        if ((ss->flags & NOPROGRESS) && ss->lastseen && nopr < ss->lastseen) nopr = ss->lastseen;
    }
    return nopr;
}

template <class CharT>
void freedfa(dfa<CharT>* d);

// A new dfa over `cnfa`: one block for the common small automata, five
// allocations otherwise. Null with REG_ESPACE.
template <class CharT>
dfa<CharT>* newdfa(match_vars<CharT>* v, const cnfa* cnfa) {
    const int nstates = cnfa->nstates;
    const bool small = (v->eflags & REG_SMALL) != 0;
    const int nss = small ? SMALLCACHE : 2 * nstates;
    const int wordsper = (nstates + 31) / 32;
    const int ncolors = cnfa->ncolors;
    dfa<CharT>* d;
    if (2 * nstates <= FEWSTATES && ncolors <= FEWCOLORS) {
        auto* block = static_cast<smalldfa<CharT>*>(re_malloc(sizeof(smalldfa<CharT>)));
        if (!block) {
            set_error(v, REG_ESPACE);
            return nullptr;
        }
        d = &block->dfa;
        d->ssets = block->ssets;
        d->statesarea = block->statesarea;
        d->work = &d->statesarea[nss];
        d->outsarea = block->outsarea;
        d->incarea = block->incarea;
        d->ismalloced = false;
        d->mallocarea = block;
    } else {
        d = static_cast<dfa<CharT>*>(re_malloc(sizeof(dfa<CharT>)));
        if (!d) {
            set_error(v, REG_ESPACE);
            return nullptr;
        }
        d->ssets = static_cast<sset<CharT>*>(re_malloc(size_t(nss) * sizeof(sset<CharT>)));
        d->statesarea = static_cast<uint32_t*>(
            re_malloc(size_t(nss + 1) * size_t(wordsper) * sizeof(uint32_t)));
        d->work = d->statesarea ? &d->statesarea[size_t(nss) * size_t(wordsper)] : nullptr;
        d->outsarea = static_cast<sset<CharT>**>(
            re_malloc(size_t(nss) * size_t(ncolors) * sizeof(sset<CharT>*)));
        d->incarea = static_cast<arcp<CharT>*>(
            re_malloc(size_t(nss) * size_t(ncolors) * sizeof(arcp<CharT>)));
        d->ismalloced = true;
        d->mallocarea = d;
        if (!d->ssets || !d->statesarea || !d->outsarea || !d->incarea) {
            freedfa(d);
            set_error(v, REG_ESPACE);
            return nullptr;
        }
    }
    d->nssets = nss;
    d->nssused = 0;
    d->nstates = nstates;
    d->ncolors = ncolors;
    d->wordsper = wordsper;
    d->cnfa = cnfa;
    d->cm = &v->g->cmap;
    d->lastpost = nullptr;
    d->lastnopr = nullptr;
    d->search = d->ssets;
    d->skipset = nullptr;
    d->nskip = 0;
    d->loops = 0;
    d->skiptried = nullptr;
    d->skiptriedat = 0;
    d->newouts = 0;
    d->serial = v->g->serial;
    d->small = small;
    d->kept = false;
    d->inuse = true;
    d->lastuse = 0;
    return d;
}

template <class CharT>
void freedfa(dfa<CharT>* d) {
    if (d->ismalloced) {
        std::free(d->ssets);
        std::free(d->statesarea);
        std::free(d->outsarea);
        std::free(d->incarea);
    }
    std::free(d->mallocarea);
}

// The dfas a thread keeps between calls, in a small hash table on the
// automaton's address: a pattern with groups uses a dozen or more automata
// per match, and looking one up must cost next to nothing. A slot holds one
// dfa; a newcomer replaces the least recently used idle dfa among the few
// slots it may occupy. None so large that keeping it would matter is kept.
template <class CharT>
class dfa_keeper {
  public:
    static constexpr size_t kSlots = 256;
    static constexpr size_t kWays = 4;
    static constexpr size_t kMaxKeptBytes = size_t(4) << 20;

    ~dfa_keeper() {
        for (dfa<CharT>* d : m_slots)
            if (d) freedfa(d);
    }

    dfa<CharT>* find(uint64_t serial, const cnfa* cnfa, bool small) {
        const size_t home = slot_of(cnfa);
        for (size_t i = 0; i < kWays; ++i) {
            dfa<CharT>* d = m_slots[(home + i) % kSlots];
            if (d && !d->inuse && d->cnfa == cnfa && d->serial == serial && d->small == small) {
                d->inuse = true;
                d->lastuse = ++m_clock;
                return d;
            }
        }
        return nullptr;
    }

    // Takes `d` into a free or the least recently used idle slot of its
    // ways; leaves it with the caller when it is too large or all are busy.
    void keep(dfa<CharT>* d) {
        if (footprint(d) > kMaxKeptBytes) return;
        const size_t home = slot_of(d->cnfa);
        dfa<CharT>** victim = nullptr;
        for (size_t i = 0; i < kWays; ++i) {
            dfa<CharT>*& slot = m_slots[(home + i) % kSlots];
            if (!slot) {
                victim = &slot;
                break;
            }
            if (!slot->inuse && (!victim || slot->lastuse < (*victim)->lastuse)) victim = &slot;
        }
        if (!victim) return;
        if (*victim) freedfa(*victim);
        *victim = d;
        d->kept = true;
        d->lastuse = ++m_clock;
    }

  private:
    static size_t slot_of(const cnfa* cnfa) {
        const uintptr_t a = reinterpret_cast<uintptr_t>(cnfa);
        return size_t((a >> 4) ^ (a >> 12)) % kSlots;
    }

    static size_t footprint(const dfa<CharT>* d) {
        const size_t sets = size_t(d->nssets);
        return sets * (sizeof(sset<CharT>) + size_t(d->wordsper) * sizeof(uint32_t) +
                       size_t(d->ncolors) * (sizeof(sset<CharT>*) + sizeof(arcp<CharT>)));
    }

    dfa<CharT>* m_slots[kSlots] = {};
    uint64_t m_clock = 0;
};

// ---- the walk -------------------------------------------------------------------------

// A set that more bytes than this leave is not worth skipping in: the scan
// would stop almost at once.
constexpr int kMaxLeavingBytes = 96;

// The first of `p`..`end` that is one of the `n` (1 to 3) bytes, or `end`.
const char* find_first_of(const char* p, const char* end, const unsigned char* bytes, int n) {
    if (n == 1) {
        const void* hit = std::memchr(p, bytes[0], size_t(end - p));
        return hit ? static_cast<const char*>(hit) : end;
    }
    const __m128i b0 = _mm_set1_epi8(char(bytes[0]));
    const __m128i b1 = _mm_set1_epi8(char(bytes[1]));
    const __m128i b2 = _mm_set1_epi8(char(bytes[n == 3 ? 2 : 1]));
    for (; end - p >= 16; p += 16) {
        const __m128i chunk = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
        const __m128i any =
            _mm_or_si128(_mm_or_si128(_mm_cmpeq_epi8(chunk, b0), _mm_cmpeq_epi8(chunk, b1)),
                         _mm_cmpeq_epi8(chunk, b2));
        if (const int mask = _mm_movemask_epi8(any)) return p + __builtin_ctz(unsigned(mask));
    }
    for (; p < end; ++p) {
        const unsigned char c = static_cast<unsigned char>(*p);
        if (c == bytes[0] || c == bytes[1] || c == bytes[n - 1]) return p;
    }
    return end;
}

// Makes `ss` the skip set when a minority of the bytes leave it (a
// transition not built yet counts as leaving): up to three are found with a
// vector scan, more with a table. Narrow text only.
template <class CharT>
void consider_skip(dfa<CharT>* d, sset<CharT>* ss) {
    if constexpr (sizeof(CharT) != 1) {
        (void)d;
        (void)ss;
        return;
    } else {
        if (ss == d->skiptried && d->newouts == d->skiptriedat) return;
        if (ss->flags & POSTSTATE) return;
        if (ss == d->skipset) d->skipset = nullptr;  // a refresh
        int n = 0;
        for (int b = 0; b < 256; ++b) {
            const bool leaves = ss->outs[getcolor(d->cm, CharT(b))] != ss;
            d->leaves[b] = leaves;
            if (leaves && n < 3) d->skipbytes[n] = static_cast<unsigned char>(b);
            n += leaves;
        }
        // One set is skipped in at a time; it keeps its place against a set
        // that more bytes leave.
        if (n == 0 || n > kMaxLeavingBytes || (d->skipset && n > d->nskip)) {
            d->skiptried = ss;
            d->skiptriedat = d->newouts;
            return;
        }
        d->nskip = n;
        d->skipset = ss;
    }
}

// The first byte from `p` that leaves the skip set, or `end`.
template <class CharT>
const char* next_leaving(const dfa<CharT>* d, const char* p, const char* end) {
    if (d->nskip <= 3) return find_first_of(p, end, d->skipbytes, d->nskip);
    while (p < end && !d->leaves[static_cast<unsigned char>(*p)])
        ++p;
    return p;
}

// Steps from `css` over the text from `cp` up to `limit`, leaving `cp` and
// `css` where it stopped, and `lastPost` at the last position where the
// walk stood in a set holding the post state (a match ended just before). Stops early after
// reaching a set with the post state at or beyond `postFrom`, when that is given. Returns the last
// set reached, or null when no transition led on (the walk died).
template <class CharT>
sset<CharT>* walk(match_vars<CharT>* v, dfa<CharT>* d, sset<CharT>*& cssRef, const CharT*& cpRef,
                  const CharT* limit, const CharT* start, const CharT* postFrom,
                  const CharT** lastPostRef) {
    // Locals, not the references: the stores to `lastseen` could otherwise
    // alias them and force a reload at every step.
    sset<CharT>* css = cssRef;
    const CharT* cp = cpRef;
    const colormap<CharT>* const cm = d->cm;
    sset<CharT>* ss = css;
    int loops = d->loops;
    const CharT* lastPost = *lastPostRef;
    while (cp < limit) {
        if constexpr (sizeof(CharT) == 1) {
            if (css == d->skipset) {
                // Every byte but the skip bytes leads from this set back
                // to it, so those steps only move the position.
                cp = next_leaving(d, cp, limit);
                css->lastseen = cp;
                if (cp == limit) break;
            }
        }
        const color co = getcolor(cm, *cp);
        ss = css->outs[co];
        if (!ss) {
            ss = miss(v, d, css, co, cp + 1, start);
            if (!ss) break;
        }
        ++cp;
        ss->lastseen = cp;
        if (ss != css) {
            loops = 0;
            css = ss;
        } else if (ss == d->skipset) {
            // The skip stopped at a byte that loops after all: its
            // transition was not built when the skip was set up.
            consider_skip(d, ss);
        } else if (++loops == 32) {
            consider_skip(d, ss);
        }
        if (ss->flags & POSTSTATE) {
            lastPost = cp;
            if (postFrom && cp >= postFrom) break;
        }
    }
    *lastPostRef = lastPost;
    d->loops = loops;
    cssRef = css;
    cpRef = cp;
    return ss;
}

template <class CharT>
dfa_keeper<CharT>& keeper() {
    thread_local dfa_keeper<CharT> k;
    return k;
}

}  // namespace

template <class CharT>
dfa<CharT>* getdfa(match_vars<CharT>* v, const cnfa* cnfa) {
    const bool small = (v->eflags & REG_SMALL) != 0;
    dfa_keeper<CharT>& k = keeper<CharT>();
    if (dfa<CharT>* d = k.find(v->g->serial, cnfa, small)) return d;
    dfa<CharT>* d = newdfa(v, cnfa);
    if (d) k.keep(d);
    return d;
}

template <class CharT>
void putdfa(dfa<CharT>* d) {
    d->inuse = false;
    if (!d->kept) freedfa(d);
}

template <class CharT>
const CharT* longest(match_vars<CharT>* v, dfa<CharT>* d, const CharT* start, const CharT* stop,
                     int* hitstop) {
    const CharT* cp = start;
    // The character at `stop` is read too: a match ending at `stop` is only
    // known once the post state has been reached on it.
    const CharT* realstop = (stop == v->stop) ? stop : stop + 1;
    sset<CharT>* css = initialize(v, d, start);
    if (hitstop) *hitstop = 0;

    css = miss(v, d, css, colour_before(v, d, start), cp, start);
    if (!css) return nullptr;
    css->lastseen = cp;
    // The latest last-seen position among the post-state sets is the last
    // position at which the walk stood in one: it is kept as the walk goes
    // rather than found by scanning every set afterwards.
    const CharT* seenPost = (css->flags & POSTSTATE) ? cp : nullptr;

    walk(v, d, css, cp, realstop, start, static_cast<const CharT*>(nullptr), &seenPost);
    if (has_error(v)) return nullptr;

    if (cp == v->stop && stop == v->stop) {
        if (hitstop) *hitstop = 1;
        sset<CharT>* ss = miss(v, d, css, colour_at_end(v, d), cp, start);
        if (has_error(v)) return nullptr;
        if (ss && (ss->flags & POSTSTATE)) return cp;
        if (ss) ss->lastseen = cp;
    }

    const CharT* post = later(d->lastpost, seenPost);
    return post ? post - 1 : nullptr;
}

template <class CharT>
const CharT* shortest(match_vars<CharT>* v, dfa<CharT>* d, const CharT* start, const CharT* min,
                      const CharT* max, const CharT** coldp, int* hitstop) {
    const CharT* cp = start;
    const CharT* realmin = (min == v->stop) ? min : min + 1;
    const CharT* realmax = (max == v->stop) ? max : max + 1;
    sset<CharT>* css = initialize(v, d, start);
    if (hitstop) *hitstop = 0;

    css = miss(v, d, css, colour_before(v, d, start), cp, start);
    if (!css) return nullptr;
    css->lastseen = cp;
    const CharT* seenPost = nullptr;
    sset<CharT>* ss = walk(v, d, css, cp, realmax, start, realmin, &seenPost);
    if (has_error(v)) return nullptr;

    if (coldp) *coldp = lastcold(v, d);
    if (ss && (ss->flags & POSTSTATE) && cp > min) return cp - 1;

    if (cp == v->stop && max == v->stop) {
        ss = miss(v, d, css, colour_at_end(v, d), cp, start);
        if (has_error(v)) return nullptr;
        if (ss && (ss->flags & POSTSTATE)) return cp;
        if (hitstop) *hitstop = 1;
    }
    return nullptr;
}

#define ORLO_RE_INSTANTIATE_DFA(CharT)                                                          \
    template dfa<CharT>* getdfa(match_vars<CharT>*, const cnfa*);                               \
    template void putdfa(dfa<CharT>*);                                                          \
    template const CharT* longest(match_vars<CharT>*, dfa<CharT>*, const CharT*, const CharT*,  \
                                  int*);                                                        \
    template const CharT* shortest(match_vars<CharT>*, dfa<CharT>*, const CharT*, const CharT*, \
                                   const CharT*, const CharT**, int*);

ORLO_RE_INSTANTIATE_DFA(char)
ORLO_RE_INSTANTIATE_DFA(wchar_t)

#undef ORLO_RE_INSTANTIATE_DFA

}  // namespace Orlo::IMPL::re

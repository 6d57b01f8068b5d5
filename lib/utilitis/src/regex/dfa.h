// Matching: a compact automaton walked as a lazily built DFA.
//
// A DFA state is a set of NFA states (`sset`), made the first time the walk
// reaches it; its transitions are filled in as they are first taken, so a
// text is read with one colour lookup and one table lookup per character
// once the walk has settled, whatever the pattern's size. The sets live in
// a cache of fixed capacity (twice the NFA's states, or 7 under REG_SMALL)
// and are evicted by age: a set last seen in the oldest third of the text
// walked so far may be reused. Where a match might end is recorded apart
// (`lastpost`, `lastnopr`), so that it outlives an evicted set.
//
// The sets and transitions a walk builds depend only on the automaton, so a
// thread keeps its dfas from one engine_exec call to the next (getdfa /
// putdfa): a loop that matches one pattern again and again, as a replace
// does, builds its states once. Each walk starts by forgetting every visit,
// which is all that ties a dfa to one text.
//
// A position is a pointer into the text being matched; null means "never".
// A transition that had to evaluate a look-ahead depends on the position and
// is never cached.
//
// The `match_vars` (exec.cpp's per-call state) are passed to every call:
// errors go to its `err`, first one wins.
//
// Implementation details only, past this point.

#ifndef ORLO_SRC_REGEX_DFA_H
#define ORLO_SRC_REGEX_DFA_H

#include <cstdint>

#include "regex/guts.h"

namespace Orlo::IMPL::re {

template <class CharT>
struct sset;

// A transition into a set: from `ss` on colour `co`.
template <class CharT>
struct arcp {
    sset<CharT>* ss;
    color co;
};

inline constexpr int STARTER = 1;     // the start set of the walk
inline constexpr int POSTSTATE = 2;   // holds `post`: a match ended one character ago
inline constexpr int LOCKED = 4;      // never evicted
inline constexpr int NOPROGRESS = 8;  // no match can have begun before this point

template <class CharT>
struct sset {
    uint32_t* states;  // bit vector over the cnfa's states
    unsigned hash;
    int flags;
    arcp<CharT> ins;        // head of the transitions into this set
    const CharT* lastseen;  // text position of the last visit, or null
    sset<CharT>** outs;     // per colour: the next set, or null
    arcp<CharT>* inchain;   // per colour: link of this set's out-transition
};

template <class CharT>
struct dfa {
    int nssets;  // capacity
    int nssused;
    int nstates;
    int ncolors;
    int wordsper;
    sset<CharT>* ssets;
    uint32_t* statesarea;
    uint32_t* work;  // scratch vector for `miss`
    sset<CharT>** outsarea;
    arcp<CharT>* incarea;
    const re::cnfa* cnfa;
    const colormap<CharT>* cm;
    const CharT* lastpost;  // latest match end kept from an evicted set
    const CharT* lastnopr;  // latest no-progress point kept from an evicted set
    sset<CharT>* search;    // eviction cursor
    bool ismalloced;
    void* mallocarea;  // the block this dfa lives in, when malloced
    // The skip: a set the walk tends to stay in (typically the search's
    // "nothing yet" set), and the few bytes that leave it, so that a narrow
    // walk can jump over the rest with a vector scan instead of stepping.
    sset<CharT>* skipset;  // null: none
    unsigned char skipbytes[4];
    int nskip;               // 1 to 3: the bytes above; more: the table below
    bool leaves[256];        // per byte: does it leave the skip set?
    int loops;               // self-loop steps taken in a row
    sset<CharT>* skiptried;  // a set found unfit for skipping ...
    uint64_t skiptriedat;    // ... when `newouts` had this value
    uint64_t newouts;        // transitions cached so far
    // Kept across calls by the thread's keeper (see getdfa).
    uint64_t serial;   // the compilation it belongs to
    bool small;        // built for REG_SMALL
    bool kept;         // owned by the keeper, not by the caller
    bool inuse;        // handed out and not yet put back
    uint64_t lastuse;  // for choosing which kept dfa to drop
};

inline constexpr int FEWSTATES = 20;  // a cnfa of at most FEWSTATES / 2 states ...
inline constexpr int FEWCOLORS = 15;  // ... and this many colours fits a smalldfa
inline constexpr int SMALLCACHE = 7;  // sets under REG_SMALL

// A dfa with inline room for the common small automata: no malloc per match.
template <class CharT>
struct smalldfa {
    re::dfa<CharT> dfa;
    sset<CharT> ssets[FEWSTATES * 2];
    uint32_t statesarea[FEWSTATES * 2 + 1];
    sset<CharT>* outsarea[FEWSTATES * 2 * FEWCOLORS];
    arcp<CharT> incarea[FEWSTATES * 2 * FEWCOLORS];
};

// ---- the per-call state shared with the match driver -------------------------

template <class CharT>
struct match_vars {
    regex_t* re;
    const guts<CharT>* g;
    int eflags;
    size_t nmatch;
    regmatch_t* pmatch;
    rm_detail_t* details;
    const CharT* start;  // the text
    const CharT* stop;   // its end
    int err;
    uint32_t* mem;  // retry memory, one cell per tree node
};

template <class CharT>
inline void set_error(match_vars<CharT>* v, int code) {
    if (v->err == REG_OKAY) v->err = code;
}
template <class CharT>
inline bool has_error(const match_vars<CharT>* v) {
    return v->err != REG_OKAY;
}

// A dfa over `cnfa`, one of the automata of the pattern being matched:
// the one this thread kept from an earlier call when there is one, else a
// new one. Null with REG_ESPACE. Every dfa got must be put back.
template <class CharT>
dfa<CharT>* getdfa(match_vars<CharT>* v, const cnfa* cnfa);
template <class CharT>
void putdfa(dfa<CharT>* d);

// The end of the longest match beginning at `start` and ending at or before
// `stop`, or null. `hitstop`, when given, tells whether the walk reached
// the end of the text.
template <class CharT>
const CharT* longest(match_vars<CharT>* v, dfa<CharT>* d, const CharT* start, const CharT* stop,
                     int* hitstop);

// The end of the shortest match beginning at `start` and ending between
// `min` and `max`, or null. `coldp`, when given, receives the last point
// before which no match can have begun.
template <class CharT>
const CharT* shortest(match_vars<CharT>* v, dfa<CharT>* d, const CharT* start, const CharT* min,
                      const CharT* max, const CharT** coldp, int* hitstop);

}  // namespace Orlo::IMPL::re

#endif  // ORLO_SRC_REGEX_DFA_H

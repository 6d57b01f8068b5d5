// The colour map; see colormap.h for the design.
//
// The wide map is a tree of 256 leaves whose sharing is what keeps it small:
// at the start all 256 pointers name one fill leaf, so `[^a]` costs one
// private leaf (where `a` lives) and `[\u0100-\u7fff]` costs one solid leaf
// for the new colour, pointed at 127 times. A leaf is private unless it is
// the `block` of the colour of its first entry; only private leaves are
// written, a shared one is copied first.

#include "regex/colormap.h"
#include "regex/alloc.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <limits>

#include "regex/nfa.h"

namespace Orlo::IMPL::re {
namespace {

template <class CharT>
constexpr bool kWide = map_shape<CharT>::levels == 2;

constexpr size_t LEAF_BYTES = BYTTAB * sizeof(color);

bool is_free_color(const colordesc& cd) {
    return (cd.flags & FREECOL) != 0;
}

bool is_pseudo_color(const colordesc& cd) {
    return (cd.flags & PSEUDO) != 0;
}

// A colour of the current bracket: its `sub` names itself.
bool is_sub_color(const colordesc& cd, size_t co) {
    return cd.sub == color(co);
}

void clear_desc(colordesc& cd) {
    cd.nchrs = 0;
    cd.sub = NOSUB;
    cd.arcs = nullptr;
    cd.flags = 0;
    cd.block = nullptr;
}

// ---- the wide tree ---------------------------------------------------------

bool is_shared_leaf(const colormap<wchar_t>* cm, const color* leaf) {
    const color co = leaf[0];
    return co >= 0 && size_t(co) <= cm->max && cm->cd[co].block == leaf;
}

// The leaf holding `hi`'s 256 characters, copied first when it is shared.
color* writable_leaf(colormap<wchar_t>* cm, size_t hi) {
    color* leaf = cm->tree.ptr[hi];
    if (!is_shared_leaf(cm, leaf)) return leaf;
    color* copy = static_cast<color*>(re_malloc(LEAF_BYTES));
    if (!copy) {
        set_error(cm->v, REG_ESPACE);
        return nullptr;
    }
    memcpy(copy, leaf, LEAF_BYTES);
    cm->tree.ptr[hi] = copy;
    return copy;
}

// The solid leaf of `co`, made on first need.
color* solid_block(colormap<wchar_t>* cm, color co) {
    colordesc& cd = cm->cd[co];
    if (cd.block) return cd.block;
    color* block = static_cast<color*>(re_malloc(LEAF_BYTES));
    if (!block) {
        set_error(cm->v, REG_ESPACE);
        return nullptr;
    }
    for (size_t i = 0; i < BYTTAB; ++i)
        block[i] = co;
    cd.block = block;
    return block;
}

// Writes the colour of one character; false on allocation failure.
bool setcolor(colormap<char>* cm, char c, color co) {
    cm->tree.ccolor[static_cast<unsigned char>(c)] = co;
    return true;
}

bool setcolor(colormap<wchar_t>* cm, wchar_t c, color co) {
    const uint32_t u = uint32_t(c);
    color* leaf = writable_leaf(cm, (u >> 8) & 0xff);
    if (!leaf) return false;
    leaf[u & 0xff] = co;
    return true;
}

// ---- sub-colours -----------------------------------------------------------

// The open sub-colour of `co`, opened when there is none; a colour of one
// character is already private and serves itself.
template <class CharT>
color newsub(colormap<CharT>* cm, color co) {
    const color existing = cm->cd[co].sub;
    if (existing != NOSUB) return existing;
    if (cm->cd[co].nchrs == 1) return co;
    const color sco = newcolor(cm);
    if (sco == COLORLESS) return COLORLESS;
    cm->cd[co].sub = sco;
    cm->cd[sco].sub = sco;
    return sco;
}

// Moves `count` characters' worth of bookkeeping from `co` to `sco`.
template <class CharT>
void move_count(colormap<CharT>* cm, color co, color sco, size_t count) {
    cm->cd[co].nchrs -= count;
    cm->cd[sco].nchrs += count;
}

template <class CharT>
void subrange_one(parse_vars<CharT>* v, CharT c, state* lp, state* rp) {
    newarc(v->nfa, PLAIN, subcolor(v->cm, c), lp, rp);
}

// A whole aligned block of 256 wide characters whose leaf is the solid block
// of its colour: point at the sub-colour's solid block instead.
void subblock_solid(parse_vars<wchar_t>* v, size_t hi, state* lp, state* rp) {
    colormap<wchar_t>* cm = v->cm;
    const color co = cm->tree.ptr[hi][0];
    const color sco = newsub(cm, co);
    if (sco == COLORLESS) return;
    if (sco != co) {
        color* block = solid_block(cm, sco);
        if (!block) return;
        cm->tree.ptr[hi] = block;
        move_count(cm, co, sco, BYTTAB);
    }
    newarc(v->nfa, PLAIN, sco, lp, rp);
}

// A whole aligned block whose leaf is private: recolour it run by run.
void subblock_private(parse_vars<wchar_t>* v, size_t hi, state* lp, state* rp) {
    colormap<wchar_t>* cm = v->cm;
    color* leaf = cm->tree.ptr[hi];
    size_t i = 0;
    while (i < BYTTAB && !has_error(v)) {
        const color co = leaf[i];
        size_t end = i + 1;
        while (end < BYTTAB && leaf[end] == co)
            ++end;
        const color sco = newsub(cm, co);
        if (sco == COLORLESS) return;
        if (sco != co) {
            for (size_t j = i; j < end; ++j)
                leaf[j] = sco;
            move_count(cm, co, sco, end - i);
        }
        newarc(v->nfa, PLAIN, sco, lp, rp);
        i = end;
    }
}

void subblock(parse_vars<wchar_t>* v, uint32_t start, state* lp, state* rp) {
    const size_t hi = start >> 8;
    if (is_shared_leaf(v->cm, v->cm->tree.ptr[hi]))
        subblock_solid(v, hi, lp, rp);
    else
        subblock_private(v, hi, lp, rp);
}

// lo..hi within 0..0xffff: single characters up to a block boundary, whole
// blocks, then single characters again.
void substretch(parse_vars<wchar_t>* v, uint32_t lo, uint32_t hi, state* lp, state* rp) {
    const uint32_t first_block = (lo + BYTTAB - 1) & ~uint32_t(BYTTAB - 1);
    uint32_t c = lo;
    for (; c <= hi && c < first_block && !has_error(v); ++c)
        subrange_one(v, wchar_t(c), lp, rp);
    for (; c + BYTTAB - 1 <= hi && !has_error(v); c += BYTTAB)
        subblock(v, c, lp, rp);
    for (; c <= hi && !has_error(v); ++c)
        subrange_one(v, wchar_t(c), lp, rp);
}

void subrange_narrow(parse_vars<char>* v, char from, char to, state* lp, state* rp) {
    for (int c = from; c <= to && !has_error(v); ++c)
        subrange_one(v, char(c), lp, rp);
}

// The map sees only the low 16 bits, so a range is folded onto them first.
void subrange_wide(parse_vars<wchar_t>* v, wchar_t from, wchar_t to, state* lp, state* rp) {
    constexpr uint32_t top = 0xffff;
    if (int64_t(to) - int64_t(from) >= int64_t(top)) {
        substretch(v, 0, top, lp, rp);
        return;
    }
    const uint32_t lo = uint32_t(from) & top;
    const uint32_t hi = uint32_t(to) & top;
    if (lo <= hi) {
        substretch(v, lo, hi, lp, rp);
        return;
    }
    substretch(v, lo, top, lp, rp);
    substretch(v, 0, hi, lp, rp);
}

// okcolors for a parent whose characters all went to `sco`: the sub-colour
// takes its place, arcs and all.
template <class CharT>
void replace_by_sub(colormap<CharT>* cm, color co, color sco) {
    cm->cd[co].sub = NOSUB;
    cm->cd[sco].sub = NOSUB;
    while (arc* a = cm->cd[co].arcs) {
        uncolorchain(cm, a);
        a->co = sco;
        colorchain(cm, a);
    }
    freecolor(cm, co);
}

// okcolors for a parent that keeps characters: whatever accepted it must
// accept the characters that left it too.
template <class CharT>
void twin_arcs(nfa<CharT>* nfa, colormap<CharT>* cm, color co, color sco) {
    cm->cd[co].sub = NOSUB;
    cm->cd[sco].sub = NOSUB;
    for (arc* a = cm->cd[co].arcs; a; a = a->colorchain)
        newarc(nfa, a->type, sco, a->from, a->to);
}

// Takes colours above the new `max` out of the free list.
template <class CharT>
void trim_free_list(colormap<CharT>* cm) {
    while (cm->free != 0 && size_t(cm->free) > cm->max)
        cm->free = cm->cd[cm->free].sub;
    for (color co = cm->free; co != 0;) {
        const color next = cm->cd[co].sub;
        if (next != 0 && size_t(next) > cm->max) {
            cm->cd[co].sub = cm->cd[next].sub;
            continue;
        }
        co = next;
    }
}

template <class CharT>
bool grow_descs(colormap<CharT>* cm) {
    const size_t ncds = cm->ncds * 2;
    colordesc* cd;
    if (cm->cd == cm->cdspace) {
        cd = static_cast<colordesc*>(re_malloc(ncds * sizeof(colordesc)));
        if (cd) memcpy(cd, cm->cdspace, cm->ncds * sizeof(colordesc));
    } else {
        cd = static_cast<colordesc*>(re_realloc(cm->cd, ncds * sizeof(colordesc)));
    }
    if (!cd) {
        set_error(cm->v, REG_ESPACE);
        return false;
    }
    cm->cd = cd;
    cm->ncds = ncds;
    return true;
}

// The colours for which an "every colour" arc is drawn.
template <class CharT>
bool is_plain_color(const colormap<CharT>* cm, size_t co) {
    const colordesc& cd = cm->cd[co];
    return !is_free_color(cd) && !is_sub_color(cd, co) && !is_pseudo_color(cd);
}

}  // namespace

// ---- lifetime --------------------------------------------------------------
template <class CharT>
void initcm(parse_vars<CharT>* v, colormap<CharT>* cm) {
    cm->magic = CMMAGIC;
    cm->v = v;
    cm->ncds = NINLINECDS;
    cm->max = 0;
    cm->free = 0;
    cm->cd = cm->cdspace;
    for (colordesc& cd : cm->cdspace)
        clear_desc(cd);
    cm->cd[WHITE].nchrs = map_shape<CharT>::domain;
    if constexpr (kWide<CharT>) {
        for (size_t i = 0; i < BYTTAB; ++i) {
            cm->tree.fill[i] = WHITE;
            cm->tree.ptr[i] = cm->tree.fill;
        }
        cm->cd[WHITE].block = cm->tree.fill;
    } else {
        for (color& co : cm->tree.ccolor)
            co = WHITE;
    }
}

template <class CharT>
void freecm(colormap<CharT>* cm) {
    cm->magic = 0;
    if constexpr (kWide<CharT>) {
        for (color*& leaf : cm->tree.ptr) {
            if (!is_shared_leaf(cm, leaf)) free(leaf);
            leaf = cm->tree.fill;
        }
        for (size_t co = 0; co <= cm->max; ++co) {
            color* block = cm->cd[co].block;
            if (block && block != cm->tree.fill) free(block);
            cm->cd[co].block = nullptr;
        }
    }
    if (cm->cd != cm->cdspace) free(cm->cd);
    cm->cd = cm->cdspace;
    cm->ncds = NINLINECDS;
    cm->max = 0;
    cm->free = 0;
}

// ---- colours ---------------------------------------------------------------
template <class CharT>
color maxcolor(const colormap<CharT>* cm) {
    if (has_error(cm->v)) return COLORLESS;
    return color(cm->max);
}

template <class CharT>
color newcolor(colormap<CharT>* cm) {
    if (has_error(cm->v)) return COLORLESS;
    color co;
    if (cm->free != 0) {
        co = cm->free;
        cm->free = cm->cd[co].sub;
    } else {
        // The colour must fit its 16 bits; only a pattern with tens of
        // thousands of distinct wide characters gets here.
        if (cm->max >= size_t(std::numeric_limits<color>::max())) {
            set_error(cm->v, REG_ESPACE);
            return COLORLESS;
        }
        if (cm->max >= cm->ncds - 1 && !grow_descs(cm)) return COLORLESS;
        co = color(++cm->max);
    }
    clear_desc(cm->cd[co]);
    return co;
}

template <class CharT>
void freecolor(colormap<CharT>* cm, color co) {
    if (co == WHITE) return;
    colordesc& cd = cm->cd[co];
    free(cd.block);
    clear_desc(cd);
    cd.flags = FREECOL;
    if (size_t(co) != cm->max) {
        cd.sub = cm->free;
        cm->free = co;
        return;
    }
    while (cm->max > WHITE && is_free_color(cm->cd[cm->max]))
        --cm->max;
    trim_free_list(cm);
}

template <class CharT>
color pseudocolor(colormap<CharT>* cm) {
    const color co = newcolor(cm);
    if (co == COLORLESS) return COLORLESS;
    cm->cd[co].nchrs = 1;
    cm->cd[co].flags = PSEUDO;
    return co;
}

template <class CharT>
color subcolor(colormap<CharT>* cm, std::type_identity_t<CharT> c) {
    if (has_error(cm->v)) return COLORLESS;
    const color co = getcolor(cm, c);
    const color sco = newsub(cm, co);
    if (sco == COLORLESS || sco == co) return sco;
    if (!setcolor(cm, c, sco)) return COLORLESS;
    move_count(cm, co, sco, 1);
    return sco;
}

template <class CharT>
void subrange(parse_vars<CharT>* v, std::type_identity_t<CharT> from,
              std::type_identity_t<CharT> to, state* lp, state* rp) {
    if (has_error(v)) return;
    if constexpr (kWide<CharT>)
        subrange_wide(v, from, to, lp, rp);
    else
        subrange_narrow(v, from, to, lp, rp);
}

template <class CharT>
void okcolors(nfa<CharT>* nfa, colormap<CharT>* cm) {
    for (size_t co = 0; co <= cm->max && !has_error(cm->v); ++co) {
        const colordesc& cd = cm->cd[co];
        if (is_free_color(cd) || cd.sub == NOSUB || is_sub_color(cd, co)) continue;
        if (cd.nchrs == 0)
            replace_by_sub(cm, color(co), cd.sub);
        else
            twin_arcs(nfa, cm, color(co), cd.sub);
    }
}

template <class CharT>
void rainbow(nfa<CharT>* nfa, colormap<CharT>* cm, int type, color but, state* from, state* to) {
    for (size_t co = 0; co <= cm->max && !has_error(cm->v); ++co)
        if (is_plain_color(cm, co) && color(co) != but) newarc(nfa, type, color(co), from, to);
}

template <class CharT>
void colorcomplement(nfa<CharT>* nfa, colormap<CharT>* cm, int type, state* of, state* from,
                     state* to) {
    for (size_t co = 0; co <= cm->max && !has_error(cm->v); ++co)
        if (is_plain_color(cm, co) && !findarc(of, PLAIN, color(co)))
            newarc(nfa, type, color(co), from, to);
}

template <class CharT>
void specialcolors(nfa<CharT>* nfa) {
    if (nfa->parent) {
        nfa->bos[0] = nfa->parent->bos[0];
        nfa->bos[1] = nfa->parent->bos[1];
        nfa->eos[0] = nfa->parent->eos[0];
        nfa->eos[1] = nfa->parent->eos[1];
        return;
    }
    nfa->bos[0] = pseudocolor(nfa->cm);
    nfa->bos[1] = pseudocolor(nfa->cm);
    nfa->eos[0] = pseudocolor(nfa->cm);
    nfa->eos[1] = pseudocolor(nfa->cm);
}

template <class CharT>
void dovec(parse_vars<CharT>* v, const cvec<CharT>* cv, state* lp, state* rp) {
    for (int i = 0; i < cv->nchrs && !has_error(v); ++i)
        subrange_one(v, cv->chrs[i], lp, rp);
    for (int i = 0; i < cv->nranges && !has_error(v); ++i)
        subrange(v, cv->ranges[2 * i], cv->ranges[2 * i + 1], lp, rp);
}

// ---- arc chains ------------------------------------------------------------
template <class CharT>
void colorchain(colormap<CharT>* cm, arc* a) {
    colordesc& cd = cm->cd[a->co];
    a->colorchain = cd.arcs;
    a->colorchainrev = nullptr;
    if (cd.arcs) cd.arcs->colorchainrev = a;
    cd.arcs = a;
}

template <class CharT>
void uncolorchain(colormap<CharT>* cm, arc* a) {
    if (a->colorchainrev)
        a->colorchainrev->colorchain = a->colorchain;
    else
        cm->cd[a->co].arcs = a->colorchain;
    if (a->colorchain) a->colorchain->colorchainrev = a->colorchainrev;
    a->colorchain = nullptr;
    a->colorchainrev = nullptr;
}

// ---- instantiations --------------------------------------------------------
#define ORLO_RE_INSTANTIATE_COLORMAP(CharT)                                                    \
    template void initcm(parse_vars<CharT>*, colormap<CharT>*);                                \
    template void freecm(colormap<CharT>*);                                                    \
    template color maxcolor(const colormap<CharT>*);                                           \
    template color newcolor(colormap<CharT>*);                                                 \
    template void freecolor(colormap<CharT>*, color);                                          \
    template color pseudocolor(colormap<CharT>*);                                              \
    template color subcolor<CharT>(colormap<CharT>*, CharT);                                   \
    template void subrange<CharT>(parse_vars<CharT>*, CharT, CharT, state*, state*);           \
    template void okcolors(nfa<CharT>*, colormap<CharT>*);                                     \
    template void rainbow(nfa<CharT>*, colormap<CharT>*, int, color, state*, state*);          \
    template void colorcomplement(nfa<CharT>*, colormap<CharT>*, int, state*, state*, state*); \
    template void specialcolors(nfa<CharT>*);                                                  \
    template void dovec(parse_vars<CharT>*, const cvec<CharT>*, state*, state*);               \
    template void colorchain(colormap<CharT>*, arc*);                                          \
    template void uncolorchain(colormap<CharT>*, arc*);

ORLO_RE_INSTANTIATE_COLORMAP(char)
ORLO_RE_INSTANTIATE_COLORMAP(wchar_t)

#undef ORLO_RE_INSTANTIATE_COLORMAP

}  // namespace Orlo::IMPL::re

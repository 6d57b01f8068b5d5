// The colour map: which colour each character has, and how brackets split
// colours.
//
// The automata never test characters, they test colours: a colour names a
// set of characters that no part of the pattern tells apart, so that a class
// of a thousand characters is one arc. Every character starts WHITE. A
// bracket (or a plain character, or a range) is added in two steps: while its
// items are read, `subcolor` and `subrange` move each of its characters from
// its colour `co` into an open sub-colour of `co`, private to this bracket,
// and draw the bracket's arc with the sub-colour; at the end, `okcolors`
// closes the sub-colours. An arc drawn earlier with `co` must still accept
// the characters that left it, so `okcolors` gives every such arc a twin with
// the sub-colour; when nothing is left in `co`, the sub-colour simply takes
// its place. That is why the top NFA keeps the arcs of each colour chained
// (see `arc`), and why the map must outlive nothing but that NFA.
//
// Invariants: `nchrs` of all colours in use (pseudo-colours aside, which
// stand for no character and count 1) add up to the domain; a colour's `sub`
// is NOSUB outside a bracket; a sub-colour's `sub` is itself; free colours
// are FREECOL and chained through `sub`, with 0 as the end, which is why
// WHITE is never freed. In the wide map a leaf is written only when it is
// private; see `colormap_tree`.
//
// Errors (only REG_ESPACE here) go to the map's `v`; with an error pending
// every function returns at once, colour-returning ones with COLORLESS.
//
// Implementation details only, past this point.

#ifndef ORLO_SRC_REGEX_COLORMAP_H
#define ORLO_SRC_REGEX_COLORMAP_H

#include <type_traits>

#include "regex/guts.h"

namespace Orlo::IMPL::re {

// Sets `cm` up with every character WHITE; `cm` must not move afterwards
// (the wide map points into itself). Errors go to `v`.
template <class CharT>
void initcm(parse_vars<CharT>* v, colormap<CharT>* cm);

// Releases the leaves and the descriptor array of `cm` (not `cm` itself).
// The top NFA's arc chains are not touched: free that NFA first.
template <class CharT>
void freecm(colormap<CharT>* cm);

// The highest colour in use, or COLORLESS with an error pending.
template <class CharT>
color maxcolor(const colormap<CharT>* cm);

// A fresh colour with no characters: the head of the free list, else the
// next slot, growing the descriptor array as needed. COLORLESS on error.
template <class CharT>
color newcolor(colormap<CharT>* cm);

// Returns the colour `co`, which must have no characters and no arcs, to the
// free list. WHITE stays, as 0 ends the free list and its block is the fill.
template <class CharT>
void freecolor(colormap<CharT>* cm, color co);

// A colour that stands for no character (beginning or end of string), with
// nchrs 1 and PSEUDO. COLORLESS on error.
template <class CharT>
color pseudocolor(colormap<CharT>* cm);

// Gives `c` a colour private to the current bracket and returns it: the open
// sub-colour of its colour, opened now if needed; a colour of one character
// serves as its own. COLORLESS on error.
template <class CharT>
color subcolor(colormap<CharT>* cm, std::type_identity_t<CharT> c);

// Colours `from`..`to` (from <= to) like `subcolor` and adds one PLAIN arc
// lp -> rp per distinct colour. In the wide map the range is folded onto the
// low 16 bits first (one stretch, two when it wraps, or all 65536), and
// whole aligned blocks of 256 move in one step.
template <class CharT>
void subrange(parse_vars<CharT>* v, std::type_identity_t<CharT> from,
              std::type_identity_t<CharT> to, state* lp, state* rp);

// Closes every open sub-colour at the end of a bracket (see above). Arcs are
// added to, and moved within, `nfa`, which must be the top NFA of `cm`.
template <class CharT>
void okcolors(nfa<CharT>* nfa, colormap<CharT>* cm);

// An arc of `type` from -> to for each colour in use, except sub-colours,
// pseudo-colours and `but` (COLORLESS to exclude none): "any character".
template <class CharT>
void rainbow(nfa<CharT>* nfa, colormap<CharT>* cm, int type, color but, state* from, state* to);

// As `rainbow`, for the colours on which `of` has no PLAIN out-arc: the
// complement of the bracket whose arcs leave `of`.
template <class CharT>
void colorcomplement(nfa<CharT>* nfa, colormap<CharT>* cm, int type, state* of, state* from,
                     state* to);

// Gives `nfa` its beginning- and end-of-string colours bos[0..1], eos[0..1]
// (index 1: a real string end; 0: one denied by REG_NOTBOL or REG_NOTEOL):
// new pseudo-colours for a top NFA, its parent's for a child.
template <class CharT>
void specialcolors(nfa<CharT>* nfa);

// Colours the characters and ranges of `cv` and adds their PLAIN arcs
// lp -> rp, in v's NFA and map.
template <class CharT>
void dovec(parse_vars<CharT>* v, const cvec<CharT>* cv, state* lp, state* rp);

// Links `a` into, or out of, the chain of its colour. For the NFA layer.
template <class CharT>
void colorchain(colormap<CharT>* cm, arc* a);
template <class CharT>
void uncolorchain(colormap<CharT>* cm, arc* a);

}  // namespace Orlo::IMPL::re

#endif  // ORLO_SRC_REGEX_COLORMAP_H

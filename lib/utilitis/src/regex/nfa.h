// The mutable NFA the parser writes into, its optimisation, and its
// flattening into the read-only `cnfa` that matching walks.
//
// Shape. Every NFA has an outer shell: `pre` ('>') stands one character
// before the text and `post` ('@') one after, joined to `init` and `final`
// by "any character" arcs and by `^` / `$` arcs, so that look-behind and
// look-ahead at the ends are ordinary arcs. Arcs are PLAIN (a colour),
// EMPTY, the constraints `^` and `$` (colour 1: a real string edge, 0: one
// denied by REG_NOTBOL / REG_NOTEOL), AHEAD and BEHIND (the next or previous
// character has a colour), and LACON (a look-ahead, by index).
//
// Storage. Each state carries 10 arcs inline and chains further batches of
// 10; an arc lives in the store of its `from` state and returns to that
// state's free list, and freed states are kept for reuse, so building an
// NFA rarely allocates. `newarc` refuses to duplicate an arc, which is what
// keeps a class from turning into an arc per character.
//
// Optimisation removes EMPTY arcs, moves every constraint towards the shell
// until it is resolved against the arcs it meets (or turned into a pseudo-
// colour arc at `pre` / `post`), drops dead states, and reports whether the
// automaton can match at all, or can match the empty string. After
// `optimize` only `pre` and `post` are meaningful: `init` and `final` may be
// gone. `compact` then writes one sorted arc list per state.
//
// Errors go to the NFA's `v`. Every constructor returns without linking
// anything when allocation fails, so callers may run on to their next
// check; with an error pending, `newarc` does nothing.
//
// Implementation details only, past this point.

#ifndef ORLO_SRC_REGEX_NFA_H
#define ORLO_SRC_REGEX_NFA_H

#include <cstdio>
#include <type_traits>

#include "regex/guts.h"

namespace Orlo::IMPL::re {

// ---- automata and states ---------------------------------------------------

// A new NFA over `cm` with its shell (see above). A child (`parent` set)
// shares the parent's pseudo-colours and keeps no colour chains. Null, with
// REG_ESPACE, on failure or when an error was already pending.
template <class CharT>
nfa<CharT>* newnfa(parse_vars<CharT>* v, colormap<CharT>* cm,
                   std::type_identity_t<nfa<CharT>>* parent);

// Releases `nfa` with all its states and arcs. For a top NFA the colour
// map's arc chains are emptied, so the map must still be alive.
template <class CharT>
void freenfa(nfa<CharT>* nfa);

// A new state at the end of the state list, numbered `nstates`, or null.
template <class CharT>
state* newstate(nfa<CharT>* nfa);
template <class CharT>
state* newfstate(nfa<CharT>* nfa, int flag);

// Frees all arcs of `s`, then `s`.
template <class CharT>
void dropstate(nfa<CharT>* nfa, state* s);

// Puts `s`, which must have no arcs, on the free list.
template <class CharT>
void freestate(nfa<CharT>* nfa, state* s);

// ---- arcs ------------------------------------------------------------------

// Adds the arc from -> to, unless `from` already has it.
template <class CharT>
void newarc(nfa<CharT>* nfa, int type, color co, state* from, state* to);

// Unlinks `victim` from its states (and colour) and frees it.
template <class CharT>
void freearc(nfa<CharT>* nfa, arc* victim);

// Adds an arc like `oa` from -> to.
template <class CharT>
void cparc(nfa<CharT>* nfa, const arc* oa, state* from, state* to);

// The first out-arc of `s` with this type and colour, or null.
arc* findarc(const state* s, int type, color co);

// Moves (and frees the originals) or copies the in- or out-arcs of `old` to
// `newst`. Moving leaves `old` without such arcs.
template <class CharT>
void moveins(nfa<CharT>* nfa, state* old, state* newst);
template <class CharT>
void moveouts(nfa<CharT>* nfa, state* old, state* newst);
template <class CharT>
void copyins(nfa<CharT>* nfa, const state* old, state* newst);
template <class CharT>
void copyouts(nfa<CharT>* nfa, const state* old, state* newst);

// Deletes everything between `lp` and `rp`: all states reachable from `lp`
// without passing `rp`, and their arcs. `lp` and `rp` stay, unconnected.
template <class CharT>
void delsub(nfa<CharT>* nfa, state* lp, state* rp);

// Copies the fragment between `start` and `stop` (of this NFA or of its
// parent) so that it runs between `from` and `to`.
template <class CharT>
void dupnfa(nfa<CharT>* nfa, state* start, state* stop, state* from, state* to);

// ---- optimisation ----------------------------------------------------------

// Runs cleanup, fixempties, pullback, pushfwd and cleanup again, writing a
// heading before each stage to `trace` when it is not null. Returns the
// verdict of `analyze`: REG_UIMPOSSIBLE, REG_UEMPTYMATCH or 0 (0 as well
// with an error pending).
template <class CharT>
long optimize(nfa<CharT>* nfa, FILE* trace);

// The stages of `optimize`, each usable on its own.
//
// cleanup: drops the unflagged states not on a path from `pre` to `post`,
// and renumbers the rest 0.. in list order.
template <class CharT>
void cleanup(nfa<CharT>* nfa);
// fixempties: removes every EMPTY arc, giving its source's in-arcs to its
// target or its target's out-arcs to its source, whichever is cheaper.
template <class CharT>
void fixempties(nfa<CharT>* nfa);
// pullback: moves `^` and BEHIND constraints backwards until each is
// satisfied, impossible, or at `pre`, where `^` becomes a bos arc.
template <class CharT>
void pullback(nfa<CharT>* nfa);
// pushfwd: the same forwards for `$` and AHEAD, towards eos arcs at `post`.
template <class CharT>
void pushfwd(nfa<CharT>* nfa);
// analyze: REG_UIMPOSSIBLE when nothing leaves `pre`, REG_UEMPTYMATCH when
// a successor of `pre` reaches `post` directly, else 0.
template <class CharT>
long analyze(const nfa<CharT>* nfa);

// Turns the optimised top NFA into the search automaton: unless every arc
// out of `pre` is a bos arc, `pre` loops on every colour (the match may
// start anywhere); and every successor of `pre` is split so that it is
// entered only from `pre`, which makes it a "no progress yet" state.
template <class CharT>
void makesearch(parse_vars<CharT>* v, nfa<CharT>* nfa);

// ---- compact form ----------------------------------------------------------

// Writes the cleaned-up `nfa` into `cnfa`: per state a header (`co` 1 for a
// no-progress state: `pre` and its successors), the arcs sorted by colour
// then target when there are more than two (LACON as ncolors + index), and
// a COLORLESS end. `cnfa` stays empty on error.
template <class CharT>
void compact(nfa<CharT>* nfa, cnfa* cnfa);

// Releases what `compact` allocated and marks `cnfa` empty.
void freecnfa(cnfa* cnfa);

// Builds the cnfa of tree node `t` from its fragment of v's NFA, in a child
// NFA; returns the verdict of `optimize`. With `trace`, writes a heading
// naming the node first.
template <class CharT>
long nfanode(parse_vars<CharT>* v, subre* t, FILE* trace);

// `nfanode` over the tree below and including `t`, children first, left
// before right; returns the verdict for `t`.
template <class CharT>
long nfatree(parse_vars<CharT>* v, subre* t, FILE* trace);

}  // namespace Orlo::IMPL::re

#endif  // ORLO_SRC_REGEX_NFA_H

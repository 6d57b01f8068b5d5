// The parser: tokens in, one NFA and a small sub-expression tree out.
//
// Recursive descent over the lexer's one-token look-ahead. Every parse
// function is handed the two NFA states it must connect and writes its arcs
// between them, so the automaton of the whole pattern grows as the text is
// read. Alongside, it builds `subre` nodes only where the automaton cannot
// answer alone: capturing groups, back references, and places where the
// preference between longer and shorter matches changes. A stretch of
// pattern with none of those stays one `=` leaf, and quantifiers on it are
// plain NFA surgery (`repeat`); only a "messy" quantified atom splits its
// branch into a `.` node, and is then rewritten so that only its last copy
// captures.
//
// Errors go through `set_error`, which also ends the token stream, so every
// loop here winds down by itself; the nodes and states allocated by then are
// reclaimed by the caller's clean-up through `v->treechain` and the NFA.
//
// Implementation details only, past this point.

#ifndef ORLO_SRC_REGEX_PARSER_H
#define ORLO_SRC_REGEX_PARSER_H

#include "regex/guts.h"

namespace Orlo::IMPL::re {

// ---- the grammar -------------------------------------------------------------

// The alternatives up to `stopper` (EOS at top level, ')' in a group),
// between `init` and `final`; `type` is PLAIN, or LACON inside a look-ahead.
// Returns the subtree, or null with an error pending. REG_EPAREN when the
// text ends before `stopper`.
template <class CharT>
subre* parse_alternation(parse_vars<CharT>* v, int stopper, int type, state* init, state* final);

// One branch, the atoms up to `|`, `stopper` or EOS, between `left` and
// `right`. `partial` marks the rest of a branch after a messy atom, which
// may be empty without being an empty branch.
template <class CharT>
subre* parse_branch(parse_vars<CharT>* v, int stopper, int type, state* left, state* right,
                    bool partial);

// One atom and its quantifier between `lp` and `rp`, within the branch whose
// node is `top`; a messy atom turns `top` into a `.` node and parses the rest
// of the branch itself.
template <class CharT>
void parse_quantified_atom(parse_vars<CharT>* v, int stopper, int type, state* lp, state* rp,
                           subre* top);

// Rewrites the fragment between `lp` and `rp` to match `m` to `n` times in a
// row (`n` DUPINF: no upper bound). Pure NFA work; the fragment grows as the
// product of the bounds.
template <class CharT>
void repeat(parse_vars<CharT>* v, state* lp, state* rp, int m, int n);

// ---- tree nodes --------------------------------------------------------------

// A node from the free list, else a fresh one put on `v->treechain`; min and
// max are 1, children null, cnfa empty. Null with REG_ESPACE.
template <class CharT>
subre* new_subre(parse_vars<CharT>* v, char op, int flags, state* begin, state* end);

// Frees the subtree `sr` and the cnfas built for it. With a `v`, the nodes go
// to its free list (they stay on its chain); with null, as from the release
// of a compiled pattern, they go back to malloc.
template <class CharT>
void freesubre(parse_vars<CharT>* v, subre* sr);

// After a successful parse: numbers the tree from 1 in pre-order (setting
// `v->ntree` to the last number plus one), marks it INUSE, and frees every
// other node on the chain, which afterwards holds the tree alone.
template <class CharT>
void finish_tree(parse_vars<CharT>* v);

// Frees every node ever allocated for `v`, in the tree or not; for a
// compilation that failed.
template <class CharT>
void free_tree_chain(parse_vars<CharT>* v);

}  // namespace Orlo::IMPL::re

#endif  // ORLO_SRC_REGEX_PARSER_H

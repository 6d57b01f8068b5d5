// Character vectors and the character sets behind bracket items: collating
// names, equivalence classes, named classes, ranges, case variants, and the
// string comparators of back references.
//
// A `cvec` carries the characters and ranges of one bracket item to
// `dovec`, which colours them and draws their arcs. All set builders fill
// the one working vector `v->cv`: each clears it and returns it, replacing
// it with a larger allocation when it is too small, so a returned pointer
// is good only until the next builder runs. They return null, with the
// error set, on failure.
//
// Case folding differs by instantiation: narrow text uses the C library's
// `tolower` and `toupper` on the byte, wide text the Unicode tables. Named
// classes in narrow text follow the C library's `is...` tests under any
// locale other than "C"; wide classes are fixed Unicode tables.
//
// Implementation details only, past this point.

#ifndef ORLO_SRC_REGEX_CLASSES_H
#define ORLO_SRC_REGEX_CLASSES_H

#include <cstddef>

#include "regex/guts.h"

namespace Orlo::IMPL::re {

// ---- character vectors -----------------------------------------------------

// One allocation with room for `nchrs` characters, `nranges` ranges and
// `nmcces` multi-character elements; null on allocation failure (the caller
// reports it).
template <class CharT>
cvec<CharT>* newcvec(int nchrs, int nranges, int nmcces);

template <class CharT>
void freecvec(cvec<CharT>* cv);

template <class CharT>
void clearcvec(cvec<CharT>* cv);

// Append to a vector that has room; the builders size it beforehand.
template <class CharT>
void addchr(cvec<CharT>* cv, CharT c);
template <class CharT>
void addrange(cvec<CharT>* cv, CharT from, CharT to);

// `v->cv`, cleared, with at least the room asked for; null with REG_ESPACE.
template <class CharT>
cvec<CharT>* getcvec(parse_vars<CharT>* v, int nchrs, int nranges, int nmcces);

// ---- bracket items ---------------------------------------------------------

// The character named by the text `startp`..`endp` of a `[. .]` item: one
// character stands for itself; a longer name is looked up (noting
// REG_ULOCALE) among the collating names, "NUL" to "DEL". An unknown name
// gives REG_ECOLLATE and returns 0.
template <class CharT>
CharT element(parse_vars<CharT>* v, const CharT* startp, const CharT* endp);

// The members of `[= c =]`: `c` itself, or all its cases with `cases`.
// Under REG_FAKE, `x` stands for x and y (and X and Y with `cases`).
template <class CharT>
cvec<CharT>* eclass(parse_vars<CharT>* v, CharT c, bool cases);

// The members of the class named `startp`..`endp`; with `cases`, "lower"
// and "upper" mean "alpha". An unknown name gives REG_ECTYPE; "ascii"
// exists only in wide text.
template <class CharT>
cvec<CharT>* cclass(parse_vars<CharT>* v, const CharT* startp, const CharT* endp, bool cases);

// The range a..b, compared as CharT (signed in narrow text, so [\x80-\xff]
// is -128..-1 and [a-\xff] is reversed): REG_ERANGE when a > b. With
// `cases`, every character and its case variants, one by one.
template <class CharT>
cvec<CharT>* range(parse_vars<CharT>* v, CharT a, CharT b, bool cases);

// `c` in every case: its lower-case form, its upper-case form when
// different, and in wide text its title-case form when different again.
template <class CharT>
cvec<CharT>* allcases(parse_vars<CharT>* v, CharT c);

// ---- back-reference comparators --------------------------------------------

// 0 when the `length` characters at `a` and `b` are equal, exactly or
// regardless of case; non-zero otherwise. They fit `string_compare`.
template <class CharT>
int cmp(const CharT* a, const CharT* b, size_t length);
template <class CharT>
int casecmp(const CharT* a, const CharT* b, size_t length);

}  // namespace Orlo::IMPL::re

#endif  // ORLO_SRC_REGEX_CLASSES_H

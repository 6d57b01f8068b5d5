// The engine's private data model, shared by its stages.
//
// How the engine works, in one paragraph. The lexer (lexer.cpp) reads the
// pattern into tokens; the parser (parser.cpp) builds, at the same time, one
// mutable NFA of states and arcs (nfa.cpp) over colours rather than
// characters, and a small tree of `subre` nodes recording only what an
// automaton cannot answer by itself: capturing groups, back references, and
// changes of preference between longer and shorter matches. A colour
// (colormap.cpp) names a set of characters that the pattern cannot tell
// apart, so arcs stay few whatever the classes. After parsing, every piece
// that matching needs is copied into an NFA of its own, optimised, and
// flattened into a read-only `cnfa`. Matching (dfa.cpp) walks a cnfa as a
// lazily built DFA with a bounded cache of state sets; the match driver
// (exec.cpp) finds the leftmost match with the search automaton, settles its
// end with the root automaton, and only when groups are wanted walks the tree
// to place them — retrying, with a small memory, when back references force
// it.
//
// Everything is one body of code over the character type, instantiated for
// char (signed; a one-level 256-entry colour map; 8-bit token values) and
// wchar_t (a two-level map over the low 16 bits). All allocation is malloc,
// realloc and free; a failure sets REG_ESPACE and is never thrown. The first
// error wins, and setting one also ends the token stream, so that every
// stage winds down to the single clean-up of engine_compile.
//
// Implementation details only, past this point.

#ifndef ORLO_SRC_REGEX_GUTS_H
#define ORLO_SRC_REGEX_GUTS_H

#include <cstddef>
#include <cstdint>

#include "orlo/regex_engine.h"

namespace Orlo::IMPL::re {

// ---- colours ------------------------------------------------------------------------

using color = int16_t;
inline constexpr color WHITE = 0;       // initial colour of every character
inline constexpr color COLORLESS = -1;  // no colour
inline constexpr color NOSUB = COLORLESS;

struct arc;

struct colordesc {
    size_t nchrs;  // characters of this colour
    color sub;     // open sub-colour, or NOSUB; while free, the free-list link (0 = end)
    arc* arcs;     // chain of NFA arcs of this colour
    int flags;     // FREECOL, PSEUDO
    color* block;  // wide: solid leaf of this colour (WHITE's is the fill leaf), or null
};
inline constexpr int FREECOL = 1;  // slot is on the free list
inline constexpr int PSEUDO = 2;   // stands for no character

template <class CharT>
struct parse_vars;

// Character domain of the map and its shape, per instantiation.
template <class CharT>
struct map_shape;
template <>
struct map_shape<char> {
    static constexpr size_t domain = 256;
    static constexpr int levels = 1;
};
template <>
struct map_shape<wchar_t> {
    static constexpr size_t domain = 65536;
    static constexpr int levels = 2;
};

inline constexpr int CMMAGIC = 0x876;
inline constexpr size_t NINLINECDS = 10;
inline constexpr size_t BYTTAB = 256;  // entries of one map level

// Narrow: one level of 256 colours. Wide: 256 pointers (bits 8-15) to
// leaves of 256 colours (bits 0-7). A leaf is either private to one pointer,
// or the solid block of its colour (every entry that colour), which any
// number of pointers may share; the fill leaf is WHITE's solid block. A
// shared leaf is copied before it is written.
template <class CharT>
struct colormap_tree;
template <>
struct colormap_tree<char> {
    color ccolor[BYTTAB];
};
template <>
struct colormap_tree<wchar_t> {
    color* ptr[BYTTAB];
    color fill[BYTTAB];  // the shared fill leaf, all WHITE
};

template <class CharT>
struct colormap {
    int magic;
    parse_vars<CharT>* v;  // where errors are reported
    size_t ncds;           // slots of cd
    size_t max;            // highest colour in use
    color free;            // head of the free list, 0 = empty
    colordesc* cd;
    colordesc cdspace[NINLINECDS];
    colormap_tree<CharT> tree;
};

// The map lookup: the inner loop of matching.
inline color getcolor(const colormap<char>* cm, char c) {
    return cm->tree.ccolor[static_cast<unsigned char>(c)];
}
inline color getcolor(const colormap<wchar_t>* cm, wchar_t c) {
    uint32_t u = static_cast<uint32_t>(c);
    return cm->tree.ptr[(u >> 8) & 0xff][u & 0xff];
}

// Characters and ranges of one bracket item, handed to the arc builder.
template <class CharT>
struct cvec {
    int nchrs;
    int chrspace;
    CharT* chrs;
    int nranges;
    int rangespace;
    CharT* ranges;  // pairs: low, high
    int nmcces;     // multi-character elements: always empty here
    int mccespace;
    int nmccechrs;
    CharT** mcces;
};

// ---- NFA ------------------------------------------------------------------------------

inline constexpr int PLAIN = 'p';
inline constexpr int AHEAD = 'a';
inline constexpr int BEHIND = 'r';
inline constexpr int LACON = 'L';
inline constexpr int EMPTY = 'n';  // also the lexer's "before the first token"

struct state;

// Only the top NFA of a compilation links PLAIN, AHEAD and BEHIND arcs into
// their colour's chain, so that splitting a colour can find its arcs. All
// three chains are doubly linked: one state or one colour can hold tens of
// thousands of arcs (the start of a long alternation of words), and freeing
// one of them must not walk the others.
struct arc {
    int type;
    color co;  // for LACON: the look-ahead's index
    state* from;
    state* to;
    arc* outchain;       // next out-arc of `from`; also the free chain
    arc* outchainrev;    // previous out-arc of `from`
    arc* inchain;        // next in-arc of `to`
    arc* inchainrev;     // previous in-arc of `to`
    arc* colorchain;     // next arc of the same colour
    arc* colorchainrev;  // previous arc of the same colour
};

inline constexpr int ABSIZE = 10;
struct arcbatch {
    arcbatch* next;
    arc a[ABSIZE];
};

inline constexpr int FREESTATE = -1;  // `no` of a state on the free list

// A state's arcs are its out-arcs: each is allocated from, and returned to,
// the store of its `from` state. `tmp` is null outside a traversal.
struct state {
    int no;     // FREESTATE when free
    char flag;  // '>' pre, '@' post, 0 others
    int nins;
    arc* ins;
    int nouts;
    arc* outs;
    arc* free;   // free arcs of this state
    state* tmp;  // scratch link for traversals
    state* next;
    state* prev;
    arcbatch oas;  // inline batch, used up first
    int noas;      // inline arcs used
};

// `nstates` is the next state number; after `cleanup` it is also the number
// of states, numbered 0 to nstates - 1 in list order.
template <class CharT>
struct nfa {
    state* pre;
    state* init;
    state* final;
    state* post;
    int nstates;
    state* states;
    state* slast;
    state* free;
    colormap<CharT>* cm;
    color bos[2];
    color eos[2];
    parse_vars<CharT>* v;
    re::nfa<CharT>* parent;  // a child keeps no colour chains and owns no pseudo-colours
    long long work;          // a measure of optimisation cost: see newarc
};

// Compact, read-only automaton.
struct carc {
    color co;
    int to;
};

inline constexpr int HASLACONS = 1;
struct cnfa {
    int nstates;  // 0: empty
    int ncolors;
    int flags;
    int pre;
    int post;
    color bos[2];
    color eos[2];
    carc** states;  // per state: header entry, arcs sorted by colour, COLORLESS end
    carc* arcs;
    int fixedlen;  // characters every match has, or -1 when matches differ in length
};

// ---- sub-expression tree ---------------------------------------------------------------

inline constexpr char LONGER = 1;
inline constexpr char SHORTER = 2;
inline constexpr char MIXED = 4;
inline constexpr char CAP = 8;
inline constexpr char BACKR = 0x10;
inline constexpr char INUSE = 0x40;

constexpr int UP(int f) {
    return (f & ~(LONGER | SHORTER)) | (((f & LONGER) && (f & SHORTER)) ? MIXED : 0);
}
constexpr bool MESSY(int f) {
    return (f & (MIXED | CAP | BACKR)) != 0;
}
constexpr int PREF(int f) {
    return f & (LONGER | SHORTER);
}
constexpr int COMBINE(int f1, int f2) {
    return UP(f1 | f2) | (PREF(f1) ? PREF(f1) : PREF(f2));
}

inline constexpr int DUPMAX = 255;
inline constexpr int DUPINF = DUPMAX + 1;

struct subre {
    char op;  // '|', '.', 'b', '(', '='
    char flags;
    int16_t retry;
    int subno;
    int16_t min;
    int16_t max;
    subre* left;  // also the free-list link
    subre* right;
    state* begin;
    state* end;
    re::cnfa cnfa;  // its compact automaton; nstates 0 until built
    subre* chain;   // all nodes ever allocated
};

// ---- the compiled form -------------------------------------------------------------------

inline constexpr int GUTSMAGIC = 0xfed9;

template <class CharT>
using string_compare = int (*)(const CharT* a, const CharT* b, size_t length);

template <class CharT>
struct guts {
    int magic;
    int cflags;
    long info;
    size_t nsub;
    subre* tree;
    cnfa search;
    int ntree;
    colormap<CharT> cmap;
    string_compare<CharT> compare;
    subre* lacons;
    int nlacons;
    uint64_t serial;  // unique per compilation in this process; names it to the DFA keeper
};

// ---- compile state -----------------------------------------------------------------------

inline constexpr int NINLINESUBS = 10;

template <class CharT>
struct parse_vars {
    regex_t* re;
    const CharT* now;
    const CharT* stop;
    const CharT* savenow;
    const CharT* savestop;
    int err;
    int cflags;
    int lasttype;
    int nexttype;
    CharT nextvalue;  // narrow: 8 bits, so large numeric escapes are cut
    int lexcon;
    int nsubexp;
    subre** subs;
    size_t nsubs;
    subre* sub10[NINLINESUBS];
    re::nfa<CharT>* nfa;
    colormap<CharT>* cm;
    color nlcolor;
    state* wordchars;
    subre* tree;
    subre* treechain;
    subre* treefree;
    int ntree;
    cvec<CharT>* cv;
    cvec<CharT>* cv2;
    cvec<CharT>* mcces;
    subre* lacons;
    int nlacons;
    int depth;        // parse functions active, against kMaxParseDepth
    long statesMade;  // by all automata of this compilation, against kMaxStatesMade
    long statesHeld;  // allocated and not yet freed, against kMaxStatesHeld
};

// Records the first error and ends the token stream.
template <class CharT>
inline void set_error(parse_vars<CharT>* v, int code) {
    if (v->err == REG_OKAY) v->err = code;
    v->nexttype = 'e';  // EOS
}
template <class CharT>
inline bool has_error(const parse_vars<CharT>* v) {
    return v->err != REG_OKAY;
}
template <class CharT>
inline void note(parse_vars<CharT>* v, long bit) {
    v->re->re_info |= bit;
}

}  // namespace Orlo::IMPL::re

#endif  // ORLO_SRC_REGEX_GUTS_H

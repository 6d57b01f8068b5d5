// The parser and the sub-expression tree; see parser.h for the design.
//
// Two conventions run through this file. Each atom is written between the
// states `lp` and `rp` it is given, and a branch keeps appending atoms by
// moving the in-arcs of its right state to a fresh state, so the atoms so far
// always end where the next one begins. And every colour-splitting group of
// calls (`subcolor`, `dovec`) is closed by `okcolors` before any other arc is
// drawn, including a single plain character, because older arcs of the split
// colours are only repaired there.

#include "regex/parser.h"
#include "regex/alloc.h"

#include <cstdlib>
#include <cstring>

#include "regex/classes.h"
#include "regex/colormap.h"
#include "regex/lexer.h"
#include "regex/nfa.h"

namespace Orlo::IMPL::re {

namespace {

template <class CharT>
bool at(const parse_vars<CharT>* v, int token) {
    return v->nexttype == token;
}

// The end of a branch: the tokens that no atom starts with.
template <class CharT>
bool at_branch_end(const parse_vars<CharT>* v, int stopper) {
    return at(v, BAR) || at(v, stopper) || at(v, EOS);
}

template <class CharT>
bool icase(const parse_vars<CharT>* v) {
    return (v->cflags & REG_ICASE) != 0;
}

// ---- tree node release -------------------------------------------------------

template <class CharT>
void free_subre_node(parse_vars<CharT>* v, subre* sr) {
    if (sr->cnfa.nstates) freecnfa(&sr->cnfa);
    sr->flags = 0;
    if (!v) {
        std::free(sr);
        return;
    }
    sr->left = v->treefree;
    sr->right = nullptr;
    v->treefree = sr;
}

// ---- group table ---------------------------------------------------------------

// Makes room for slot `subno`, growing by half plus one each time; the
// first growth leaves the inline array.
template <class CharT>
bool make_room_for_group(parse_vars<CharT>* v, size_t subno) {
    while (subno >= v->nsubs) {
        size_t n = (v->nsubs * 3) / 2 + 1;
        subre** grown;
        if (v->subs == v->sub10) {
            grown = static_cast<subre**>(re_malloc(n * sizeof(subre*)));
            if (grown) std::memcpy(grown, v->subs, v->nsubs * sizeof(subre*));
        } else {
            grown = static_cast<subre**>(re_realloc(v->subs, n * sizeof(subre*)));
        }
        if (!grown) {
            set_error(v, REG_ESPACE);
            return false;
        }
        for (size_t i = v->nsubs; i < n; ++i)
            grown[i] = nullptr;
        v->subs = grown;
        v->nsubs = n;
    }
    return true;
}

// ---- brackets ------------------------------------------------------------------

inline constexpr int kMaxItemName = 64;

// The text of a `[. .]`, `[= =]` or `[: :]` item, whose opening token is
// current: its characters up to the END token, which is taken. Returns the
// length; `too_long` when it overflowed `name` (the item is then unknown).
template <class CharT>
int read_item_name(parse_vars<CharT>* v, CharT (&name)[kMaxItemName], bool& too_long) {
    int length = 0;
    too_long = false;
    next_token(v);
    while (at(v, PLAIN)) {
        if (length < kMaxItemName)
            name[length++] = v->nextvalue;
        else
            too_long = true;
        next_token(v);
    }
    if (has_error(v)) return 0;
    if (!at(v, END)) {
        set_error(v, REG_ASSERT);
        return 0;
    }
    next_token(v);
    return length;
}

// A range end point: a plain character or a collating element.
template <class CharT>
bool read_range_point(parse_vars<CharT>* v, CharT& c) {
    if (at(v, PLAIN)) {
        c = v->nextvalue;
        next_token(v);
        return true;
    }
    if (!at(v, COLLEL)) {
        set_error(v, REG_ERANGE);
        return false;
    }
    CharT name[kMaxItemName];
    bool too_long;
    int length = read_item_name(v, name, too_long);
    if (has_error(v)) return false;
    if (too_long) {
        set_error(v, REG_ECOLLATE);
        return false;
    }
    c = element(v, name, name + length);
    return !has_error(v);
}

// A set item (`[= =]` or `[: :]`): its members, which cannot bound a range.
template <class CharT>
void set_item(parse_vars<CharT>* v, state* lp, state* rp) {
    bool is_class = at(v, CCLASS);
    CharT name[kMaxItemName];
    bool too_long;
    int length = read_item_name(v, name, too_long);
    if (has_error(v)) return;
    if (too_long) {
        set_error(v, is_class ? REG_ECTYPE : REG_ECOLLATE);
        return;
    }
    cvec<CharT>* cv;
    if (is_class) {
        cv = cclass(v, name, name + length, icase(v));
    } else {
        CharT c = element(v, name, name + length);
        if (has_error(v)) return;
        cv = eclass(v, c, icase(v));
    }
    if (!cv) return;
    dovec(v, cv, lp, rp);
    if (at(v, RANGE)) set_error(v, REG_ERANGE);
}

// One character, in all its cases when case is ignored. Within a bracket
// the caller closes the colours; elsewhere `okcolors` follows at once.
template <class CharT>
void one_character(parse_vars<CharT>* v, CharT c, state* lp, state* rp) {
    if (icase(v)) {
        cvec<CharT>* cv = allcases(v, c);
        if (cv) dovec(v, cv, lp, rp);
        return;
    }
    newarc(v->nfa, PLAIN, subcolor(v->cm, c), lp, rp);
}

// One bracket item: a character, a range, a collating element, an
// equivalence class or a named class.
template <class CharT>
void brackpart(parse_vars<CharT>* v, state* lp, state* rp) {
    if (at(v, ECLASS) || at(v, CCLASS)) {
        set_item(v, lp, rp);
        return;
    }
    CharT first;
    if (at(v, RANGE)) {
        set_error(v, REG_ERANGE);  // a second hyphen, as in [a-c-e]
        return;
    }
    if (!at(v, PLAIN) && !at(v, COLLEL)) {
        set_error(v, REG_ASSERT);
        return;
    }
    if (!read_range_point(v, first)) return;
    if (!at(v, RANGE)) {
        one_character(v, first, lp, rp);
        return;
    }
    next_token(v);
    CharT last;
    if (!read_range_point(v, last)) return;
    cvec<CharT>* cv = range(v, first, last, icase(v));
    if (cv) dovec(v, cv, lp, rp);
}

// The items of a bracket whose `[` has been taken, up to its close, which
// stays current; the colours are closed at the end.
template <class CharT>
void bracket(parse_vars<CharT>* v, state* lp, state* rp) {
    while (!at(v, BRACKET_CLOSE) && !at(v, EOS))
        brackpart(v, lp, rp);
    okcolors(v->nfa, v->cm);
}

// `[^...]`: the items are drawn aside, and the arcs go to every colour they
// miss. Newline joins the items under REG_NLSTOP so that it is missed too.
template <class CharT>
void complemented_bracket(parse_vars<CharT>* v, state* lp, state* rp) {
    state* left = newstate(v->nfa);
    state* right = newstate(v->nfa);
    if (has_error(v)) return;
    bracket(v, left, right);
    if (v->cflags & REG_NLSTOP) newarc(v->nfa, PLAIN, v->nlcolor, left, right);
    colorcomplement(v->nfa, v->cm, PLAIN, left, lp, rp);
    dropstate(v->nfa, left);
    dropstate(v->nfa, right);
}

// ---- word boundaries ------------------------------------------------------------

// Builds, once per compilation, a bracket of the word characters whose left
// state serves as the model for every word test. The nested read takes the
// place of the current (word-test) token, so that token counts as taken.
template <class CharT>
void take_word_token(parse_vars<CharT>* v) {
    if (v->wordchars) {
        next_token(v);
        return;
    }
    state* left = newstate(v->nfa);
    state* right = newstate(v->nfa);
    if (has_error(v)) return;
    lexword(v);
    next_token(v);
    if (!at(v, BRACKET_OPEN)) {
        set_error(v, REG_ASSERT);
        return;
    }
    next_token(v);
    bracket(v, left, right);
    if (!at(v, BRACKET_CLOSE)) {
        set_error(v, REG_ASSERT);
        return;
    }
    next_token(v);
    v->wordchars = left;
}

// `dir` arcs (AHEAD or BEHIND) from lp to rp for the word characters.
template <class CharT>
void word(parse_vars<CharT>* v, int dir, state* lp, state* rp) {
    if (has_error(v)) return;
    for (const arc* a = v->wordchars->outs; a; a = a->outchain)
        newarc(v->nfa, dir, a->co, lp, rp);
}

// The same for the other characters and for the string's edge, which counts
// as a non-word neighbour.
template <class CharT>
void nonword(parse_vars<CharT>* v, int dir, state* lp, state* rp) {
    if (has_error(v)) return;
    colorcomplement(v->nfa, v->cm, dir, v->wordchars, lp, rp);
    int edge = dir == AHEAD ? '$' : '^';
    newarc(v->nfa, edge, 0, lp, rp);
    newarc(v->nfa, edge, 1, lp, rp);
}

// One path lp -> s -> rp: `behind_word` chooses the test of the previous
// character, `ahead_word` that of the next.
template <class CharT>
void word_transition(parse_vars<CharT>* v, bool behind_word, bool ahead_word, state* lp,
                     state* rp) {
    state* s = newstate(v->nfa);
    if (!s) return;
    if (behind_word)
        word(v, BEHIND, lp, s);
    else
        nonword(v, BEHIND, lp, s);
    if (ahead_word)
        word(v, AHEAD, s, rp);
    else
        nonword(v, AHEAD, s, rp);
}

template <class CharT>
void word_constraint(parse_vars<CharT>* v, int token, state* lp, state* rp) {
    take_word_token(v);
    if (has_error(v)) return;
    switch (token) {
        case WORD_START:
            word_transition(v, false, true, lp, rp);
            break;
        case WORD_END:
            word_transition(v, true, false, lp, rp);
            break;
        case WBDRY:
            word_transition(v, false, true, lp, rp);
            word_transition(v, true, false, lp, rp);
            break;
        default:  // NWBDRY
            word_transition(v, true, true, lp, rp);
            word_transition(v, false, false, lp, rp);
            break;
    }
}

// ---- constraints -----------------------------------------------------------------

// A look-ahead: its fragment stays in the NFA, off the main path, and is
// named by an LACON arc through its index in `v->lacons` (entry 0 unused).
template <class CharT>
void lookahead(parse_vars<CharT>* v, state* lp, state* rp) {
    int polarity = v->nextvalue ? 1 : 0;
    next_token(v);
    state* s = newstate(v->nfa);
    state* s2 = newstate(v->nfa);
    if (has_error(v)) return;
    subre* sub = parse_alternation(v, GROUP_CLOSE, LACON, s, s2);
    if (sub) freesubre(v, sub);
    if (has_error(v)) return;
    next_token(v);  // the ')'
    int n = v->nlacons ? v->nlacons : 1;
    auto* grown = static_cast<subre*>(re_realloc(v->lacons, size_t(n + 1) * sizeof(subre)));
    if (!grown) {
        set_error(v, REG_ESPACE);
        return;
    }
    v->lacons = grown;
    v->nlacons = n + 1;
    subre& entry = grown[n];
    std::memset(&entry, 0, sizeof entry);
    if (n == 1) std::memset(&grown[0], 0, sizeof grown[0]);
    entry.op = '=';
    entry.min = entry.max = 1;
    entry.begin = s;
    entry.end = s2;
    entry.subno = polarity;
    newarc(v->nfa, LACON, color(n), lp, rp);
}

// The atoms that test a position and consume nothing; they take their
// token and never carry a quantifier. False when the token is none of them.
template <class CharT>
bool constraint(parse_vars<CharT>* v, state* lp, state* rp) {
    re::nfa<CharT>* nfa = v->nfa;
    bool newline_anchors = (v->cflags & REG_NLANCH) != 0;
    switch (v->nexttype) {
        case CARET:
            newarc(nfa, '^', 1, lp, rp);
            if (newline_anchors) newarc(nfa, BEHIND, v->nlcolor, lp, rp);
            break;
        case DOLLAR:
            newarc(nfa, '$', 1, lp, rp);
            if (newline_anchors) newarc(nfa, AHEAD, v->nlcolor, lp, rp);
            break;
        case SBEGIN:
            newarc(nfa, '^', 1, lp, rp);
            newarc(nfa, '^', 0, lp, rp);
            break;
        case SEND:
            newarc(nfa, '$', 1, lp, rp);
            newarc(nfa, '$', 0, lp, rp);
            break;
        case WORD_START:
        case WORD_END:
        case WBDRY:
        case NWBDRY:
            word_constraint(v, v->nexttype, lp, rp);
            return true;
        case LACON:
            lookahead(v, lp, rp);
            return true;
        default:
            return false;
    }
    next_token(v);
    return true;
}

// ---- atoms -------------------------------------------------------------------------

enum class atom_kind { plain, capture, backref };

struct atom_result {
    subre* atom = nullptr;  // null for an atom the NFA alone describes
    atom_kind kind = atom_kind::plain;
};

template <class CharT>
atom_result group(parse_vars<CharT>* v, int type, state* lp, state* rp) {
    atom_result result;
    bool capturing = type != LACON && v->nextvalue != 0;
    int subno = 0;
    if (capturing) {
        subno = v->nsubexp + 1;
        if (!make_room_for_group(v, size_t(subno))) return result;
        v->nsubexp = subno;
    }
    next_token(v);
    state* s = newstate(v->nfa);
    state* s2 = newstate(v->nfa);
    if (has_error(v)) return result;
    newarc(v->nfa, EMPTY, 0, lp, s);
    newarc(v->nfa, EMPTY, 0, s2, rp);
    subre* tree = parse_alternation(v, GROUP_CLOSE, type, s, s2);
    if (has_error(v)) return result;
    next_token(v);  // the ')'
    if (!capturing) {
        result.atom = tree;
        return result;
    }
    subre* cap = new_subre(v, '(', tree->flags | CAP, lp, rp);
    if (!cap) return result;
    cap->subno = subno;
    cap->left = tree;
    v->subs[subno] = cap;
    result.atom = cap;
    result.kind = atom_kind::capture;
    return result;
}

// A group may be referred to only once it is complete, hence the null test:
// `(a\1)` refers to an unfinished group. Narrow numbers may arrive <= 0.
template <class CharT>
atom_result backref(parse_vars<CharT>* v, int type, state* lp, state* rp) {
    atom_result result;
    int n = int(v->nextvalue);
    if (type == LACON || n < 1 || size_t(n) >= v->nsubs || !v->subs[n]) {
        set_error(v, REG_ESUBREG);
        return result;
    }
    subre* ref = new_subre(v, 'b', BACKR, lp, rp);
    if (!ref) return result;
    ref->subno = n;
    newarc(v->nfa, EMPTY, 0, lp, rp);  // placeholder until the quantifier is known
    next_token(v);
    result.atom = ref;
    result.kind = atom_kind::backref;
    return result;
}

template <class CharT>
void bracket_atom(parse_vars<CharT>* v, state* lp, state* rp) {
    bool complemented = v->nextvalue == 0;
    next_token(v);
    if (complemented)
        complemented_bracket(v, lp, rp);
    else
        bracket(v, lp, rp);
    if (at(v, BRACKET_CLOSE)) next_token(v);
}

template <class CharT>
void plain_atom(parse_vars<CharT>* v, CharT c, state* lp, state* rp) {
    one_character(v, c, lp, rp);
    okcolors(v->nfa, v->cm);
    next_token(v);
}

// The atom at the current token, drawn between lp and rp. With an error
// pending the result is empty.
template <class CharT>
atom_result atom(parse_vars<CharT>* v, int type, state* lp, state* rp) {
    switch (v->nexttype) {
        case GROUP_OPEN:
            return group(v, type, lp, rp);
        case BACKREF:
            return backref(v, type, lp, rp);
        case BRACKET_OPEN:
            bracket_atom(v, lp, rp);
            break;
        case DOT:
            rainbow(v->nfa, v->cm, PLAIN, (v->cflags & REG_NLSTOP) ? v->nlcolor : COLORLESS, lp,
                    rp);
            next_token(v);
            break;
        case PLAIN:
            plain_atom(v, v->nextvalue, lp, rp);
            break;
        case GROUP_CLOSE:
            // Only plain extended syntax forgives a stray ')'.
            if ((v->cflags & REG_ADVANCED) != REG_EXTENDED) {
                set_error(v, REG_EPAREN);
                break;
            }
            note(v, REG_UPBOTCH);
            plain_atom(v, CharT(')'), lp, rp);
            break;
        case STAR:
        case PLUS:
        case QUESTION:
        case BOUND_OPEN:
            set_error(v, REG_BADRPT);
            break;
        default:
            set_error(v, REG_ASSERT);
            break;
    }
    return {};
}

// ---- quantifiers -------------------------------------------------------------------

struct quantifier {
    int m = 1;
    int n = 1;
    int qprefer = 0;
};

// A bound's count: digits while the value is below the largest bound, so
// that one digit too many, or a value above it, is REG_BADBR.
template <class CharT>
int bound_count(parse_vars<CharT>* v) {
    int n = 0;
    while (at(v, DIGIT) && n < DUPMAX) {
        n = n * 10 + int(v->nextvalue);
        next_token(v);
    }
    if (at(v, DIGIT) || n > DUPMAX) set_error(v, REG_BADBR);
    return n;
}

// `{m}`, `{m,}` or `{m,n}` after the `{`. The preference is read off the
// close; in basic syntax `\}` has no value of its own and still holds the
// last digit, so a bound ending in 0 prefers the shorter match.
template <class CharT>
void bound(parse_vars<CharT>* v, quantifier& q) {
    next_token(v);
    q.m = bound_count(v);
    q.n = q.m;
    bool ranged = at(v, COMMA);
    if (ranged) {
        next_token(v);
        q.n = at(v, DIGIT) ? bound_count(v) : DUPINF;
        if (q.m > q.n) set_error(v, REG_BADBR);
    }
    if (has_error(v)) return;
    if (!at(v, BOUND_CLOSE)) {
        set_error(v, REG_BADBR);
        return;
    }
    if (ranged) q.qprefer = v->nextvalue ? LONGER : SHORTER;
    next_token(v);
}

template <class CharT>
quantifier read_quantifier(parse_vars<CharT>* v) {
    quantifier q;
    int prefer = v->nextvalue ? LONGER : SHORTER;
    switch (v->nexttype) {
        case STAR:
            q = {0, DUPINF, prefer};
            break;
        case PLUS:
            q = {1, DUPINF, prefer};
            break;
        case QUESTION:
            q = {0, 1, prefer};
            break;
        case BOUND_OPEN:
            bound(v, q);
            return q;
        default:
            return q;
    }
    next_token(v);
    return q;
}

// `x{0}`: the atom is gone, but a capturing group keeps its number.
template <class CharT>
void remove_atom(parse_vars<CharT>* v, const atom_result& a, state* lp, state* rp) {
    if (a.atom) {
        if (a.kind == atom_kind::capture) v->subs[a.atom->subno] = nullptr;
        freesubre(v, a.atom);
    }
    delsub(v->nfa, lp, rp);
    newarc(v->nfa, EMPTY, 0, lp, rp);
}

// The messy form: the atom gets a node of its own, the branch splits at it,
// and a repeated atom becomes copies that only match, followed by the one
// that captures, so that groups report their last iteration.
template <class CharT>
void messy_quantified_atom(parse_vars<CharT>* v, int stopper, int type, state* lp, state* rp,
                           subre* top, atom_result a, quantifier q) {
    re::nfa<CharT>* nfa = v->nfa;
    subre* atom = a.atom ? a.atom : new_subre(v, '=', 0, lp, rp);
    state* atom_begin = newstate(nfa);
    state* atom_end = newstate(nfa);
    state* s = newstate(nfa);   // start of the copies that only match
    state* s2 = newstate(nfa);  // start of the bypass when m is 0
    if (has_error(v)) return;
    moveouts(nfa, lp, atom_begin);
    moveins(nfa, rp, atom_end);
    atom->begin = atom_begin;
    atom->end = atom_end;
    newarc(nfa, EMPTY, 0, lp, s);
    newarc(nfa, EMPTY, 0, lp, s2);

    subre* t = new_subre(v, '.', COMBINE(q.qprefer, atom->flags), lp, rp);
    subre* before = new_subre(v, '=', top->flags, top->begin, lp);
    if (has_error(v)) return;
    t->left = atom;
    top->op = '.';
    top->left = before;
    top->right = t;
    subre** atom_slot = &t->left;

    if (a.kind == atom_kind::backref) {
        // The group is complete, and the rest of the pattern is not yet
        // drawn, so its fragment copies cleanly.
        delsub(nfa, atom->begin, atom->end);
        subre* group_node = v->subs[atom->subno];
        dupnfa(nfa, group_node->begin, group_node->end, atom->begin, atom->end);
    }

    if (q.m == 0) {
        newarc(nfa, EMPTY, 0, s2, atom->end);
        int f = COMBINE(q.qprefer, atom->flags);
        subre* alt = new_subre(v, '|', f, lp, atom->end);
        subre* bypass = new_subre(v, '|', PREF(f), s2, atom->end);
        subre* leaf = new_subre(v, '=', PREF(f), s2, atom->end);
        if (has_error(v)) return;
        alt->left = atom;
        alt->right = bypass;
        bypass->left = leaf;
        *atom_slot = alt;
        atom_slot = &alt->left;
        q.m = 1;
    }

    if (a.kind == atom_kind::backref) {
        newarc(nfa, EMPTY, 0, s, atom->begin);
        repeat(v, atom->begin, atom->end, q.m, q.n);
        atom->min = int16_t(q.m);
        atom->max = int16_t(q.n);
        atom->flags |= COMBINE(q.qprefer, atom->flags);
    } else if (q.m == 1 && q.n == 1) {
        newarc(nfa, EMPTY, 0, s, atom->begin);
    } else {
        dupnfa(nfa, atom->begin, atom->end, s, atom->begin);
        repeat(v, s, atom->begin, q.m - 1, q.n == DUPINF ? q.n : q.n - 1);
        int f = COMBINE(q.qprefer, atom->flags);
        subre* copies = new_subre(v, '.', f, s, atom->end);
        subre* leaf = new_subre(v, '=', PREF(f), s, atom->begin);
        if (has_error(v)) return;
        copies->left = leaf;
        copies->right = atom;
        *atom_slot = copies;
    }

    if (!at_branch_end(v, stopper)) {
        t->right = parse_branch(v, stopper, type, atom->end, rp, true);
    } else {
        newarc(nfa, EMPTY, 0, atom->end, rp);
        t->right = new_subre(v, '=', 0, atom->end, rp);
    }
    if (has_error(v)) return;
    t->flags |= COMBINE(t->flags, t->right->flags);
    top->flags |= COMBINE(top->flags, t->flags);
}

}  // namespace

// ---- the grammar ---------------------------------------------------------------------

// How deep the parse may nest (groups inside groups, and the rest of a
// branch behind each group) before it gives up with REG_ESPACE, and how
// many alternatives a kept alternation may chain: far beyond real
// patterns, and well within a thread's stack for the walks that follow.
inline constexpr int kMaxParseDepth = 10000;

template <class CharT>
class depth_guard {
  public:
    explicit depth_guard(parse_vars<CharT>* v) : m_v(v) {
        if (++m_v->depth > kMaxParseDepth) set_error(m_v, REG_ESPACE);
    }
    ~depth_guard() { --m_v->depth; }
    depth_guard(const depth_guard&) = delete;
    depth_guard& operator=(const depth_guard&) = delete;

  private:
    parse_vars<CharT>* m_v;
};

namespace {
// Each node of an alternation chain stands for the alternatives from its
// own to the last, so besides its own flags it carries those of every node
// after it. The chain is read holding each node's own flags only, and this
// one walk adds the rest: a flag goes to every node up to the last one that
// has it. (Adding each node's flags to all earlier nodes as it is read
// would cost time quadratic in the number of alternatives.)
void spread_flags_back(subre* head) {
    constexpr int kFlagBits = 8;
    const subre* last_with[kFlagBits] = {};
    for (const subre* node = head; node; node = node->right)
        for (int bit = 0; bit < kFlagBits; ++bit)
            if (static_cast<unsigned char>(node->flags) & (1u << bit)) last_with[bit] = node;
    unsigned pending = 0;
    for (int bit = 0; bit < kFlagBits; ++bit)
        if (last_with[bit]) pending |= 1u << bit;
    for (subre* node = head; node && pending; node = node->right) {
        node->flags = char(static_cast<unsigned char>(node->flags) | pending);
        for (int bit = 0; bit < kFlagBits; ++bit)
            if (last_with[bit] == node) pending &= ~(1u << bit);
    }
}
}  // namespace

template <class CharT>
subre* parse_alternation(parse_vars<CharT>* v, int stopper, int type, state* init, state* final) {
    depth_guard<CharT> guard(v);
    if (has_error(v)) return nullptr;
    subre* head = new_subre(v, '|', LONGER, init, final);
    int alternatives = 1;
    if (!head) return nullptr;
    for (subre* node = head;;) {
        state* left = newstate(v->nfa);
        state* right = newstate(v->nfa);
        if (has_error(v)) return nullptr;
        newarc(v->nfa, EMPTY, 0, init, left);
        newarc(v->nfa, EMPTY, 0, right, final);
        node->left = parse_branch(v, stopper, type, left, right, false);
        if (has_error(v)) return nullptr;
        node->flags |= UP(node->flags | node->left->flags);
        if (!at(v, BAR)) break;
        next_token(v);
        node->right = new_subre(v, '|', LONGER, init, final);
        node = node->right;
        if (!node) return nullptr;
        ++alternatives;
    }
    if (!at(v, stopper)) {
        set_error(v, REG_EPAREN);
        return nullptr;
    }
    if (!head->right) {
        subre* branch = head->left;
        free_subre_node(v, head);
        return branch;
    }
    spread_flags_back(head);
    if (!MESSY(head->flags)) {
        // The automaton alone can tell the alternatives apart.
        freesubre(v, head->left);
        freesubre(v, head->right);
        head->left = head->right = nullptr;
        head->op = '=';
    } else if (alternatives > kMaxParseDepth) {
        set_error(v, REG_ESPACE);
        return nullptr;
    }
    return head;
}

template <class CharT>
subre* parse_branch(parse_vars<CharT>* v, int stopper, int type, state* left, state* right,
                    bool partial) {
    depth_guard<CharT> guard(v);
    if (has_error(v)) return nullptr;
    subre* t = new_subre(v, '=', 0, left, right);
    if (!t) return nullptr;
    bool first = true;
    while (!at_branch_end(v, stopper)) {
        state* lp = left;
        if (!first) {
            lp = newstate(v->nfa);
            if (!lp) return nullptr;
            moveins(v->nfa, right, lp);
        }
        first = false;
        parse_quantified_atom(v, stopper, type, lp, right, t);
    }
    if (has_error(v)) return nullptr;
    if (first) {
        newarc(v->nfa, EMPTY, 0, left, right);
        if (!partial) note(v, REG_UUNSPEC);
    }
    return t;
}

template <class CharT>
void parse_quantified_atom(parse_vars<CharT>* v, int stopper, int type, state* lp, state* rp,
                           subre* top) {
    if (constraint(v, lp, rp)) return;
    atom_result a = atom(v, type, lp, rp);
    if (has_error(v)) return;
    quantifier q = read_quantifier(v);
    if (has_error(v)) return;
    if (q.m == 0 && q.n == 0) {
        remove_atom(v, a, lp, rp);
        return;
    }
    int f = top->flags | q.qprefer | (a.atom ? a.atom->flags : 0);
    if (a.kind == atom_kind::plain && !MESSY(UP(f))) {
        // The common case: the automaton says it all, and the tree stays.
        if (q.m != 1 || q.n != 1) repeat(v, lp, rp, q.m, q.n);
        if (a.atom) freesubre(v, a.atom);
        top->flags = char(f);
        return;
    }
    messy_quantified_atom(v, stopper, type, lp, rp, top, a, q);
}

namespace {
// Bounds reduced to the cases `repeat` tells apart.
inline constexpr int kNone = 0, kOne = 1, kSome = 2, kInf = 3;

int reduce_bound(int x) {
    if (x == DUPINF) return kInf;
    return x > 1 ? kSome : x;
}

constexpr int pair_of(int m, int n) {
    return m * 4 + n;
}
}  // namespace

template <class CharT>
void repeat(parse_vars<CharT>* v, state* lp, state* rp, int m, int n) {
    if (has_error(v)) return;
    re::nfa<CharT>* nfa = v->nfa;
    state* s;
    state* s2;
    switch (pair_of(reduce_bound(m), reduce_bound(n))) {
        case pair_of(kNone, kNone):
            delsub(nfa, lp, rp);
            newarc(nfa, EMPTY, 0, lp, rp);
            break;
        case pair_of(kNone, kOne):
            newarc(nfa, EMPTY, 0, lp, rp);
            break;
        case pair_of(kNone, kSome):
            repeat(v, lp, rp, 1, n);
            newarc(nfa, EMPTY, 0, lp, rp);
            break;
        case pair_of(kNone, kInf):
            if (!(s = newstate(nfa))) return;
            moveouts(nfa, lp, s);
            moveins(nfa, rp, s);
            newarc(nfa, EMPTY, 0, lp, s);
            newarc(nfa, EMPTY, 0, s, rp);
            break;
        case pair_of(kOne, kOne):
            break;
        case pair_of(kOne, kSome):
            if (!(s = newstate(nfa))) return;
            moveouts(nfa, lp, s);
            dupnfa(nfa, s, rp, lp, s);
            repeat(v, lp, s, 1, n - 1);
            newarc(nfa, EMPTY, 0, lp, s);
            break;
        case pair_of(kOne, kInf):
            s = newstate(nfa);
            s2 = newstate(nfa);
            if (has_error(v)) return;
            moveouts(nfa, lp, s);
            moveins(nfa, rp, s2);
            newarc(nfa, EMPTY, 0, lp, s);
            newarc(nfa, EMPTY, 0, s2, rp);
            newarc(nfa, EMPTY, 0, s2, s);
            break;
        case pair_of(kSome, kSome):
            if (!(s = newstate(nfa))) return;
            moveouts(nfa, lp, s);
            dupnfa(nfa, s, rp, lp, s);
            repeat(v, lp, s, m - 1, n - 1);
            break;
        case pair_of(kSome, kInf):
            if (!(s = newstate(nfa))) return;
            moveouts(nfa, lp, s);
            dupnfa(nfa, s, rp, lp, s);
            repeat(v, lp, s, m - 1, n);
            break;
        default:
            set_error(v, REG_ASSERT);
            break;
    }
}

// ---- tree nodes ------------------------------------------------------------------------

template <class CharT>
subre* new_subre(parse_vars<CharT>* v, char op, int flags, state* begin, state* end) {
    subre* sr = v->treefree;
    if (sr) {
        v->treefree = sr->left;
    } else {
        sr = static_cast<subre*>(re_malloc(sizeof(subre)));
        if (!sr) {
            set_error(v, REG_ESPACE);
            return nullptr;
        }
        sr->chain = v->treechain;
        v->treechain = sr;
    }
    subre* chain = sr->chain;
    std::memset(static_cast<void*>(sr), 0, sizeof(subre));
    sr->chain = chain;
    sr->op = op;
    sr->flags = char(flags);
    sr->min = sr->max = 1;
    sr->begin = begin;
    sr->end = end;
    return sr;
}

template <class CharT>
void freesubre(parse_vars<CharT>* v, subre* sr) {
    // Along `right` by a loop: an alternation of many branches is a chain
    // as long as they are many; only `left` nests as deep as the pattern.
    while (sr) {
        subre* right = sr->right;
        if (sr->left) freesubre(v, sr->left);
        free_subre_node(v, sr);
        sr = right;
    }
}

namespace {
int number_tree(subre* t, int next) {
    t->retry = int16_t(next++);
    if (t->left) next = number_tree(t->left, next);
    if (t->right) next = number_tree(t->right, next);
    return next;
}

void mark_tree(subre* t) {
    t->flags |= INUSE;
    if (t->left) mark_tree(t->left);
    if (t->right) mark_tree(t->right);
}
}  // namespace

template <class CharT>
void finish_tree(parse_vars<CharT>* v) {
    v->ntree = number_tree(v->tree, 1);
    mark_tree(v->tree);
    subre* kept = nullptr;
    for (subre* sr = v->treechain; sr;) {
        subre* next = sr->chain;
        if (sr->flags & INUSE) {
            sr->chain = kept;
            kept = sr;
        } else {
            if (sr->cnfa.nstates) freecnfa(&sr->cnfa);
            std::free(sr);
        }
        sr = next;
    }
    v->treechain = kept;
    v->treefree = nullptr;
}

template <class CharT>
void free_tree_chain(parse_vars<CharT>* v) {
    for (subre* sr = v->treechain; sr;) {
        subre* next = sr->chain;
        if (sr->cnfa.nstates) freecnfa(&sr->cnfa);
        std::free(sr);
        sr = next;
    }
    v->treechain = nullptr;
    v->treefree = nullptr;
    v->tree = nullptr;
}

// ---- instantiations ----------------------------------------------------------------------
#define ORLO_RE_INSTANTIATE_PARSER(CharT)                                                      \
    template subre* parse_alternation(parse_vars<CharT>*, int, int, state*, state*);           \
    template subre* parse_branch(parse_vars<CharT>*, int, int, state*, state*, bool);          \
    template void parse_quantified_atom(parse_vars<CharT>*, int, int, state*, state*, subre*); \
    template void repeat(parse_vars<CharT>*, state*, state*, int, int);                        \
    template subre* new_subre(parse_vars<CharT>*, char, int, state*, state*);                  \
    template void freesubre(parse_vars<CharT>*, subre*);                                       \
    template void finish_tree(parse_vars<CharT>*);                                             \
    template void free_tree_chain(parse_vars<CharT>*);

ORLO_RE_INSTANTIATE_PARSER(char)
ORLO_RE_INSTANTIATE_PARSER(wchar_t)

#undef ORLO_RE_INSTANTIATE_PARSER

}  // namespace Orlo::IMPL::re

// engine_compile and engine_free: the driver that runs the stages over one
// pattern and hands the result to the caller's regex_t.
//
// Compilation builds everything in a `parse_vars` on its own stack: the
// colour map (inside a freshly allocated `guts`, since the compiled pattern
// keeps it), the top NFA, the working vector, the tree. The parse writes the
// NFA and the tree; the tree is then trimmed to the nodes in use, each node
// and each look-ahead gets its compact automaton, and the top NFA becomes
// the search automaton. Only at the very end are the tree, the look-aheads
// and the counts published into `guts`; until then they belong to the
// `parse_vars`, so one clean-up path can free whatever exists, success or
// not. A failed compilation also releases `re`, which the caller then must
// not release again.

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "regex/alloc.h"
#include "regex/classes.h"
#include "regex/colormap.h"
#include "regex/guts.h"
#include "regex/lexer.h"
#include "regex/nfa.h"
#include "regex/parser.h"

namespace Orlo {

namespace IMPL::re {
namespace {

template <class CharT>
void release(regex_t* re);

template <class CharT>
constexpr regex_fns re_fns = {&release<CharT>};

// The compiled form of `re`, whatever state it is in, back to malloc.
template <class CharT>
void release(regex_t* re) {
    if (!re || re->re_magic != REMAGIC) return;
    re->re_magic = 0;
    auto* g = static_cast<guts<CharT>*>(re->re_guts);
    re->re_guts = nullptr;
    if (!g) return;
    g->magic = 0;
    if (g->tree) freesubre<CharT>(nullptr, g->tree);
    for (int i = 1; i < g->nlacons; ++i)
        if (g->lacons[i].cnfa.nstates) freecnfa(&g->lacons[i].cnfa);
    std::free(g->lacons);
    if (g->search.nstates) freecnfa(&g->search);
    freecm(&g->cmap);
    std::free(g);
}

// Quoted patterns have no syntax for the other switches to modify, and the
// advanced features exist only over extended syntax.
bool valid_flags(int flags) {
    if ((flags & REG_QUOTE) && (flags & (REG_ADVANCED | REG_EXPANDED | REG_NEWLINE))) return false;
    return (flags & REG_ADVANCED) != REG_ADVF;
}

template <class CharT>
void start(parse_vars<CharT>* v, regex_t* re, const CharT* pattern, size_t length, int flags) {
    std::memset(static_cast<void*>(v), 0, sizeof *v);
    v->re = re;
    v->now = pattern;
    v->stop = pattern + length;
    v->err = REG_OKAY;
    v->cflags = flags;
    v->subs = v->sub10;
    v->nsubs = NINLINESUBS;
    v->nlcolor = COLORLESS;
    re->re_magic = REMAGIC;
    re->re_info = 0;
    re->re_csize = int32_t(sizeof(CharT));
    re->re_guts = nullptr;
    re->re_fns = &re_fns<CharT>;
}

// Guts, colour map, NFA and working vector; false with the error set.
template <class CharT>
bool allocate(parse_vars<CharT>* v) {
    auto* g = static_cast<guts<CharT>*>(re_malloc(sizeof(guts<CharT>)));
    if (!g) {
        set_error(v, REG_ESPACE);
        return false;
    }
    std::memset(static_cast<void*>(g), 0, sizeof *g);
    v->re->re_guts = g;
    initcm(v, &g->cmap);
    v->cm = &g->cmap;
    v->nfa = newnfa(v, v->cm, nullptr);
    v->cv = newcvec<CharT>(100, 20, 10);
    if (!v->cv) set_error(v, REG_ESPACE);
    return !has_error(v);
}

// Newline gets a colour of its own whenever a newline rule is in force, so
// that `.`, `[^...]`, `^` and `$` can treat it apart.
template <class CharT>
void colour_newline(parse_vars<CharT>* v) {
    if (!(v->cflags & (REG_NLSTOP | REG_NLANCH))) return;
    v->nlcolor = subcolor(v->cm, CharT('\n'));
    okcolors(v->nfa, v->cm);
}

// ---- progress dumps (REG_PROGRESS) ----------------------------------------------

// A node's name in the dumps: its retry number, or its address before the
// tree is numbered.
void node_id(const subre* t, char* buf, size_t size) {
    if (t->retry)
        std::snprintf(buf, size, "%d", int(t->retry));
    else
        std::snprintf(buf, size, "%p", static_cast<const void*>(t));
}

void dump_node(FILE* f, const subre* t, int depth) {
    char id[32];
    node_id(t, id, sizeof id);
    std::fprintf(f, "%*s%s. `%c'", 2 * depth, "", id, t->op);
    static constexpr struct {
        int flag;
        const char* text;
    } kFlagNames[] = {{LONGER, " longest"},
                      {SHORTER, " shortest"},
                      {MIXED, " hasmixed"},
                      {CAP, " hascapture"},
                      {BACKR, " hasbackref"}};
    for (const auto& f2 : kFlagNames)
        if (t->flags & f2.flag) std::fputs(f2.text, f);
    if (!(t->flags & INUSE)) std::fputs(" UNUSED", f);
    if (t->subno != 0) std::fprintf(f, " (#%d)", t->subno);
    if (t->min != 1 || t->max != 1) {
        std::fprintf(f, " {%d,", int(t->min));
        if (t->max != DUPINF) std::fprintf(f, "%d", int(t->max));
        std::fputc('}', f);
    }
    if (t->cnfa.nstates) std::fprintf(f, " %ld-%ld", long(t->cnfa.pre), long(t->cnfa.post));
    if (t->left) {
        node_id(t->left, id, sizeof id);
        std::fprintf(f, " L:%s", id);
    }
    if (t->right) {
        node_id(t->right, id, sizeof id);
        std::fprintf(f, " R:%s", id);
    }
    std::fputc('\n', f);
    if (t->left) dump_node(f, t->left, depth + 1);
    if (t->right) dump_node(f, t->right, depth + 1);
}

void dump_tree(FILE* f, const char* heading, const subre* tree) {
    if (!f) return;
    std::fprintf(f, "\n\n\n========= %s ==========\n", heading);
    if (tree)
        dump_node(f, tree, 0);
    else
        std::fputs("null tree\n", f);
    std::fflush(f);
}

template <class CharT>
void build_automata(parse_vars<CharT>* v, guts<CharT>* g, FILE* trace) {
    v->re->re_info |= nfatree(v, v->tree, trace);
    for (int i = 1; i < v->nlacons && !has_error(v); ++i) {
        if (trace) std::fprintf(trace, "\n\n\n========= LA%d ==========\n", i);
        nfanode(v, &v->lacons[i], trace);
    }
    if (has_error(v)) return;
    if (v->tree->flags & SHORTER) note(v, REG_USHORTEST);
    if (trace) std::fputs("\n\n\n========= SEARCH ==========\n", trace);
    optimize(v->nfa, trace);
    makesearch(v, v->nfa);
    compact(v->nfa, &g->search);
}

template <class CharT>
void publish(parse_vars<CharT>* v, guts<CharT>* g) {
    regex_t* re = v->re;
    re->re_nsub = size_t(v->nsubexp);
    g->magic = GUTSMAGIC;
    g->cflags = v->cflags;
    g->info = re->re_info;
    g->nsub = re->re_nsub;
    g->tree = v->tree;
    g->ntree = v->ntree;
    g->compare = (v->cflags & REG_ICASE) ? &casecmp<CharT> : &cmp<CharT>;
    g->lacons = v->lacons;
    g->nlacons = v->nlacons;
    static std::atomic<uint64_t> serials{0};
    g->serial = serials.fetch_add(1, std::memory_order_relaxed) + 1;
    v->tree = nullptr;
    v->treechain = nullptr;
    v->lacons = nullptr;
    v->nlacons = 0;
    v->re = nullptr;
}

// Frees what the compilation still owns; on error also releases `re`. The
// NFA goes before the colour map, whose arc chains it empties.
template <class CharT>
int clean_up(parse_vars<CharT>* v, regex_t* re) {
    if (v->nfa) freenfa(v->nfa);
    if (v->cv) freecvec(v->cv);
    if (v->cv2) freecvec(v->cv2);
    if (v->subs != v->sub10) std::free(v->subs);
    free_tree_chain(v);
    for (int i = 1; i < v->nlacons; ++i)
        if (v->lacons[i].cnfa.nstates) freecnfa(&v->lacons[i].cnfa);
    std::free(v->lacons);
    if (has_error(v)) release<CharT>(re);
    return v->err;
}

template <class CharT>
int compile(regex_t* re, const CharT* pattern, size_t length, int flags) {
    if (!re || !pattern || !valid_flags(flags)) return REG_INVARG;
    parse_vars<CharT> v;
    start(&v, re, pattern, length, flags);
    if (!allocate(&v)) return clean_up(&v, re);
    auto* g = static_cast<guts<CharT>*>(re->re_guts);
    FILE* trace = (flags & REG_PROGRESS) ? stdout : nullptr;

    lexstart(&v);
    colour_newline(&v);
    v.tree = parse_alternation(&v, EOS, PLAIN, v.nfa->init, v.nfa->final);
    specialcolors(v.nfa);
    if (has_error(&v)) return clean_up(&v, re);

    dump_tree(trace, "RAW", v.tree);
    finish_tree(&v);
    dump_tree(trace, "TREE FIXED", v.tree);
    build_automata(&v, g, trace);
    if (has_error(&v)) return clean_up(&v, re);

    publish(&v, g);
    return clean_up(&v, re);
}

}  // namespace
}  // namespace IMPL::re

int engine_compile(regex_t* re, const char* pattern, size_t length, int flags) {
    return IMPL::re::compile(re, pattern, length, flags);
}

int engine_compile(regex_t* re, const wchar_t* pattern, size_t length, int flags) {
    return IMPL::re::compile(re, pattern, length, flags);
}

void engine_free(regex_t* re) {
    if (!re || !re->re_fns) return;
    re->re_fns->free(re);
}

}  // namespace Orlo

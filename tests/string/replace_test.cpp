// Plain and case-blind replace in both strategies, checked against a
// reference that is obviously right (leftmost match, skip the match, never
// look at replacement text again), plus the early returns and the first
// reservation of the expand forms.

#include <gtest/gtest.h>

#include <cctype>
#include <random>
#include <string>

#include "orlo/buffer.h"

namespace {

using Orlo::byteEx;

std::string Str(const byteEx& b) {
    return std::string(b.c_str(), b.size());
}
byteEx Bytes(const std::string& s) {
    return byteEx(s.data(), uint32_t(s.size()));
}

// Reference replace: the classic loop over std::string.
struct Reference {
    std::string text;
    uint32_t count = 0;
};

bool EqualAt(const std::string& hay, size_t at, const std::string& needle, bool ignoreCase) {
    for (size_t i = 0; i < needle.size(); ++i) {
        int a = static_cast<signed char>(hay[at + i]);
        int b = static_cast<signed char>(needle[i]);
        if (ignoreCase ? std::tolower(a) != std::tolower(b) : a != b) return false;
    }
    return true;
}

Reference ReplaceAll(const std::string& hay, const std::string& find, const std::string& with,
                     size_t start, bool ignoreCase) {
    Reference r;
    if (start >= hay.size() || find.empty()) return {hay, 0};
    size_t copied = 0;
    for (size_t at = start; at + find.size() <= hay.size();) {
        if (!EqualAt(hay, at, find, ignoreCase)) {
            ++at;
            continue;
        }
        r.text += hay.substr(copied, at - copied) + with;
        ++r.count;
        at += find.size();
        copied = at;
    }
    r.text += hay.substr(copied);
    return r;
}

struct ReplaceCase {
    const char* name;
    std::string source, find, with;
    uint32_t start;
    std::string expected;
    uint32_t count;
    bool ignoreCase = false;
};

// Every case runs through both strategies; they must agree.
void ExpectBothStrategies(const ReplaceCase& c) {
    byteEx source = Bytes(c.source), find = Bytes(c.find), with = Bytes(c.with);
    byteEx dest;
    uint32_t n = c.ignoreCase ? source.ReplaceToIC(dest, find, with, c.start)
                              : source.ReplaceTo(dest, find, with, c.start);
    const bool early = c.start >= c.source.size() || c.find.empty() || c.source.empty();
    EXPECT_EQ(Str(dest), early ? "" : c.expected) << c.name << " (expand)";
    EXPECT_EQ(n, c.count) << c.name << " (expand)";
    EXPECT_EQ(Str(source), c.source) << c.name << ": the source is left alone";

    byteEx inPlace = Bytes(c.source);
    n = c.ignoreCase ? inPlace.ReplaceIC(find, with, c.start)
                     : inPlace.Replace(find, with, c.start);
    EXPECT_EQ(Str(inPlace), c.expected) << c.name << " (in place)";
    EXPECT_EQ(n, c.count) << c.name << " (in place)";
}

TEST(Replace, EdgeCasesInBothStrategies) {
    const ReplaceCase cases[] = {
        {"empty source", "", "a", "b", 0, "", 0},
        {"empty find", "abc", "", "x", 0, "abc", 0},
        {"start at the end", "abc", "c", "x", 3, "abc", 0},
        {"not found", "abc", "z", "x", 0, "abc", 0},
        {"whole source", "abc", "abc", "x", 0, "x", 1},
        {"at the start", "abc", "a", "x", 0, "xbc", 1},
        {"at the end", "abc", "c", "xyz", 0, "abxyz", 1},
        {"no overlap", "aaaa", "aa", "b", 0, "bb", 2},
        {"replacement not searched", "aaa", "a", "aa", 0, "aaaaaa", 3},
        {"from a start", "aXaXa", "a", "b", 2, "aXbXb", 2},
        {"empty replacement", "a-b-c", "-", "", 0, "abc", 2},
        {"zero bytes", std::string("\0a\0", 3), std::string("\0", 1), "0", 0, "0a0", 2},
        {"high bytes", "\xFF\xFE\xFF", "\xFF", "!", 0, "!\xFE!", 2},
        {"case blind", "Error eRRor", "ERROR", "x", 0, "x x", 2, true},
        {"case blind leaves high bytes exact", "\xC9\xE9", "\xE9", "x", 0, "\xC9x", 1, true},
        {"case blind no overlap", "AaAa", "aa", "-", 0, "--", 2, true},
    };
    for (const auto& c : cases)
        ExpectBothStrategies(c);
}

// Random inputs long enough for the block search, over a small alphabet so
// that matches, near-misses and case variants are frequent.
TEST(Replace, AgreesWithReferenceOnRandomInputs) {
    std::mt19937 rng(7);
    const char alphabet[] = {'a', 'b', 'A', 'B', '\0', '\xFF', '\n'};
    auto random = [&](size_t lo, size_t hi) {
        std::string s(lo + rng() % (hi - lo + 1), ' ');
        for (auto& c : s)
            c = alphabet[rng() % sizeof alphabet];
        return s;
    };
    for (int round = 0; round < 4000; ++round) {
        std::string hay = random(0, round % 10 == 0 ? 400 : 60);
        std::string find = random(1, 4), with = random(0, 6);
        size_t start = hay.empty() ? 0 : rng() % (hay.size() + 1);
        bool ignoreCase = round % 2 == 1;
        Reference want = ReplaceAll(hay, find, with, start, ignoreCase);
        ReplaceCase c{"random",        hay,       find,       with,
                      uint32_t(start), want.text, want.count, ignoreCase};
        ExpectBothStrategies(c);
        if (HasFailure()) {
            ADD_FAILURE() << "round " << round;
            return;
        }
    }
}

TEST(Replace, InPlaceWithItselfAsReplacementActsAsACopy) {
    for (const char* text : {"aXa", "bab", "a", "XaXaX"}) {
        byteEx self(text);
        uint32_t n = self.Replace(byteEx("a"), self);
        Reference want = ReplaceAll(text, "a", text, 0, false);
        EXPECT_EQ(Str(self), want.text) << text;
        EXPECT_EQ(n, want.count) << text;
    }
}

TEST(Replace, InPlaceFirstOnlyAndUnsharing) {
    byteEx a("a-a-a");
    byteEx b(a);
    EXPECT_EQ(b.Replace(byteEx("a"), byteEx("bb"), 1, false), 1u);
    EXPECT_EQ(Str(b), "a-bb-a");
    EXPECT_EQ(Str(a), "a-a-a");
}

// The first reservation is exact: the source length, plus room for sixteen
// growing matches, plus what the destination holds, plus the terminator.
TEST(Replace, ExpandReservesTheEstimateExactly) {
    const struct {
        const char* with;
        uint32_t capacity;
    } cases[] = {
        {"", 10 + 0 + 1},
        {"xyz", 10 + 1},
        {"wxyz", 10 + (1 << 4) + 1},
    };
    for (const auto& c : cases) {
        byteEx source("abcabcabca"), dest;
        source.ReplaceTo(dest, byteEx("abc"), byteEx(c.with));
        EXPECT_EQ(dest.capacity(), c.capacity) << c.with;
    }
}

TEST(ReplaceSets, AnyAndRuns) {
    const struct {
        const char* name;
        const char* source;
        const char* set;
        const char* with;
        bool runs;
        const char* expected;
        uint32_t count;
    } cases[] = {
        {"each byte", "aaab", "a", "x", false, "xxxb", 3},
        {"each run", "aaab", "a", "x", true, "xb", 1},
        {"several runs", "a,;b;;c", ",;", "|", true, "a|b|c", 2},
        {"mixed set", "a,;b", ",;", "", false, "ab", 2},
        {"no member", "abc", "xyz", "-", false, "abc", 0},
    };
    for (const auto& c : cases) {
        byteEx dest;
        byteEx source(c.source);
        uint32_t n = c.runs ? source.ReplaceRunTo(dest, byteEx(c.set), byteEx(c.with))
                            : source.ReplaceAnyTo(dest, byteEx(c.set), byteEx(c.with));
        EXPECT_EQ(Str(dest), c.expected) << c.name;
        EXPECT_EQ(n, c.count) << c.name;
    }
    byteEx dest;
    EXPECT_EQ(byteEx("abc").ReplaceAnyTo(dest, byteEx(""), byteEx("x")), 0u);
    EXPECT_EQ(dest.size(), 0u);
}

TEST(CountAndSplit, PartsPairsAndOffsets) {
    byteEx text("a,b,,c");
    EXPECT_EQ(text.CountParts(byteEx(",")), 4u);
    EXPECT_EQ(byteEx("aaaa").CountParts(byteEx("aa")), 3u);

    byteEx::span_list spans;
    EXPECT_EQ(text.SplitOffsets(spans, byteEx(",")), 4u);
    const byteEx::span_list wantSplit = {{0, 1}, {2, 1}, {4, 0}, {5, 1}};
    EXPECT_EQ(spans, wantSplit);
    EXPECT_EQ(text.SplitOffsets(spans, byteEx("")), 0u);
    EXPECT_TRUE(spans.empty());

    byteEx markup("<a> x <bc> <d");
    EXPECT_EQ(markup.CountPairs(byteEx("<"), byteEx(">")), 2u);
    EXPECT_EQ(markup.FindPairs(spans, byteEx("<"), byteEx(">")), 2u);
    const byteEx::span_list wantPairs = {{1, 1}, {7, 2}};
    EXPECT_EQ(spans, wantPairs);
    EXPECT_EQ(markup.CountPairs(byteEx(""), byteEx(">")), 0u);
}

TEST(ReplaceWide, SameRulesForWideElements) {
    Orlo::basic_buffer<wchar_t> source(L"Ab ab AB"), dest;
    EXPECT_EQ(source.ReplaceToIC(dest, Orlo::basic_buffer<wchar_t>(L"ab"),
                                 Orlo::basic_buffer<wchar_t>(L"\x263A")),
              3u);
    EXPECT_EQ(std::wstring(dest.c_str(), dest.size()), L"\x263A \x263A \x263A");
    EXPECT_EQ(
        source.Replace(Orlo::basic_buffer<wchar_t>(L"ab"), Orlo::basic_buffer<wchar_t>(L"xyz")),
        1u);
    EXPECT_EQ(std::wstring(source.c_str(), source.size()), L"Ab xyz AB");
}

}  // namespace

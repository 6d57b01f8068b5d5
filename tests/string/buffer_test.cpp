// The shared buffer: states, growth arithmetic, sharing and copy-on-write,
// and the std::basic_string-like operations, checked against std::string
// where the two agree by contract.

#include <gtest/gtest.h>

#include <random>
#include <sstream>
#include <string>

#include "orlo/buffer.h"

namespace {

using Orlo::as_view;
using Orlo::byteEx;
using Orlo::npos;
using WBuf = Orlo::basic_buffer<wchar_t>;

std::string Str(const byteEx& b) {
    return std::string(b.c_str(), b.size());
}

// ---- states and growth -------------------------------------------------------

TEST(BufferState, DefaultIsNull) {
    byteEx b;
    EXPECT_EQ(b.data(), nullptr);
    EXPECT_EQ(b.size(), 0u);
    EXPECT_EQ(b.capacity(), 0u);
    EXPECT_STREQ(b.c_str(), "");
    EXPECT_EQ(b.hash(), 0x811C9DC5u);
}

TEST(BufferState, ViewBorrowsWithoutCopy) {
    static const char text[] = "hello";
    byteEx v(as_view, text);
    EXPECT_EQ(v.data(), text);
    EXPECT_TRUE(v.is_view());
    EXPECT_EQ(v.capacity(), byteEx::view_sentinel);
    EXPECT_EQ(v.size(), 5u);

    byteEx copy(v);  // a copy of a view is a view
    EXPECT_EQ(copy.data(), text);
    EXPECT_TRUE(copy.is_view());

    // A view of part of a buffer is not terminated at its own length.
    byteEx owner("abcdef");
    byteEx part(as_view, owner, 1, 2);
    EXPECT_EQ(part.size(), 2u);
    EXPECT_STREQ(part.c_str(), "bcdef");
    EXPECT_EQ(Str(part), "bc");

    part.unview();
    EXPECT_FALSE(part.is_view());
    EXPECT_STREQ(part.c_str(), "bc");
    EXPECT_EQ(part.capacity(), 3u);
}

struct GrowthStep {
    uint32_t appendBytes;       // bytes appended, one call
    uint32_t expectedCapacity;  // capacity afterwards
};

TEST(BufferGrowth, ByteGrowthRoundsTo31AndAddsHalfTheOldCapacity) {
    const GrowthStep steps[] = {
        {1, 31},   // request 2: (2 | 31) + 0 / 2
        {29, 31},  // 30 bytes and the terminator fit
        {1, 78},   // request 32: (32 | 31) + 31 / 2
        {46, 78},  // 77 bytes and the terminator fit
        {1, 134},  // request 79: (79 | 31) + 78 / 2
    };
    byteEx b;
    for (const auto& step : steps) {
        b.append(step.appendBytes, 'x');
        EXPECT_EQ(b.capacity(), step.expectedCapacity) << "after length " << b.size();
    }
}

TEST(BufferGrowth, WideGrowthRoundsTo7) {
    WBuf w;
    w.append(1, L'x');
    EXPECT_EQ(w.capacity(), 7u);  // (2 | 7) + 0
    w.append(5, L'x');
    EXPECT_EQ(w.capacity(), 7u);
    w.append(1, L'x');
    EXPECT_EQ(w.capacity(), 18u);  // request 8: (8 | 7) + 7 / 2
}

TEST(BufferGrowth, SharedBlockIsCopiedWithoutGrowthByHalf) {
    byteEx a(100, 'x');
    byteEx b(a);
    b.grow_for_write(101);
    EXPECT_EQ(b.capacity(), 127u);  // 101 | 31
    EXPECT_NE(b.data(), a.data());
    EXPECT_EQ(a.use_count(), 1u);
}

TEST(BufferGrowth, RoomFunctions) {
    byteEx b("abc");
    b.reserve_exact(10);
    EXPECT_EQ(b.capacity(), 10u);
    byteEx shared(b);
    shared.reserve_exact(2);  // a shared block is copied at max(n, length)
    EXPECT_EQ(shared.capacity(), 3u);
    EXPECT_NE(shared.data(), b.data());
    EXPECT_THROW(b.grow_for_write(0xFFFFFFFFu), std::bad_alloc);
    EXPECT_EQ(Str(b), "abc");
}

// ---- sharing and copy-on-write -----------------------------------------------------

TEST(BufferSharing, CopySharesAndWriteUnshares) {
    byteEx a("shared text");
    byteEx b(a);
    EXPECT_EQ(a.data(), b.data());
    EXPECT_EQ(a.use_count(), 2u);

    const char* original = a.data();
    b.append("!");
    EXPECT_EQ(a.data(), original);
    EXPECT_EQ(Str(a), "shared text");
    EXPECT_EQ(Str(b), "shared text!");
    EXPECT_EQ(a.use_count(), 1u);
}

TEST(BufferSharing, WritableAccessUnsharesEvenForARead) {
    byteEx a("abc");
    byteEx b(a);
    char c = b.at(0);
    EXPECT_EQ(c, 'a');
    EXPECT_NE(a.data(), b.data());

    byteEx d(a);
    d.resize(d.size());
    EXPECT_NE(a.data(), d.data());

    byteEx e(a);
    const byteEx& constE = e;
    EXPECT_EQ(constE.at(1), 'b');
    EXPECT_EQ(a.data(), e.data());  // the constant form does not unshare
}

TEST(BufferSharing, AtPastTheEndThrows) {
    byteEx a("abc");
    try {
        (void)a.at(3);
        FAIL() << "no throw";
    } catch (const std::out_of_range& e) {
        EXPECT_STREQ(e.what(), "basic_buffer::at - offset out of range");
    }
    const byteEx& constA = a;
    EXPECT_THROW((void)constA.at(3), std::out_of_range);
    EXPECT_THROW((void)byteEx().at(0), std::out_of_range);
}

TEST(BufferSharing, ClearGivesUpASharedBlockAndKeepsAUniqueOne) {
    byteEx a(40, 'x');
    byteEx b(a);
    b.clear();
    EXPECT_EQ(b.data(), nullptr);
    EXPECT_EQ(b.capacity(), 0u);
    EXPECT_EQ(Str(a), std::string(40, 'x'));

    const char* block = a.data();
    uint32_t capacity = a.capacity();
    a.clear();
    EXPECT_EQ(a.data(), block);
    EXPECT_EQ(a.capacity(), capacity);
    EXPECT_EQ(a.size(), 0u);
    EXPECT_STREQ(a.c_str(), "");
}

TEST(BufferSharing, AssignViewOfOwnBlockAndAttach) {
    byteEx a("owned");
    char* block = a.data();
    a.assign_view(block, 3);
    EXPECT_TRUE(a.is_view());
    EXPECT_EQ(Str(a), "own");

    // The block was given up, not freed: adopt it again.
    byteEx b;
    b.attach(block, 5, 6);
    EXPECT_EQ(b.use_count(), 1u);
    EXPECT_EQ(Str(b), "owned");
}

// ---- content operations --------------------------------------------------------------

TEST(BufferContent, CopyToCountsTheTerminator) {
    byteEx a("hello");
    char out[8] = "zzzzzzz";
    EXPECT_EQ(a.copy_to(out, 0), 0u);
    EXPECT_EQ(out[0], 'z');
    EXPECT_EQ(a.copy_to(out, 1), 0u);
    EXPECT_EQ(out[0], '\0');
    EXPECT_EQ(a.copy_to(out, 3, 1), 2u);
    EXPECT_STREQ(out, "el");
}

TEST(BufferContent, HashIsFnv1a) {
    EXPECT_EQ(byteEx("a").hash(), 0xE40C292Cu);
    EXPECT_EQ(byteEx("foobar").hash(), 0xBF9CF968u);
    // The wide form hashes the raw bytes of each element, low byte first.
    const unsigned char raw[4] = {'a', 0, 0, 0};
    byteEx bytes(reinterpret_cast<const char*>(raw), 4);
    EXPECT_EQ(WBuf(L"a").hash(), bytes.hash());
}

TEST(BufferContent, ClippedCountsAndPositions) {
    byteEx a("abcdef");
    a.erase(4, 100);
    EXPECT_EQ(Str(a), "abcd");
    a.replace(2, 100, "XY");
    EXPECT_EQ(Str(a), "abXY");
    a.insert(4, "!");
    EXPECT_EQ(Str(a), "abXY!");
    a.append(byteEx("123"), 1, 100);
    EXPECT_EQ(Str(a), "abXY!23");
    a.replace(0, 2, 3, '-');
    EXPECT_EQ(Str(a), "---XY!23");
}

// Replacing with a stretch of the buffer's own content must give what a
// separate copy gives, for every position, length and source: this walks all
// four orderings of the two moves.
TEST(BufferContent, SelfOverlappingReplaceMatchesACopy) {
    const std::string base = "0123456789";
    for (uint32_t pos = 0; pos <= base.size(); ++pos)
        for (uint32_t n = 0; pos + n <= base.size(); ++n)
            for (uint32_t src = 0; src < base.size(); ++src)
                for (uint32_t count = 0; src + count <= base.size(); ++count) {
                    std::string expected = base;
                    expected.replace(pos, n, base.substr(src, count));
                    byteEx b(base.data(), uint32_t(base.size()));
                    b.replace(pos, n, b.data() + src, count);
                    ASSERT_EQ(Str(b), expected)
                        << "pos " << pos << " n " << n << " src " << src << " count " << count;
                }
}

TEST(BufferContent, SelfInsertAppendAndAssign) {
    byteEx a("abc");
    a.insert(1, a.data() + 1, 2);
    EXPECT_EQ(Str(a), "abcbc");
    a.append(a.data(), a.size());
    EXPECT_EQ(Str(a), "abcbcabcbc");
    a.assign(a.data() + 2, 3);
    EXPECT_EQ(Str(a), "cbc");

    byteEx shared("hello world");
    byteEx other(shared);
    shared.assign(shared.data() + 6, 5);
    EXPECT_EQ(Str(shared), "world");
    EXPECT_EQ(Str(other), "hello world");
}

// ---- search: the family agrees with std::string ------------------------------------

TEST(BufferSearch, AgreesWithStdStringOnRandomInputs) {
    std::mt19937 rng(20261121);
    auto randomText = [&](size_t maxLength) {
        std::string s(rng() % (maxLength + 1), 'a');
        for (auto& c : s)
            c = "abc\0"[rng() % 4];
        return s;
    };
    for (int round = 0; round < 3000; ++round) {
        std::string hay = randomText(24), needle = randomText(3);
        byteEx h(hay.data(), uint32_t(hay.size()));
        byteEx n(needle.data(), uint32_t(needle.size()));
        uint32_t pos = rng() % 28;
        auto same = [&](size_t expected, uint32_t got, const char* what) {
            uint32_t want = expected == std::string::npos ? npos : uint32_t(expected);
            ASSERT_EQ(got, want) << what << " hay=" << hay.size() << " needle=" << needle.size()
                                 << " pos=" << pos;
        };
        same(hay.find(needle, pos), h.find(n, pos), "find");
        same(hay.rfind(needle, pos), h.rfind(n, pos), "rfind");
        same(hay.find_first_of(needle, pos), h.find_first_of(n, pos), "find_first_of");
        same(hay.find_first_not_of(needle, pos), h.find_first_not_of(n, pos), "find_first_not_of");
        same(hay.find_last_of(needle, pos), h.find_last_of(n, pos), "find_last_of");
        same(hay.find_last_not_of(needle, pos), h.find_last_not_of(n, pos), "find_last_not_of");
        int c = h.compare(n);
        int e = hay.compare(needle);
        ASSERT_EQ(c < 0, e < 0);
        ASSERT_EQ(c == 0, e == 0);
    }
}

TEST(BufferSearch, EmptyNeedleAndEmptySet) {
    byteEx a("abc");
    EXPECT_EQ(a.find("", 3), 3u);
    EXPECT_EQ(a.find("", 4), npos);
    EXPECT_EQ(a.rfind("", 10), 3u);
    EXPECT_EQ(a.find_first_of("", 0), npos);
    EXPECT_EQ(a.find_first_not_of("", 1), 1u);
    EXPECT_EQ(byteEx().rfind('a'), npos);
    EXPECT_EQ(byteEx().find_last_not_of(""), npos);
}

// ---- streams ----------------------------------------------------------------------------

TEST(BufferStreams, InsertionHonoursWidthAndExtractionItsLimit) {
    std::ostringstream out;
    out.width(6);
    out.fill('.');
    out << byteEx("ab") << byteEx(std::string("c\0d", 3).data(), 3);
    EXPECT_EQ(out.str(), std::string("....abc\0d", 9));

    std::istringstream in("  first second\nthird line\n");
    byteEx word;
    in.width(3);
    in >> word;
    EXPECT_EQ(Str(word), "fir");
    in >> word;
    EXPECT_EQ(Str(word), "st");
    Orlo::getline(in, word);
    EXPECT_EQ(Str(word), " second");
    Orlo::getline(in, word);
    EXPECT_EQ(Str(word), "third line");
    EXPECT_FALSE(Orlo::getline(in, word));
}

}  // namespace

// The shared buffer: the one storage record under every string of the library.
//
// A record is four fields: a data pointer, a pointer to a separate atomic
// reference counter, a length and a capacity (both counted in elements, the
// capacity including the terminator). A record is in one of four states:
//
//   Null           data null, refs null, capacity 0      (default, reads as "")
//   View           data set,  refs null, capacity sentinel (borrowed memory)
//   Owned unique   data set,  counter holding 1          (the only holder)
//   Owned shared   data set,  counter holding 2 or more  (copy-on-write)
//
// Copying shares the block (three word copies and one atomic increment);
// every writer first calls one of the three room functions, which give the
// record a private block when it is shared. The counter is a heap cell of its
// own rather than a header in front of the data, so that `attach` can adopt
// any block that came from malloc without copying it.
//
// Views are never copied by the room functions: their capacity is the
// sentinel, larger than any request, so writing to a view writes into the
// borrowed memory. Code that edits a string that may be a view calls
// `unview()` first.
//
// Positions and counts are unsigned 32-bit. Counts are clipped to what is
// there; positions are not tested (a position past the end is a caller
// error), and only `at` throws on one. Lack of memory is std::bad_alloc.
//
// One record belongs to one thread at a time; only the counter is shared.

#ifndef ORLO_BUFFER_H
#define ORLO_BUFFER_H

#include <atomic>
#include <cstdint>
#include <iosfwd>
#include <string_view>
#include <utility>
#include <vector>

namespace Orlo {

// Position meaning "not found", and count meaning "the whole rest".
inline constexpr uint32_t npos = 0xFFFFFFFFu;

// Tag that selects the borrowing constructors: basic_buffer(as_view, "lit").
struct as_view_t {
    explicit as_view_t() = default;
};
inline constexpr as_view_t as_view{};

// Receives the result of an expand-form replace in slices while it is being
// produced, for a caller that passes the result on (to a pipe, say) and
// need not hold all of it. The slices come in order; what was taken is no
// longer in the destination buffer, which at the end holds only the rest:
// the slices followed by the destination are the result without a drain.
template <class CharT>
class basic_drain {
  public:
    virtual void Take(const CharT* data, uint32_t n) = 0;

  protected:
    ~basic_drain() = default;
};

template <class CharT>
class basic_buffer {
  public:
    using value_type = CharT;
    using size_type = uint32_t;
    using iterator = CharT*;
    using const_iterator = const CharT*;
    using counter_type = std::atomic<uint32_t>;

    // Capacity of a view, and the largest size a buffer may have.
    static constexpr uint32_t view_sentinel = sizeof(CharT) == 1 ? 0xFFFFFFFEu : 0x3FFFFFFEu;
    // Requests are rounded up with this mask when a block grows.
    static constexpr uint32_t round_mask = sizeof(CharT) == 1 ? 31u : 7u;

    // ---- creation and sharing -------------------------------------------

    // Null record: no block, reads as the empty text.
    basic_buffer() noexcept = default;
    // Private copy of a C string (a null pointer reads as "").
    basic_buffer(const CharT* text);  // NOLINT(google-explicit-constructor)
    // Private copy of `count` elements; zeros inside are content.
    basic_buffer(const CharT* text, uint32_t count);
    // Private copy of `count` copies of `ch`.
    basic_buffer(uint32_t count, CharT ch);
    // View of a C string: no copy, no allocation. The memory must outlive
    // every record that looks at it.
    basic_buffer(as_view_t, const CharT* text) noexcept;
    // View of `count` elements at `text`.
    basic_buffer(as_view_t, const CharT* text, uint32_t count) noexcept;
    // View of min(n, other.length - pos) elements of `other` from `pos`.
    // Not terminated at its own end.
    basic_buffer(as_view_t, const basic_buffer& other, uint32_t pos, uint32_t n = npos) noexcept;
    // Shares the block of `other` (a view copies to a view, Null to Null).
    basic_buffer(const basic_buffer& other) noexcept;
    // Takes over the record of `other`, which is left Null.
    basic_buffer(basic_buffer&& other) noexcept;
    // Substring: shares when it covers all of `other` from 0, otherwise a
    // private copy of min(other.length - pos, n) elements.
    basic_buffer(const basic_buffer& other, uint32_t pos, uint32_t n = npos);
    ~basic_buffer() { release(); }

    // Shares the block of `other`; no counter change when both hold the same
    // data pointer.
    basic_buffer& operator=(const basic_buffer& other) noexcept;
    basic_buffer& operator=(basic_buffer&& other) noexcept;
    // Whole-content assignments copy.
    basic_buffer& operator=(const CharT* text) { return assign(text); }
    basic_buffer& operator=(CharT ch) { return assign(&ch, 1); }

    basic_buffer& assign(const CharT* text, uint32_t count);
    basic_buffer& assign(const CharT* text);
    basic_buffer& assign(const basic_buffer& other) { return *this = other; }
    basic_buffer& assign(const basic_buffer& other, uint32_t pos, uint32_t n);
    basic_buffer& assign(uint32_t count, CharT ch);

    // Turns this record into a view. Viewing the record's own block gives up
    // its ownership without freeing it: the counter cell is deleted whatever
    // it holds, so use that form on a unique buffer only.
    void assign_view(const CharT* text, uint32_t length);
    void assign_view(const CharT* text);
    void assign_view(const basic_buffer& other, uint32_t pos, uint32_t n = npos);

    // Takes ownership of a block that came from malloc; `capacity` counts
    // elements. A null pointer makes the record hold no counter.
    void attach(CharT* block, uint32_t length, uint32_t capacity);

    // Gives a view a private block of its own (length + 1, terminated).
    // Does nothing to any other state.
    void unview();

    // Empties the content. A shared record gives up its block and becomes
    // Null; a unique one keeps its block and capacity for reuse.
    void clear() noexcept;
    // Exchanges the two records; no element is copied.
    void swap(basic_buffer& other) noexcept;

    // ---- room -----------------------------------------------------------

    // Room for n elements (terminator included) with over-allocation:
    // shared -> private block of max(n, length) | round_mask;
    // unique and too small -> realloc to (n | round_mask) + capacity / 2.
    void grow_for_write(uint32_t n);
    // Room for exactly n elements, content kept.
    void reserve_exact(uint32_t n);
    // Room for n elements, content thrown away; length is left as it was.
    void assign_discard(uint32_t n);
    // Unshares, terminates, then appends `fill` elements or cuts.
    void resize(uint32_t n, CharT fill = CharT());

    // For readers that fill the buffer straight from a system call: room for
    // `n` more elements (grow_for_write of length + n + 1) and where they go.
    // The length is unchanged until commit_append(count), count <= n, which
    // adds the elements written there and terminates.
    CharT* prepare_append(uint32_t n) {
        grow_for_write(checked_size(uint64_t(m_length) + n + 1));
        return m_data + m_length;
    }
    void commit_append(uint32_t count) noexcept { set_length(m_length + count); }
    // For writers that filled room obtained from a room function: the
    // content is now the first n elements (n < capacity); terminates it.
    void set_length(uint32_t n) noexcept {
        m_length = n;
        m_data[n] = CharT();
    }

    // ---- state and access ---------------------------------------------------

    uint32_t size() const noexcept { return m_length; }
    uint32_t length() const noexcept { return m_length; }
    uint32_t capacity() const noexcept { return m_capacity; }
    static constexpr uint32_t max_size() noexcept { return view_sentinel; }
    bool empty() const noexcept { return m_length == 0; }
    bool is_null() const noexcept { return m_data == nullptr; }
    bool is_view() const noexcept { return m_data != nullptr && m_refs == nullptr; }
    // True when no other record holds the block (Null and views included).
    bool is_unique() const noexcept {
        return m_refs == nullptr || m_refs->load(std::memory_order_acquire) == 1;
    }
    // Number of records holding the block; 0 for Null and views.
    uint32_t use_count() const noexcept {
        return m_refs ? m_refs->load(std::memory_order_acquire) : 0;
    }

    // Unchecked; `data()` may be null for a Null record.
    CharT* data() noexcept { return m_data; }
    const CharT* data() const noexcept { return m_data; }
    // Never null: a Null record gives the static empty text. Views are not
    // necessarily terminated at their own length.
    const CharT* c_str() const noexcept { return m_data ? m_data : empty_text(); }
    CharT& operator[](uint32_t pos) noexcept { return m_data[pos]; }
    const CharT& operator[](uint32_t pos) const noexcept { return m_data[pos]; }
    // Checked access. The writable form makes the block private first, even
    // for a read. Throws std::out_of_range("basic_buffer::at - offset out of
    // range") when pos is not less than the length.
    CharT& at(uint32_t pos);
    const CharT& at(uint32_t pos) const;

    // The writable iterators make the block private, as `at` does.
    iterator begin();
    iterator end();
    const_iterator begin() const noexcept { return c_str(); }
    const_iterator end() const noexcept { return c_str() + m_length; }

    std::basic_string_view<CharT> view() const noexcept { return {c_str(), m_length}; }

    // ---- content operations (std::basic_string meaning, clipped) ----------

    basic_buffer& append(const CharT* text, uint32_t count);
    basic_buffer& append(const CharT* text);
    basic_buffer& append(const basic_buffer& other) {
        return append(other.c_str(), other.m_length);
    }
    basic_buffer& append(const basic_buffer& other, uint32_t pos, uint32_t n);
    basic_buffer& append(uint32_t count, CharT ch);
    basic_buffer& append(const CharT* first, const CharT* last) {
        return append(first, uint32_t(last - first));
    }
    void push_back(CharT ch) { append(1, ch); }
    basic_buffer& operator+=(const basic_buffer& other) { return append(other); }
    basic_buffer& operator+=(const CharT* text) { return append(text); }
    basic_buffer& operator+=(CharT ch) { return append(1, ch); }

    basic_buffer& insert(uint32_t pos, const CharT* text, uint32_t count) {
        return replace(pos, 0, text, count);
    }
    basic_buffer& insert(uint32_t pos, const CharT* text);
    basic_buffer& insert(uint32_t pos, const basic_buffer& other) {
        return replace(pos, 0, other.c_str(), other.m_length);
    }
    basic_buffer& insert(uint32_t pos, const basic_buffer& other, uint32_t subpos, uint32_t n);
    basic_buffer& insert(uint32_t pos, uint32_t count, CharT ch) {
        return replace(pos, 0, count, ch);
    }

    basic_buffer& erase(uint32_t pos = 0, uint32_t n = npos);

    // Replaces min(n, length - pos) elements at pos. The source may lie in
    // this buffer's own content; the result is then as with a separate copy.
    basic_buffer& replace(uint32_t pos, uint32_t n, const CharT* text, uint32_t count);
    basic_buffer& replace(uint32_t pos, uint32_t n, const CharT* text);
    basic_buffer& replace(uint32_t pos, uint32_t n, const basic_buffer& other) {
        return replace(pos, n, other.c_str(), other.m_length);
    }
    basic_buffer& replace(uint32_t pos, uint32_t n, const basic_buffer& other, uint32_t subpos,
                          uint32_t subn);
    basic_buffer& replace(uint32_t pos, uint32_t n, uint32_t count, CharT ch);

    // ---- search -----------------------------------------------------------
    // All return a position or npos. An empty needle is found at pos when pos
    // is not past the length; rfind of an empty needle gives min(pos, length).

    uint32_t find(const CharT* needle, uint32_t pos, uint32_t count) const noexcept;
    uint32_t find(const CharT* needle, uint32_t pos = 0) const noexcept;
    uint32_t find(const basic_buffer& needle, uint32_t pos = 0) const noexcept {
        return find(needle.c_str(), pos, needle.m_length);
    }
    uint32_t find(CharT ch, uint32_t pos = 0) const noexcept;

    uint32_t rfind(const CharT* needle, uint32_t pos, uint32_t count) const noexcept;
    uint32_t rfind(const CharT* needle, uint32_t pos = npos) const noexcept;
    uint32_t rfind(const basic_buffer& needle, uint32_t pos = npos) const noexcept {
        return rfind(needle.c_str(), pos, needle.m_length);
    }
    uint32_t rfind(CharT ch, uint32_t pos = npos) const noexcept;

    uint32_t find_first_of(const CharT* set, uint32_t pos, uint32_t count) const noexcept;
    uint32_t find_first_of(const CharT* set, uint32_t pos = 0) const noexcept;
    uint32_t find_first_of(const basic_buffer& set, uint32_t pos = 0) const noexcept {
        return find_first_of(set.c_str(), pos, set.m_length);
    }
    uint32_t find_first_of(CharT ch, uint32_t pos = 0) const noexcept { return find(ch, pos); }

    uint32_t find_first_not_of(const CharT* set, uint32_t pos, uint32_t count) const noexcept;
    uint32_t find_first_not_of(const CharT* set, uint32_t pos = 0) const noexcept;
    uint32_t find_first_not_of(const basic_buffer& set, uint32_t pos = 0) const noexcept {
        return find_first_not_of(set.c_str(), pos, set.m_length);
    }
    uint32_t find_first_not_of(CharT ch, uint32_t pos = 0) const noexcept {
        return find_first_not_of(&ch, pos, 1);
    }

    uint32_t find_last_of(const CharT* set, uint32_t pos, uint32_t count) const noexcept;
    uint32_t find_last_of(const CharT* set, uint32_t pos = npos) const noexcept;
    uint32_t find_last_of(const basic_buffer& set, uint32_t pos = npos) const noexcept {
        return find_last_of(set.c_str(), pos, set.m_length);
    }
    uint32_t find_last_of(CharT ch, uint32_t pos = npos) const noexcept { return rfind(ch, pos); }

    uint32_t find_last_not_of(const CharT* set, uint32_t pos, uint32_t count) const noexcept;
    uint32_t find_last_not_of(const CharT* set, uint32_t pos = npos) const noexcept;
    uint32_t find_last_not_of(const basic_buffer& set, uint32_t pos = npos) const noexcept {
        return find_last_not_of(set.c_str(), pos, set.m_length);
    }
    uint32_t find_last_not_of(CharT ch, uint32_t pos = npos) const noexcept {
        return find_last_not_of(&ch, pos, 1);
    }

    // ---- comparison ---------------------------------------------------------
    // Element-wise (unsigned for bytes), then by length: <0, 0 or >0.

    int compare(const basic_buffer& other) const noexcept {
        return compare(0, m_length, other.c_str(), other.m_length);
    }
    int compare(uint32_t pos, uint32_t n, const basic_buffer& other) const noexcept {
        return compare(pos, n, other.c_str(), other.m_length);
    }
    int compare(uint32_t pos, uint32_t n, const CharT* text, uint32_t count) const noexcept;
    int compare(const CharT* text) const noexcept;

    // Copies min(size - 1, length - pos) elements to `dest` and terminates
    // it; `size` counts the terminator. Returns the number copied (0 for a
    // size of 0, when nothing at all is written).
    uint32_t copy_to(CharT* dest, uint32_t size, uint32_t pos = 0) const noexcept;

    // FNV-1a over the raw bytes of the content (low byte first for wide).
    uint32_t hash() const noexcept;

    // ---- plain search, count and replace -------------------------------------
    // Memory expand forms: the source is *this, the result is appended to
    // `dest`, and the return value is the number of replacements. When
    // `start` is not less than the length, or the needle or the source is
    // empty, nothing at all is appended and 0 is returned. Replacement text is
    // never searched again; matches do not overlap.

    uint32_t ReplaceTo(basic_buffer& dest, const basic_buffer& find, const basic_buffer& with,
                       uint32_t start = 0) const;
    // As ReplaceTo, comparing tolower of each element (taken as signed).
    uint32_t ReplaceToIC(basic_buffer& dest, const basic_buffer& find, const basic_buffer& with,
                         uint32_t start = 0) const;
    // The same two, handing the result to `drain` as it grows, so that
    // `dest` holds no more than a slice of it at a time.
    uint32_t ReplaceTo(basic_buffer& dest, const basic_buffer& find, const basic_buffer& with,
                       uint32_t start, basic_drain<CharT>& drain) const;
    uint32_t ReplaceToIC(basic_buffer& dest, const basic_buffer& find, const basic_buffer& with,
                         uint32_t start, basic_drain<CharT>& drain) const;
    // Each element that is in `set` is replaced, one by one.
    uint32_t ReplaceAnyTo(basic_buffer& dest, const basic_buffer& set, const basic_buffer& with,
                          uint32_t start = 0) const;
    // Each unbroken run of elements of `set` is replaced as one.
    uint32_t ReplaceRunTo(basic_buffer& dest, const basic_buffer& set, const basic_buffer& with,
                          uint32_t start = 0) const;

    // In-place forms: each replacement moves the tail behind the match.
    // `all` false stops after the first replacement. `with` may be *this.
    uint32_t Replace(const basic_buffer& find, const basic_buffer& with, uint32_t start = 0,
                     bool all = true);
    uint32_t ReplaceIC(const basic_buffer& find, const basic_buffer& with, uint32_t start = 0,
                       bool all = true);

    // ---- counting and splitting ---------------------------------------------

    // (offset, length) pieces of the content.
    using span_list = std::vector<std::pair<uint32_t, uint32_t>>;

    // Number of pieces a split at `delimiter` gives: non-overlapping
    // occurrences plus 1.
    uint32_t CountParts(const basic_buffer& delimiter) const noexcept;
    // Number of open...close pairs in order, not nested; 0 if either is empty.
    uint32_t CountPairs(const basic_buffer& open, const basic_buffer& close) const noexcept;
    // Empties `spans`, then lists what lies between each open...close pair.
    // Returns the number of pairs; an empty open or close gives 0.
    uint32_t FindPairs(span_list& spans, const basic_buffer& open, const basic_buffer& close) const;
    // Empties `spans`, then lists the pieces between delimiters (there is
    // always a last piece). Returns their number; an empty delimiter gives 0.
    uint32_t SplitOffsets(span_list& spans, const basic_buffer& delimiter) const;

  protected:
    // Literal storage for the C-string accessor of a Null record.
    static const CharT* empty_text() noexcept;

    // Checks that n elements can be had and returns it as a 32-bit request.
    static uint32_t checked_size(uint64_t n);

  private:
    void release() noexcept;
    void share(const basic_buffer& other) noexcept;
    // Index of `p` when it points into the content, otherwise npos.
    uint32_t offset_in_content(const CharT* p) const noexcept {
        return (m_data && p >= m_data && p < m_data + m_length) ? uint32_t(p - m_data) : npos;
    }
    // Gives a shared record a private block of `size` elements holding its
    // content.
    void copy_to_private_block(uint32_t size);
    void replace_from_self(uint32_t pos, uint32_t n, uint32_t src, uint32_t count);
    uint32_t ReplaceInPlace(const basic_buffer& find, const basic_buffer& with, uint32_t start,
                            bool all, bool ignoreCase);
    uint32_t ReplaceTextTo(basic_buffer& dest, const basic_buffer& find, const basic_buffer& with,
                           uint32_t start, bool ignoreCase, basic_drain<CharT>* drain) const;
    uint32_t ReplaceSetTo(basic_buffer& dest, const basic_buffer& set, const basic_buffer& with,
                          uint32_t start, bool runs) const;

    CharT* m_data = nullptr;
    counter_type* m_refs = nullptr;
    uint32_t m_length = 0;
    uint32_t m_capacity = 0;
};

template <class CharT>
bool operator==(const basic_buffer<CharT>& a, const basic_buffer<CharT>& b) noexcept {
    return a.size() == b.size() && a.compare(b) == 0;
}
template <class CharT>
bool operator==(const basic_buffer<CharT>& a, const CharT* b) noexcept {
    return a.compare(b) == 0;
}
template <class CharT>
bool operator<(const basic_buffer<CharT>& a, const basic_buffer<CharT>& b) noexcept {
    return a.compare(b) < 0;
}

// Writes `length` elements, honouring the stream's field width and fill.
std::ostream& operator<<(std::ostream& os, const basic_buffer<char>& s);
std::wostream& operator<<(std::wostream& os, const basic_buffer<wchar_t>& s);
// Reads one white-space-delimited word, at most the stream's width (or
// max_size - 1 when the width is 0 or larger) elements.
std::istream& operator>>(std::istream& is, basic_buffer<char>& s);
std::wistream& operator>>(std::wistream& is, basic_buffer<wchar_t>& s);
// Reads up to `delim`, which is consumed and not stored.
std::istream& getline(std::istream& is, basic_buffer<char>& s, char delim = '\n');
std::wistream& getline(std::wistream& is, basic_buffer<wchar_t>& s, wchar_t delim = L'\n');

extern template class basic_buffer<char>;
extern template class basic_buffer<wchar_t>;

// The byte string: binary-safe content, any byte may stand inside.
class byteEx : public basic_buffer<char> {
  public:
    using basic_buffer<char>::basic_buffer;
    using basic_buffer<char>::operator=;
    byteEx() noexcept = default;
    byteEx(const basic_buffer<char>& other) noexcept  // NOLINT(google-explicit-constructor)
        : basic_buffer<char>(other) {}
    byteEx(basic_buffer<char>&& other) noexcept  // NOLINT(google-explicit-constructor)
        : basic_buffer<char>(std::move(other)) {}
};

}  // namespace Orlo

template <class CharT>
struct std::hash<Orlo::basic_buffer<CharT>> {
    size_t operator()(const Orlo::basic_buffer<CharT>& s) const noexcept { return s.hash(); }
};

#endif  // ORLO_BUFFER_H

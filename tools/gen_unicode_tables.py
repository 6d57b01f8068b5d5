#!/usr/bin/env python3
"""Writes lib/utilitis/src/regex/unicode_tables.cpp from the Unicode character database.

    tools/gen_unicode_tables.py [--ucd DIR] [--repertoire VERSION] [--output FILE]

(`make unicode-tables` runs it with the defaults.) It reads UnicodeData.txt
and DerivedAge.txt from DIR (default /usr/share/unicode, Debian's
unicode-data package) and covers the basic multilingual plane only.

What it builds, for the wide regular-expression engine and the wide text
services:

1. The property word of every 16-bit code point, reached in three steps:
   a page map of 2048 bytes indexed by `c >> 5`, a group map of bytes indexed
   by `(page << 5) | (c & 31)`, and the array of distinct property words
   indexed by the group byte. Pages of 32 code points that are alike are
   stored once. The word holds the general category in bits 0-4 (numbered as
   CATEGORIES below, which unicode.h repeats), three case bits (5: title case
   is the adjacent code point, 6: has a lower-case form, 7: has an upper-case
   form) and in bits 22-31 one signed delta shared by the upper and lower
   mappings: upper = c - delta, lower = c + delta.

2. The class tables (alnum, alpha, ...) as sorted lists of ranges and of
   lone code points.

Two limits of that layout shape the result, and the generator reports both in
the generated file rather than hiding them:

- A page number is one byte, so at most 256 distinct pages fit. The newer
  scripts of the plane give far more (Unicode 15 makes over 320), so the
  tables cover the repertoire of one Unicode version, --repertoire (default
  4.0, which makes 252 pages): characters assigned later read as unassigned,
  belong to no class, and mappings that lead to them are left out. The
  properties of the characters that are covered are today's. The script
  stops with an error when the chosen repertoire does not fit.
- One 10-bit delta serves both mappings, and the title-case form must be
  the upper-case form, the character itself or an adjacent code point. Where
  a mapping cannot be expressed it is dropped (the accessor then returns the
  character unchanged) and listed. When the upper and lower mappings need
  different deltas the lower one is kept, since case-blind comparison folds
  to lower case.

Every word is checked after encoding: the three lookups followed by the
accessors' arithmetic must give back exactly the mappings that were kept.
"""
import argparse
import os
import sys

# General categories in the order of their numbers 0-29. Unassigned code
# points are 0, so that an all-zero word means "nothing known".
CATEGORIES = ["Cn",
              "Lu", "Ll", "Lt", "Lm", "Lo",
              "Mn", "Mc", "Me",
              "Nd", "Nl", "No",
              "Pc", "Pd", "Ps", "Pe", "Pi", "Pf", "Po",
              "Sm", "Sc", "Sk", "So",
              "Zs", "Zl", "Zp",
              "Cc", "Cf", "Cs", "Co"]

ADJACENT_TITLE = 1 << 5
HAS_LOWER = 1 << 6
HAS_UPPER = 1 << 7
DELTA_SHIFT = 22
DELTA_MIN, DELTA_MAX = -512, 511

PLANE_SIZE = 0x10000
PAGE_SIZE = 32
PAGE_COUNT = PLANE_SIZE // PAGE_SIZE
MAX_PAGES = 256
MAX_WORDS = 256

# Classes in the order the engine searches them. Each maps to the test that
# selects its members, or to a fixed list of (first, last) pairs.
LETTERS = {"Lu", "Ll", "Lt", "Lm", "Lo"}
PRINTABLE_FAMILIES = {"L", "M", "N", "P", "S"}
CLASSES = [
    ("alnum", lambda cat: cat in LETTERS or cat == "Nd"),
    ("alpha", lambda cat: cat in LETTERS),
    ("ascii", [(0x00, 0x7F)]),
    ("blank", [(0x09, 0x09), (0x20, 0x20)]),
    ("cntrl", lambda cat: cat == "Cc"),
    ("digit", lambda cat: cat == "Nd"),
    ("graph", lambda cat: cat[0] in PRINTABLE_FAMILIES),
    ("lower", lambda cat: cat == "Ll"),
    ("print", "alnum"),
    ("punct", lambda cat: cat[0] == "P"),
    # A fixed list: the separators and tab to carriage return, with the zero
    # width space counted in and the medium mathematical space left out.
    ("space", [(0x09, 0x0D), (0x20, 0x20), (0xA0, 0xA0), (0x1680, 0x1680),
               (0x2000, 0x200B), (0x2028, 0x2029), (0x202F, 0x202F), (0x3000, 0x3000)]),
    ("upper", lambda cat: cat == "Lu"),
    ("xdigit", [(0x30, 0x39), (0x41, 0x46), (0x61, 0x66)]),
]


def parse_version(text):
    return tuple(int(part) for part in text.split("."))


def read_ages(path):
    """Code point -> version tuple of its assignment, and the file's own version."""
    ages = {}
    version = None
    with open(path, encoding="utf-8") as f:
        for line in f:
            if version is None and line.startswith("# DerivedAge-"):
                version = line[len("# DerivedAge-"):].split(".txt")[0].strip()
            data = line.split("#", 1)[0].strip()
            if not data:
                continue
            span, age = (field.strip() for field in data.split(";"))
            first, _, last = span.partition("..")
            for c in range(int(first, 16), int(last or first, 16) + 1):
                if c < PLANE_SIZE:
                    ages[c] = parse_version(age)
    return ages, version


def read_unicode_data(path):
    """Code point -> (category, upper, lower, title), mappings as code points or None."""
    chars = {}
    range_start = None
    with open(path, encoding="utf-8") as f:
        for line in f:
            fields = line.rstrip("\n").split(";")
            c = int(fields[0], 16)
            if c >= PLANE_SIZE:
                continue
            name, category = fields[1], fields[2]
            mappings = tuple(int(field, 16) if field else None for field in fields[12:15])
            if name.endswith(", First>"):
                range_start = c
                continue
            if name.endswith(", Last>"):
                for member in range(range_start, c + 1):
                    chars[member] = (category, None, None, None)
                continue
            chars[c] = (category,) + mappings
    return chars


class Encoder:
    """Turns the database entries into property words, noting what it drops."""

    def __init__(self, chars, in_repertoire):
        self.chars = chars
        self.in_repertoire = in_repertoire
        self.dropped = []  # (code point, what, target, reason)
        self.expected = {}  # code point -> (upper, lower, title) the accessors must give

    def category(self, c):
        if c not in self.chars or not self.in_repertoire(c):
            return "Cn"
        return self.chars[c][0]

    def wanted_mappings(self, c):
        """Mappings of c, with those that lead out of the repertoire dropped."""
        _, upper, lower, title = self.chars[c]
        if title is None:
            title = upper
        wanted = []
        for what, target in (("upper", upper), ("lower", lower), ("title", title)):
            target = c if target is None else target
            if target != c and not self.in_repertoire(target):
                if what != "title" or target != upper:
                    self.dropped.append((c, what, target, "not in the repertoire"))
                target = c
            wanted.append(target)
        return wanted

    def encode(self, c):
        word = CATEGORIES.index(self.category(c))
        if word == 0:
            self.expected[c] = (c, c, c)
            return word
        upper, lower, title = self.wanted_mappings(c)
        upper_delta, lower_delta = c - upper, lower - c
        lower_ok = lower != c and DELTA_MIN <= lower_delta <= DELTA_MAX
        upper_ok = upper != c and DELTA_MIN <= upper_delta <= DELTA_MAX
        if lower_ok and upper_ok and upper_delta != lower_delta:
            upper_ok = False
            self.dropped.append((c, "upper", upper, "its delta differs from the lower one"))
        elif upper != c and not upper_ok:
            self.dropped.append((c, "upper", upper, "delta %d out of range" % upper_delta))
        upper_dropped = upper != c and not upper_ok
        if lower != c and not lower_ok:
            self.dropped.append((c, "lower", lower, "delta %d out of range" % lower_delta))
        delta = lower_delta if lower_ok else upper_delta if upper_ok else 0
        word |= (HAS_LOWER if lower_ok else 0) | (HAS_UPPER if upper_ok else 0)
        word |= (delta & 0x3FF) << DELTA_SHIFT
        kept_title = title
        if to_title(c, word) != title:
            word |= ADJACENT_TITLE
            if to_title(c, word) != title:
                word &= ~ADJACENT_TITLE
                kept_title = to_title(c, word)
                if not (upper_dropped and title == upper):
                    self.dropped.append((c, "title", title,
                                         "not expressible, gives U+%04X" % kept_title))
        self.expected[c] = (upper if upper_ok else c, lower if lower_ok else c, kept_title)
        return word


# The accessors of unicode.h, for the round-trip check.
def delta_of(word):
    delta = word >> DELTA_SHIFT
    return delta - 0x400 if delta & 0x200 else delta


def to_upper(c, word):
    return c - delta_of(word) if word & HAS_UPPER else c


def to_lower(c, word):
    return c + delta_of(word) if word & HAS_LOWER else c


def to_title(c, word):
    if word & ADJACENT_TITLE:
        return c - 1 + (0 if word & HAS_UPPER else 2)
    if word & (ADJACENT_TITLE | HAS_LOWER | HAS_UPPER) == HAS_UPPER:
        return c - delta_of(word)
    return c


def build_lookup(words):
    """The three arrays: page map, group map, distinct words (0 first)."""
    distinct = [0]
    for word in words:
        if word not in distinct:
            distinct.append(word)
    if len(distinct) > MAX_WORDS:
        sys.exit("gen_unicode_tables: %d distinct property words, at most %d fit"
                 % (len(distinct), MAX_WORDS))
    group_of = {word: index for index, word in enumerate(distinct)}
    page_numbers = {}
    page_map = []
    group_map = []
    for start in range(0, PLANE_SIZE, PAGE_SIZE):
        page = tuple(group_of[word] for word in words[start:start + PAGE_SIZE])
        if page not in page_numbers:
            page_numbers[page] = len(page_numbers)
            group_map.extend(page)
        page_map.append(page_numbers[page])
    return page_map, group_map, distinct


def check_round_trip(encoder, page_map, group_map, distinct):
    for c in range(PLANE_SIZE):
        word = distinct[group_map[(page_map[c >> 5] << 5) | (c & 31)]]
        got = (to_upper(c, word), to_lower(c, word), to_title(c, word))
        if got != encoder.expected[c] or CATEGORIES[word & 31] != encoder.category(c):
            sys.exit("gen_unicode_tables: U+%04X does not round-trip" % c)


def runs(members):
    """Sorted code points -> (ranges, singles); runs of two or more become ranges."""
    ranges, singles = [], []
    members = sorted(members)
    i = 0
    while i < len(members):
        j = i
        while j + 1 < len(members) and members[j + 1] == members[j] + 1:
            j += 1
        if j == i:
            singles.append(members[i])
        else:
            ranges.append((members[i], members[j]))
        i = j + 1
    return ranges, singles


def build_classes(encoder):
    lists = {}
    for name, rule in CLASSES:
        if isinstance(rule, str):
            continue
        if callable(rule):
            members = [c for c in range(PLANE_SIZE) if rule(encoder.category(c))]
        else:
            members = [c for first, last in rule for c in range(first, last + 1)]
        lists[name] = runs(members)
    return lists


def describe_drops(dropped):
    """One comment line per run of like drops (same kind, reason and delta)."""
    lines = []
    run = None
    for c, what, target, reason in sorted(dropped):
        key = (what, reason, target - c)
        if run and run["key"] == key and run["last"] + 1 == c:
            run["last"] = c
            continue
        if run:
            lines.append(run)
        run = {"key": key, "first": c, "last": c, "target": target}
    if run:
        lines.append(run)
    text = []
    for run in lines:
        what, reason, offset = run["key"]
        if run["first"] == run["last"]:
            text.append("//   U+%04X %s U+%04X: %s" % (run["first"], what, run["target"], reason))
        else:
            text.append("//   U+%04X..U+%04X %s U+%04X..U+%04X: %s" % (
                run["first"], run["last"], what, run["target"], run["last"] + offset, reason))
    return text


def format_values(values, per_line, width):
    rows = []
    for i in range(0, len(values), per_line):
        rows.append("    " + ", ".join("0x%0*x" % (width, v) for v in values[i:i + per_line]) + ",")
    return rows


def write_source(out, args, data_version, page_map, group_map, distinct, classes, drops):
    w = out.write
    w("// Unicode property and class tables of the wide regular-expression engine.\n")
    w("//\n")
    w("// GENERATED FILE, do not edit: `make unicode-tables` rewrites it by running\n")
    w("//     tools/gen_unicode_tables.py --repertoire %s\n" % args.repertoire)
    w("// over UnicodeData.txt and DerivedAge.txt of Unicode %s. The layout and the\n"
      % data_version)
    w("// numbering of the categories are told in regex/unicode.h and in the script.\n")
    w("//\n")
    w("// Covered: the basic multilingual plane as assigned in Unicode %s, %d distinct\n"
      % (args.repertoire, len(distinct)))
    w("// property words, %d distinct pages of 32 code points.\n" % (len(group_map) // 32))
    w("//\n")
    w("// Mappings the tables leave out (the accessors return the character itself;\n")
    w("// a title-case form equal to a dropped upper-case form goes with it):\n")
    for line in drops:
        w(line + "\n")
    w("\n#include \"regex/unicode.h\"\n\n")
    w("namespace Orlo::IMPL {\n\n")
    w("const char unicode_data_version[] = \"%s\";\n" % data_version)
    w("const char unicode_repertoire_version[] = \"%s\";\n" % args.repertoire)
    w("\n")
    w("// clang-format off\n")
    w("const uint8_t unicode_page_map[%d] = {\n" % PAGE_COUNT)
    w("\n".join(format_values(page_map, 16, 2)) + "\n};\n\n")
    w("const uint8_t unicode_group_map[%d] = {\n" % len(group_map))
    w("\n".join(format_values(group_map, 16, 2)) + "\n};\n\n")
    w("const uint32_t unicode_properties[%d] = {\n" % len(distinct))
    w("\n".join(format_values(distinct, 8, 8)) + "\n};\n\n")
    w("namespace {\n\n")
    for name, (ranges, singles) in classes.items():
        if ranges:
            w("const unicode_range %s_ranges[] = {\n" % name)
            for i in range(0, len(ranges), 5):
                w("    " + " ".join("{0x%04x, 0x%04x}," % r for r in ranges[i:i + 5]) + "\n")
            w("};\n")
        if singles:
            w("const uint16_t %s_singles[] = {\n" % name)
            w("\n".join(format_values(singles, 10, 4)) + "\n};\n")
        w("\n")
    w("}  // namespace\n\n")
    w("// print shares the lists of alnum on purpose (see unicode.h).\n")
    w("const unicode_class unicode_classes[%d] = {\n" % len(CLASSES))
    for name, rule in CLASSES:
        source = rule if isinstance(rule, str) else name
        ranges, singles = classes[source]
        w("    {\"%s\", %s, %d, %s, %d},\n" % (
            name, "%s_ranges" % source if ranges else "nullptr", len(ranges),
            "%s_singles" % source if singles else "nullptr", len(singles)))
    w("};\n")
    w("// clang-format on\n\n")
    w("}  // namespace Orlo::IMPL\n")


def main():
    here = os.path.dirname(os.path.abspath(__file__))
    parser = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    parser.add_argument("--ucd", default="/usr/share/unicode",
                        help="directory with UnicodeData.txt and DerivedAge.txt")
    parser.add_argument("--repertoire", default="4.0",
                        help="cover the characters assigned up to this Unicode version")
    parser.add_argument("--output", default=os.path.join(
        here, "..", "lib", "utilitis", "src", "regex", "unicode_tables.cpp"))
    args = parser.parse_args()

    ages, data_version = read_ages(os.path.join(args.ucd, "DerivedAge.txt"))
    chars = read_unicode_data(os.path.join(args.ucd, "UnicodeData.txt"))
    limit = parse_version(args.repertoire)
    encoder = Encoder(chars, lambda c: c in ages and ages[c] <= limit)
    words = [encoder.encode(c) for c in range(PLANE_SIZE)]
    page_map, group_map, distinct = build_lookup(words)
    pages = len(group_map) // PAGE_SIZE
    if pages > MAX_PAGES:
        sys.exit("gen_unicode_tables: the repertoire of Unicode %s makes %d distinct pages, "
                 "at most %d fit; choose an older --repertoire" % (args.repertoire, pages, MAX_PAGES))
    check_round_trip(encoder, page_map, group_map, distinct)
    classes = build_classes(encoder)
    drops = describe_drops(encoder.dropped)
    with open(args.output, "w", encoding="utf-8") as out:
        write_source(out, args, data_version, page_map, group_map, distinct, classes, drops)
    print("gen_unicode_tables: Unicode %s, repertoire %s: %d pages, %d property words, "
          "%d dropped mappings -> %s" % (data_version, args.repertoire, pages, len(distinct),
                                         len(encoder.dropped), os.path.normpath(args.output)))


if __name__ == "__main__":
    main()

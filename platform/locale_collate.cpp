// Linguistic text comparison for VarBstrCmp with a locale.
//
// Each code unit gives up to two collation elements with three levels:
// primary (symbols < digits < letters, letters by base letter), secondary
// (diacritics) and tertiary (case: lower before upper; width). Hyphen and
// apostrophe weigh nothing on the first three levels and decide only at the
// end ("word sort"): "coop" < "co-op" < "cop". Control characters weigh
// nothing at all. The levels are compared one after the other over the whole
// text, so "a" < "A" < "b" and "resume" < "r\u00E9sum\u00E9" < "resumes".
#include "platform/internal/locale_data.h"

#include <cstdint>

namespace veltrane::platform::detail {
namespace {

enum Class : uint32_t { kSymbol = 1, kDigit = 2, kLetter = 3, kOther = 4 };

struct Element {
  uint32_t primary;
  uint8_t secondary;  // 0: no diacritic
  uint8_t tertiary;   // bit 0: upper case, bit 1: full width
};

// Base letters of Latin Extended-A, U+0100 to U+017F.
constexpr char kExtendedABase[] =
    "AaAaAaCcCcCcCcDdDdEeEeEeEeEeGgGgGgGgHhHhIiIiIiIiIiIiJjKkkLlLlLlLlLlNnNnNnnNnOoOoOoOoRrRrRrSsSsSsSsTtTtTtUuUuUuUuUu"
    "UuWwYyYZzZzZzs";
static_assert(sizeof(kExtendedABase) == 0x80 + 1, "one base letter per code point");

// Latin-1 letters U+00C0 to U+00FF: base letter (0: not a letter) and
// diacritic (1 grave, 2 acute, 3 circumflex, 4 tilde, 5 diaeresis, 6 ring,
// 7 ligature, 8 cedilla, 9 stroke or special).
struct Latin1Letter {
  char base;
  char second;  // second letter of an expansion, or 0
  uint8_t diacritic;
};
constexpr Latin1Letter kLatin1[64] = {
    {'A', 0, 1}, {'A', 0, 2}, {'A', 0, 3}, {'A', 0, 4}, {'A', 0, 5}, {'A', 0, 6}, {'A', 'E', 7}, {'C', 0, 8},
    {'E', 0, 1}, {'E', 0, 2}, {'E', 0, 3}, {'E', 0, 5}, {'I', 0, 1}, {'I', 0, 2}, {'I', 0, 3},   {'I', 0, 5},
    {'D', 0, 9}, {'N', 0, 4}, {'O', 0, 1}, {'O', 0, 2}, {'O', 0, 3}, {'O', 0, 4}, {'O', 0, 5},   {0, 0, 0},
    {'O', 0, 9}, {'U', 0, 1}, {'U', 0, 2}, {'U', 0, 3}, {'U', 0, 5}, {'Y', 0, 2}, {'T', 'H', 9}, {'s', 's', 9},
    {'a', 0, 1}, {'a', 0, 2}, {'a', 0, 3}, {'a', 0, 4}, {'a', 0, 5}, {'a', 0, 6}, {'a', 'e', 7}, {'c', 0, 8},
    {'e', 0, 1}, {'e', 0, 2}, {'e', 0, 3}, {'e', 0, 5}, {'i', 0, 1}, {'i', 0, 2}, {'i', 0, 3},   {'i', 0, 5},
    {'d', 0, 9}, {'n', 0, 4}, {'o', 0, 1}, {'o', 0, 2}, {'o', 0, 3}, {'o', 0, 4}, {'o', 0, 5},   {0, 0, 0},
    {'o', 0, 9}, {'u', 0, 1}, {'u', 0, 2}, {'u', 0, 3}, {'u', 0, 5}, {'y', 0, 2}, {'t', 'h', 9}, {'y', 0, 5},
};

bool isIgnorable(char16_t c) {
  return c < 0x09 || (c >= 0x0E && c < 0x20) || (c >= 0x7F && c < 0xA0) || c == 0xAD || c == 0x200B || c == 0xFEFF;
}

bool isWordSortSpecial(char16_t c) { return c == u'-' || c == u'\'' || c == 0x2010 || c == 0x2011; }

bool isSymbol(char16_t c) {
  if (c < 0x80) return !((c >= u'0' && c <= u'9') || (c >= u'A' && c <= u'Z') || (c >= u'a' && c <= u'z'));
  if (c < 0xC0) return true;
  if (c == 0xD7 || c == 0xF7) return true;
  return (c >= 0x2000 && c <= 0x2BFF) || (c >= 0x3000 && c <= 0x303F) || (c >= 0xFE30 && c <= 0xFE4F);
}

Element letter(char base, uint8_t diacritic, bool upper) {
  char lower = static_cast<char>(base | 0x20);
  return {(kLetter << 16) | static_cast<uint32_t>(lower - 'a'), diacritic, static_cast<uint8_t>(upper ? 1 : 0)};
}

// The elements of one code unit: 0 (ignorable), 1 or 2 (expansion).
int elementsOf(char16_t c, ULONG flags, Element out[2]) {
  uint8_t width = 0;
  if (c >= 0xFF01 && c <= 0xFF5E) {
    c = static_cast<char16_t>(c - 0xFEE0);
    if (!(flags & NORM_IGNOREWIDTH)) width = 2;
  }
  if (isIgnorable(c)) return 0;
  if (c >= u'0' && c <= u'9') {
    out[0] = {(kDigit << 16) | static_cast<uint32_t>(c - u'0'), 0, width};
    return 1;
  }
  if ((c >= u'A' && c <= u'Z') || (c >= u'a' && c <= u'z')) {
    out[0] = letter(static_cast<char>(c), 0, c <= u'Z');
    out[0].tertiary |= width;
    return 1;
  }
  if (c >= 0xC0 && c <= 0xFF && kLatin1[c - 0xC0].base) {
    const Latin1Letter& l = kLatin1[c - 0xC0];
    bool upper = l.base <= 'Z';
    out[0] = letter(l.base, l.diacritic, upper);
    if (!l.second) return 1;
    out[1] = letter(l.second, l.diacritic, upper && l.second <= 'Z');
    return 2;
  }
  if (c >= 0x100 && c <= 0x17F) {
    char base = kExtendedABase[c - 0x100];
    out[0] = letter(base, static_cast<uint8_t>(16 + ((c - 0x100) >> 1)), base <= 'Z');
    return 1;
  }
  if (isSymbol(c)) {
    out[0] = {(kSymbol << 16) | c, 0, width};
    return 1;
  }
  char16_t folded = FoldCase(c);
  out[0] = {(kOther << 16) | folded, 0, static_cast<uint8_t>(folded != c ? 1 : 0)};
  return 1;
}

// Walks the elements of a text that count on the first three levels.
class ElementStream {
 public:
  ElementStream(const char16_t* s, size_t n, ULONG flags) : s_(s), n_(n), flags_(flags) {}

  bool next(Element* e) {
    while (pending_ == taken_) {
      if (i_ >= n_) return false;
      char16_t c = s_[i_++];
      if (isWordSortSpecial(c)) continue;
      taken_ = 0;
      pending_ = elementsOf(c, flags_, buffer_);
      if ((flags_ & NORM_IGNORESYMBOLS) && pending_ && (buffer_[0].primary >> 16) == kSymbol) pending_ = 0;
    }
    *e = buffer_[taken_++];
    return true;
  }

 private:
  const char16_t* s_;
  size_t n_;
  size_t i_ = 0;
  ULONG flags_;
  Element buffer_[2];
  int pending_ = 0;
  int taken_ = 0;
};

int sign(long v) { return v < 0 ? -1 : (v > 0 ? 1 : 0); }

int compareLevel(const char16_t* a, size_t na, const char16_t* b, size_t nb, ULONG flags, int level,
                 uint8_t tertiaryMask = 3) {
  ElementStream left(a, na, flags), right(b, nb, flags);
  for (;;) {
    Element x, y;
    bool hasX = left.next(&x), hasY = right.next(&y);
    if (!hasX || !hasY) return hasX ? 1 : (hasY ? -1 : 0);
    long d = 0;
    if (level == 1)
      d = static_cast<long>(x.primary) - static_cast<long>(y.primary);
    else if (level == 2)
      d = static_cast<long>(x.secondary) - static_cast<long>(y.secondary);
    else
      d = static_cast<long>(x.tertiary & tertiaryMask) - static_cast<long>(y.tertiary & tertiaryMask);
    if (d) return sign(d);
  }
}

// Hyphens and apostrophes: a text with fewer of them sorts first; otherwise
// by their positions, then by the characters.
int compareSpecials(const char16_t* a, size_t na, const char16_t* b, size_t nb) {
  size_t i = 0, j = 0;
  for (;;) {
    while (i < na && !isWordSortSpecial(a[i])) ++i;
    while (j < nb && !isWordSortSpecial(b[j])) ++j;
    bool hasA = i < na, hasB = j < nb;
    if (!hasA || !hasB) return hasA ? 1 : (hasB ? -1 : 0);
    if (i != j) return i < j ? 1 : -1;
    if (a[i] != b[j]) return a[i] < b[j] ? -1 : 1;
    ++i;
    ++j;
  }
}

}  // namespace

int CollateCompare(const LocaleInfo& locale, const char16_t* a, size_t na, const char16_t* b, size_t nb, ULONG flags) {
  (void)locale;  // en-US, en-GB, de-DE and the invariant locale share the default table
  int r = compareLevel(a, na, b, nb, flags, 1);
  if (r) return r;
  if (!(flags & NORM_IGNORENONSPACE)) {
    r = compareLevel(a, na, b, nb, flags, 2);
    if (r) return r;
  }
  // Case and width; width still counts when only case is ignored.
  r = compareLevel(a, na, b, nb, flags, 3, (flags & NORM_IGNORECASE) ? 2 : 3);
  if (r) return r;
  if (flags & NORM_IGNORESYMBOLS) return 0;
  return compareSpecials(a, na, b, nb);
}

}  // namespace veltrane::platform::detail

#include "runtime/xml_depth.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif
#if defined(__x86_64__)
#include <immintrin.h>
#define VELTRANE_WIDE_SCAN 1
#endif

namespace {

constexpr size_t kBlock = 64;

// The positions in a block of 64 bytes of the characters that can change the
// state of the scan ('<', '>', quotes), one bit per byte.
#if defined(__SSE2__)
std::uint64_t Mark(const char* block) {
  const __m128i lt = _mm_set1_epi8('<'), gt = _mm_set1_epi8('>'), dq = _mm_set1_epi8('"'), sq = _mm_set1_epi8('\'');
  std::uint64_t marks = 0;
  for (int part = 0; part < 4; ++part) {
    const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(block + 16 * part));
    const __m128i hits = _mm_or_si128(_mm_or_si128(_mm_cmpeq_epi8(v, lt), _mm_cmpeq_epi8(v, gt)),
                                      _mm_or_si128(_mm_cmpeq_epi8(v, dq), _mm_cmpeq_epi8(v, sq)));
    marks |= static_cast<std::uint64_t>(static_cast<std::uint16_t>(_mm_movemask_epi8(hits))) << (16 * part);
  }
  return marks;
}
#else
std::uint64_t Mark(const char* block) {
  std::uint64_t marks = 0;
  for (size_t i = 0; i < kBlock; ++i) {
    const char c = block[i];
    if (c == '<' || c == '>' || c == '"' || c == '\'') marks |= std::uint64_t{1} << i;
  }
  return marks;
}
#endif

// The sum of a + b + carryIn in 64 bits, and its carry out.
inline std::uint64_t AddCarry(std::uint64_t a, std::uint64_t b, std::uint64_t carryIn, std::uint64_t& carryOut) {
  std::uint64_t sum = 0;
  const bool first = __builtin_add_overflow(a, b, &sum);
  const bool second = __builtin_add_overflow(sum, carryIn, &sum);
  carryOut = first || second ? 1 : 0;
  return sum;
}

// Where the scan stands between two characters of interest.
enum class State { Text, OpenTag, CloseTag, Quoted };

class DepthScan {
 public:
  // The text of length bytes; the scan ends at a NUL only where EndAtNul
  // has found one.
  DepthScan(const char* s, size_t length) : s_(s), end_(length) {}

  size_t Run() {
    for (size_t pos = 0; pos < end_;) pos = Exact(pos);
    return deepest_;
  }

  // Reads on from pos up to stop (or the end) and tells whether the
  // elements nest deeper than limit so far; pos is where it stopped. Blocks
  // of plain markup are counted at once where the processor has the wide
  // comparisons for it (Plain); the others are read character by character.
  bool DeeperThan(size_t stop, size_t limit, size_t& pos) {
    while (pos < std::min(stop, end_)) {
#if defined(VELTRANE_WIDE_SCAN)
      if (Wide() && state_ != State::Quoted && pos + kBlock < end_) {
        const size_t next = Plain(pos, stop, limit);
        if (next != pos) {
          pos = next;
          continue;
        }
      }
#endif
      pos = Exact(pos);
      if (deepest_ > limit) return true;
    }
    return deepest_ > limit;
  }

  // The text ends at the first NUL in [from, from + length), if it has one
  // there before its end so far.
  void EndAtNul(size_t from, size_t length) {
    if (from >= end_) return;
    const void* nul = std::memchr(s_ + from, '\0', std::min(length, end_ - from));
    if (nul) end_ = static_cast<size_t>(static_cast<const char*>(nul) - s_);
  }

 private:
  // Reads the block at pos character by character; the position to go on
  // from, past markup that does not nest when it was skipped.
  size_t Exact(size_t pos) {
    char padded[kBlock];
    const char* block = s_ + pos;
    const size_t length = std::min(kBlock, end_ - pos);
    if (length < kBlock) {
      // The last bytes, padded with a character of no interest.
      std::memset(padded, ' ', kBlock);
      std::memcpy(padded, block, length);
      block = padded;
    }
    std::uint64_t marks = Mark(block);
    if (length < kBlock) marks &= (std::uint64_t{1} << length) - 1;
    for (std::uint64_t bits = marks; bits; bits &= bits - 1) {
      const size_t i = pos + static_cast<size_t>(__builtin_ctzll(bits));
      const size_t skipTo = Step(i);
      if (skipTo != 0) return skipTo;
    }
    return pos + length;
  }

#if defined(VELTRANE_WIDE_SCAN)
  static bool Wide() {
    static const bool wide = [] {
      __builtin_cpu_init();
      return __builtin_cpu_supports("avx512bw") != 0;
    }();
    return wide;
  }

  // Counts blocks of 64 bytes of plain markup from pos on (tags without
  // quotes, no comments, declarations, instructions or NULs, and '<' and
  // '>' alternating), as long as the depth stays within limit and the exact
  // scan would not have stopped counting down at zero: the position of the
  // first block it leaves to the exact scan, or from stop on. Each block is
  // counted at once: adding a one where a run of characters starts carries
  // it to the end of the run, so the first '>' after each '<' (the end of
  // its tag) and the first '<' after each '>' (the end of the text) come out
  // of one addition each. The byte after a block is read, so that block must
  // not be the last.
  __attribute__((target("avx512bw,popcnt"))) size_t Plain(size_t pos, size_t stop, size_t limit) {
    const char* const s = s_;
    size_t depth = depth_;
    std::uint64_t inTag = state_ == State::Text ? 0 : 1;
    std::uint64_t inCloseTag = state_ == State::CloseTag ? 1 : 0;
    std::uint64_t slashBefore = pos > 0 && s[pos - 1] == '/' ? 1 : 0;
    const __m512i lt = _mm512_set1_epi8('<'), gt = _mm512_set1_epi8('>'), dq = _mm512_set1_epi8('"'),
                  sq = _mm512_set1_epi8('\''), slash = _mm512_set1_epi8('/'), bang = _mm512_set1_epi8('!'),
                  question = _mm512_set1_epi8('?'), nul = _mm512_setzero_si512();
    for (; pos < stop && pos + kBlock < end_; pos += kBlock) {
      const __m512i v = _mm512_loadu_si512(s + pos);
      if (_mm512_cmpeq_epi8_mask(v, dq) | _mm512_cmpeq_epi8_mask(v, sq) | _mm512_cmpeq_epi8_mask(v, nul)) break;
      const std::uint64_t lts = _mm512_cmpeq_epi8_mask(v, lt), gts = _mm512_cmpeq_epi8_mask(v, gt);
      const std::uint64_t slashes = _mm512_cmpeq_epi8_mask(v, slash);
      const std::uint64_t bangs = _mm512_cmpeq_epi8_mask(v, bang) | _mm512_cmpeq_epi8_mask(v, question);
      // The classes of the character after each byte.
      const char after = s[pos + kBlock];
      const std::uint64_t slashAfter = (slashes >> 1) | (std::uint64_t{after == '/'} << 63);
      const std::uint64_t bangAfter = (bangs >> 1) | (std::uint64_t{after == '!' || after == '?'} << 63);
      if (lts & bangAfter) break;
      const std::uint64_t closes = lts & slashAfter, opens = lts & ~slashAfter;
      std::uint64_t tagOut = 0, textOut = 0, closeOut = 0;
      const std::uint64_t tagEnds = AddCarry(lts << 1, ~gts, inTag, tagOut) & gts;
      const std::uint64_t textEnds = AddCarry(gts << 1, ~lts, 1 - inTag, textOut) & lts;
      if (tagEnds != gts || textEnds != lts) break;
      // A start tag whose '>' follows a '/' holds no element.
      const std::uint64_t closeEnds = AddCarry(closes << 1, ~gts, inCloseTag, closeOut) & gts;
      const std::uint64_t empties = gts & ((slashes << 1) | slashBefore) & ~closeEnds;
      const size_t up = static_cast<size_t>(__builtin_popcountll(opens));
      const size_t down = static_cast<size_t>(__builtin_popcountll(closes) + __builtin_popcountll(empties));
      if (depth + up > limit || down > depth) break;
      depth = depth + up - down;
      inTag = tagOut | (lts >> 63);
      inCloseTag = closeOut | (closes >> 63);
      slashBefore = slashes >> 63;
    }
    depth_ = depth;
    state_ = !inTag ? State::Text : inCloseTag ? State::CloseTag : State::OpenTag;
    return pos;
  }
#endif

  // Takes the character at i; a position to go on from when markup that does
  // not nest was skipped, else 0.
  size_t Step(size_t i) {
    const char c = s_[i];
    switch (state_) {
      case State::Text:
        if (c == '<') return Open(i);
        return 0;
      case State::OpenTag:
        if (c == '"' || c == '\'') {
          quote_ = c;
          state_ = State::Quoted;
        } else if (c == '>') {
          // A tag closed by "/>" holds no element.
          if (i > tagStart_ + 1 && s_[i - 1] == '/' && depth_ > 0) --depth_;
          state_ = State::Text;
        }
        return 0;
      case State::CloseTag:
        if (c == '>') state_ = State::Text;
        return 0;
      case State::Quoted:
        if (c == quote_) state_ = State::OpenTag;
        return 0;
    }
    return 0;
  }

  bool At(size_t i, std::string_view text) const {
    return i + text.size() <= end_ && std::memcmp(s_ + i, text.data(), text.size()) == 0;
  }

  // Past the first terminator at or after from, or the end.
  size_t SkipPast(size_t from, std::string_view terminator) const {
    if (from >= end_) return end_;
    const void* at = memmem(s_ + from, end_ - from, terminator.data(), terminator.size());
    return at ? static_cast<size_t>(static_cast<const char*>(at) - s_) + terminator.size() : end_;
  }

  // The character after '<' tells the kind of markup; a start tag, the most
  // frequent, is told by that one character.
  size_t Open(size_t i) {
    const char next = i + 1 < end_ ? s_[i + 1] : '\0';
    if (next == '/') {
      if (depth_ > 0) --depth_;
      state_ = State::CloseTag;
      return 0;
    }
    if (next == '?') return SkipPast(i + 2, "?>");
    if (next == '!') {
      if (At(i, "<!--")) return SkipPast(i + 4, "-->");
      if (At(i, "<![CDATA[")) return SkipPast(i + 9, "]]>");
      int brackets = 0;
      size_t j = i + 2;
      for (; j < end_ && !(s_[j] == '>' && brackets == 0); ++j) {
        if (s_[j] == '[') ++brackets;
        if (s_[j] == ']' && brackets > 0) --brackets;
      }
      return std::min(end_, j + 1);
    }
    deepest_ = std::max(deepest_, ++depth_);
    tagStart_ = i;
    state_ = State::OpenTag;
    return 0;
  }

  const char* s_;
  size_t end_;
  State state_ = State::Text;
  char quote_ = 0;
  size_t tagStart_ = 0;
  size_t depth_ = 0;
  size_t deepest_ = 0;
};

}  // namespace

size_t ElementDepth(std::string_view s) { return DepthScan(s.data(), std::min(s.size(), s.find('\0'))).Run(); }

size_t ElementDepth(const char* s) { return DepthScan(s, std::strlen(s)).Run(); }

bool CopyElementsDeeperThan(std::string_view text, char* out, size_t limit) {
  // Pieces small enough to be read again from the cache.
  constexpr size_t kPiece = 32 * 1024;
  DepthScan scan(text.data(), text.size());
  size_t pos = 0;
  for (size_t at = 0; at < text.size(); at += kPiece) {
    const size_t length = std::min(kPiece, text.size() - at);
    std::memcpy(out + at, text.data() + at, length);
    // A block read at the end of the piece reaches into the next one.
    scan.EndAtNul(at, length + kBlock);
    if (scan.DeeperThan(at + length, limit, pos)) return true;
  }
  out[text.size()] = '\0';
  return false;
}

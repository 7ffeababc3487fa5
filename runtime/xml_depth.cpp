#include "runtime/xml_depth.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

#if defined(__SSE2__)
#include <emmintrin.h>
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

// Where the scan stands between two characters of interest.
enum class State { Text, OpenTag, CloseTag, Quoted };

class DepthScan {
 public:
  // The text of length bytes, none of them NUL.
  DepthScan(const char* s, size_t length) : s_(s), end_(length) {}

  size_t Run() {
    size_t pos = 0;
    while (pos < end_) {
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
      size_t next = pos + length;
      for (std::uint64_t bits = marks; bits; bits &= bits - 1) {
        const size_t i = pos + static_cast<size_t>(__builtin_ctzll(bits));
        const size_t skipTo = Step(i);
        if (skipTo != 0) {
          next = skipTo;
          break;
        }
      }
      pos = next;
    }
    return deepest_;
  }

 private:
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

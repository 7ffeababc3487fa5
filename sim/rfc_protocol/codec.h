// Primitive encoding of the RFC protocol between veltrane-sim and the SDK libraries: little-endian
// fixed integers, LEB128 varints, zigzag for signed numbers, length-prefixed texts and bytes.
#pragma once

#include <cstdint>
#include <cstring>
#include <stdexcept>
#include <string>
#include <string_view>

namespace vsim::proto {

// Input that does not follow the protocol: a short, oversized or garbled frame or message.
class ProtocolError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Value types on the wire; the numbers are those of the NW RFC SDK's RFCTYPE.
enum class WireType : std::uint8_t {
  Char = 0,
  Date = 1,
  Bcd = 2,
  Time = 3,
  Byte = 4,
  Table = 5,
  Num = 6,
  Float = 7,
  Int = 8,
  Int2 = 9,
  Int1 = 10,
  Structure = 17,
  DecF16 = 23,
  DecF34 = 24,
  String = 29,
  XString = 30,
  Int8 = 31,
  UtcLong = 32,
};

enum class WireForm { Text, Bytes, Integer, Real, Structure, Table };
// How a value of the type travels; false for a number that is no wire type.
bool wireTypeKnown(std::uint8_t code);
WireForm wireForm(WireType type);
const char* wireTypeName(WireType type);

// Appends to a string that becomes (part of) a frame.
class Writer {
 public:
  explicit Writer(std::string& out) : out_(out) {}
  void u8(std::uint8_t v) { out_.push_back(static_cast<char>(v)); }
  void u16(std::uint16_t v) { fixed(v); }
  void u32(std::uint32_t v) { fixed(v); }
  void varint(std::uint64_t v) {
    char buf[10];
    size_t n = 0;
    while (v >= 0x80) {
      buf[n++] = static_cast<char>((v & 0x7f) | 0x80);
      v >>= 7;
    }
    buf[n++] = static_cast<char>(v);
    out_.append(buf, n);
  }
  void svarint(std::int64_t v) { varint((static_cast<std::uint64_t>(v) << 1) ^ static_cast<std::uint64_t>(v >> 63)); }
  void f64(double v) {
    std::uint64_t bits;
    std::memcpy(&bits, &v, sizeof bits);
    fixed(bits);
  }
  void text(std::string_view s) {
    varint(s.size());
    out_.append(s.data(), s.size());
  }
  void boolean(bool b) { u8(b ? 1 : 0); }
  void type(WireType t) { u8(static_cast<std::uint8_t>(t)); }
  std::string& buffer() { return out_; }
  size_t size() const { return out_.size(); }

 private:
  template <class T>
  void fixed(T v) {
    char buf[sizeof(T)];
    for (size_t i = 0; i < sizeof(T); ++i) buf[i] = static_cast<char>((v >> (8 * i)) & 0xff);
    out_.append(buf, sizeof(T));
  }
  std::string& out_;
};

// Reads what Writer wrote. Every read checks the remaining length and throws ProtocolError.
class Reader {
 public:
  Reader(const char* data, size_t size) : p_(data), end_(data + size) {}
  explicit Reader(std::string_view s) : Reader(s.data(), s.size()) {}

  std::uint8_t u8() {
    need(1);
    return static_cast<std::uint8_t>(*p_++);
  }
  std::uint16_t u16() { return fixed<std::uint16_t>(); }
  std::uint32_t u32() { return fixed<std::uint32_t>(); }
  std::uint64_t varint() {
    std::uint64_t v = 0;
    for (int shift = 0; shift < 64; shift += 7) {
      need(1);
      const auto b = static_cast<std::uint8_t>(*p_++);
      if (shift == 63 && b > 1) throw ProtocolError("varint out of range");
      v |= static_cast<std::uint64_t>(b & 0x7f) << shift;
      if (!(b & 0x80)) return v;
    }
    throw ProtocolError("varint too long");
  }
  std::int64_t svarint() {
    const std::uint64_t u = varint();
    return static_cast<std::int64_t>((u >> 1) ^ (~(u & 1) + 1));
  }
  double f64() {
    const std::uint64_t bits = fixed<std::uint64_t>();
    double v;
    std::memcpy(&v, &bits, sizeof v);
    return v;
  }
  std::string_view text() {
    const std::uint64_t n = varint();
    if (n > remaining()) throw ProtocolError("text longer than the message");
    std::string_view s(p_, static_cast<size_t>(n));
    p_ += n;
    return s;
  }
  bool boolean() {
    const std::uint8_t b = u8();
    if (b > 1) throw ProtocolError("flag is neither 0 nor 1");
    return b == 1;
  }
  WireType type() {
    const std::uint8_t code = u8();
    if (!wireTypeKnown(code)) throw ProtocolError("unknown value type " + std::to_string(code));
    return static_cast<WireType>(code);
  }
  // A count of items that each take at least `minItemBytes`: bounded by what is left.
  size_t count(size_t minItemBytes = 1) {
    const std::uint64_t n = varint();
    if (minItemBytes && n > remaining() / minItemBytes) throw ProtocolError("count larger than the message");
    return static_cast<size_t>(n);
  }
  size_t remaining() const { return static_cast<size_t>(end_ - p_); }
  bool done() const { return p_ == end_; }
  void expectEnd() const {
    if (!done()) throw ProtocolError("unexpected bytes at the end of a message");
  }
  const char* position() const { return p_; }

 private:
  void need(size_t n) const {
    if (remaining() < n) throw ProtocolError("message ends too early");
  }
  template <class T>
  T fixed() {
    need(sizeof(T));
    T v = 0;
    for (size_t i = 0; i < sizeof(T); ++i)
      v |= static_cast<T>(static_cast<T>(static_cast<std::uint8_t>(p_[i])) << (8 * i));
    p_ += sizeof(T);
    return v;
  }
  const char* p_;
  const char* end_;
};

}  // namespace vsim::proto

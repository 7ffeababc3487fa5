// Frames of the RFC protocol: a little-endian 32-bit length, then that many bytes, of which the
// first is the message kind. One request frame is answered by one reply frame.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "rfc_protocol/codec.h"

namespace vsim::proto {

inline constexpr std::uint32_t kMagic = 0x43465256;  // "VRFC" as the first bytes of a logon
inline constexpr std::uint16_t kVersion = 1;
inline constexpr size_t kFrameHeaderSize = 4;
inline constexpr std::uint32_t kDefaultMaxFrame = 256u << 20;

enum class MessageKind : std::uint8_t {
  // client to system
  Logon = 0x01,
  Register = 0x02,
  DescribeFunction = 0x03,
  DescribeType = 0x04,
  Invoke = 0x05,
  Transaction = 0x06,
  Confirm = 0x07,
  NewTid = 0x08,
  Ping = 0x09,
  Close = 0x0A,
  // system to client: replies
  LogonOk = 0x41,
  FunctionDesc = 0x42,
  TypeDesc = 0x43,
  Result = 0x44,
  Exception = 0x45,
  Ok = 0x46,
  Tid = 0x47,
  Error = 0x4F,
  // system to a registered program, and its replies
  Call = 0x61,
  ConfirmCall = 0x62,
  CallResult = 0x71,
  CallException = 0x72,
  CallFailure = 0x73,
  ConfirmOk = 0x74,
};
bool messageKindKnown(std::uint8_t code);
const char* messageKindName(MessageKind kind);

// The body length a frame header announces. Throws ProtocolError for 0 or more than `maxFrame`.
std::uint32_t frameLength(const char header[kFrameHeaderSize], std::uint32_t maxFrame = kDefaultMaxFrame);

// Builds one frame: the header is filled in by finish().
class FrameBuilder {
 public:
  explicit FrameBuilder(MessageKind kind, size_t reserve = 256);
  Writer& writer() { return writer_; }
  // The complete frame. Throws ProtocolError when the body exceeds `maxFrame`.
  std::string finish(std::uint32_t maxFrame = kDefaultMaxFrame);

 private:
  std::string buffer_;
  Writer writer_;
};

// Splits a byte stream into frame bodies (kind byte first), for readers that get arbitrary chunks.
class FrameDecoder {
 public:
  explicit FrameDecoder(std::uint32_t maxFrame = kDefaultMaxFrame) : maxFrame_(maxFrame) {}
  void feed(const char* data, size_t size) { buffer_.append(data, size); }
  // The next complete body, valid until the next call; nullopt when more bytes are needed.
  // Throws ProtocolError for a bad header.
  std::optional<std::string_view> next();

 private:
  std::uint32_t maxFrame_;
  std::string buffer_;
  size_t consumed_ = 0;
};

}  // namespace vsim::proto

#include "rfc_protocol/frame.h"

namespace vsim::proto {

bool messageKindKnown(std::uint8_t code) {
  switch (static_cast<MessageKind>(code)) {
    case MessageKind::Logon:
    case MessageKind::Register:
    case MessageKind::DescribeFunction:
    case MessageKind::DescribeType:
    case MessageKind::Invoke:
    case MessageKind::Transaction:
    case MessageKind::Confirm:
    case MessageKind::NewTid:
    case MessageKind::Ping:
    case MessageKind::Close:
    case MessageKind::LogonOk:
    case MessageKind::FunctionDesc:
    case MessageKind::TypeDesc:
    case MessageKind::Result:
    case MessageKind::Exception:
    case MessageKind::Ok:
    case MessageKind::Tid:
    case MessageKind::Error:
    case MessageKind::Call:
    case MessageKind::ConfirmCall:
    case MessageKind::CallResult:
    case MessageKind::CallException:
    case MessageKind::CallFailure:
    case MessageKind::ConfirmOk: return true;
  }
  return false;
}

const char* messageKindName(MessageKind kind) {
  switch (kind) {
    case MessageKind::Logon: return "LOGON";
    case MessageKind::Register: return "REGISTER";
    case MessageKind::DescribeFunction: return "DESCRIBE_FUNCTION";
    case MessageKind::DescribeType: return "DESCRIBE_TYPE";
    case MessageKind::Invoke: return "INVOKE";
    case MessageKind::Transaction: return "TRANSACTION";
    case MessageKind::Confirm: return "CONFIRM";
    case MessageKind::NewTid: return "NEW_TID";
    case MessageKind::Ping: return "PING";
    case MessageKind::Close: return "CLOSE";
    case MessageKind::LogonOk: return "LOGON_OK";
    case MessageKind::FunctionDesc: return "FUNCTION_DESC";
    case MessageKind::TypeDesc: return "TYPE_DESC";
    case MessageKind::Result: return "RESULT";
    case MessageKind::Exception: return "EXCEPTION";
    case MessageKind::Ok: return "OK";
    case MessageKind::Tid: return "TID";
    case MessageKind::Error: return "ERROR";
    case MessageKind::Call: return "CALL";
    case MessageKind::ConfirmCall: return "CONFIRM_CALL";
    case MessageKind::CallResult: return "CALL_RESULT";
    case MessageKind::CallException: return "CALL_EXCEPTION";
    case MessageKind::CallFailure: return "CALL_FAILURE";
    case MessageKind::ConfirmOk: return "CONFIRM_OK";
  }
  return "?";
}

std::uint32_t frameLength(const char header[kFrameHeaderSize], std::uint32_t maxFrame) {
  Reader r(header, kFrameHeaderSize);
  const std::uint32_t n = r.u32();
  if (n == 0) throw ProtocolError("empty frame");
  if (n > maxFrame)
    throw ProtocolError("frame of " + std::to_string(n) + " bytes exceeds the limit of " + std::to_string(maxFrame));
  return n;
}

FrameBuilder::FrameBuilder(MessageKind kind, size_t reserve) : writer_(buffer_) {
  buffer_.reserve(reserve + kFrameHeaderSize + 1);
  buffer_.assign(kFrameHeaderSize, '\0');
  writer_.u8(static_cast<std::uint8_t>(kind));
}

std::string FrameBuilder::finish(std::uint32_t maxFrame) {
  const size_t body = buffer_.size() - kFrameHeaderSize;
  if (body > maxFrame)
    throw ProtocolError("frame of " + std::to_string(body) + " bytes exceeds the limit of " + std::to_string(maxFrame));
  for (size_t i = 0; i < kFrameHeaderSize; ++i) buffer_[i] = static_cast<char>((body >> (8 * i)) & 0xff);
  return std::move(buffer_);
}

std::optional<std::string_view> FrameDecoder::next() {
  if (consumed_ > 0 && consumed_ * 2 >= buffer_.size()) {
    buffer_.erase(0, consumed_);
    consumed_ = 0;
  }
  const size_t available = buffer_.size() - consumed_;
  if (available < kFrameHeaderSize) return std::nullopt;
  const std::uint32_t n = frameLength(buffer_.data() + consumed_, maxFrame_);
  if (available - kFrameHeaderSize < n) return std::nullopt;
  std::string_view body(buffer_.data() + consumed_ + kFrameHeaderSize, n);
  consumed_ += kFrameHeaderSize + n;
  return body;
}

}  // namespace vsim::proto

#include "rfc_protocol/codec.h"

namespace vsim::proto {

bool wireTypeKnown(std::uint8_t code) {
  switch (static_cast<WireType>(code)) {
    case WireType::Char:
    case WireType::Date:
    case WireType::Bcd:
    case WireType::Time:
    case WireType::Byte:
    case WireType::Table:
    case WireType::Num:
    case WireType::Float:
    case WireType::Int:
    case WireType::Int2:
    case WireType::Int1:
    case WireType::Structure:
    case WireType::DecF16:
    case WireType::DecF34:
    case WireType::String:
    case WireType::XString:
    case WireType::Int8:
    case WireType::UtcLong: return true;
  }
  return false;
}

WireForm wireForm(WireType type) {
  switch (type) {
    case WireType::Byte:
    case WireType::XString: return WireForm::Bytes;
    case WireType::Int:
    case WireType::Int1:
    case WireType::Int2:
    case WireType::Int8: return WireForm::Integer;
    case WireType::Float: return WireForm::Real;
    case WireType::Structure: return WireForm::Structure;
    case WireType::Table: return WireForm::Table;
    default: return WireForm::Text;
  }
}

const char* wireTypeName(WireType type) {
  switch (type) {
    case WireType::Char: return "CHAR";
    case WireType::Date: return "DATE";
    case WireType::Bcd: return "BCD";
    case WireType::Time: return "TIME";
    case WireType::Byte: return "BYTE";
    case WireType::Table: return "TABLE";
    case WireType::Num: return "NUM";
    case WireType::Float: return "FLOAT";
    case WireType::Int: return "INT";
    case WireType::Int2: return "INT2";
    case WireType::Int1: return "INT1";
    case WireType::Structure: return "STRUCTURE";
    case WireType::DecF16: return "DECF16";
    case WireType::DecF34: return "DECF34";
    case WireType::String: return "STRING";
    case WireType::XString: return "XSTRING";
    case WireType::Int8: return "INT8";
    case WireType::UtcLong: return "UTCLONG";
  }
  return "?";
}

}  // namespace vsim::proto

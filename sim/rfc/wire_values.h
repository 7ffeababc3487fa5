// Values of the engine on the RFC wire: written by their dictionary type, read into a dictionary
// type with the conversions an ABAP system applies to what a partner sends.
#pragma once

#include <string_view>

#include "engine/types.h"
#include "rfc_protocol/codec.h"

namespace vsim::rfc {

proto::WireType wireTypeOf(const TypeDesc& type);

// The type byte and the body of a value.
void writeValue(proto::Writer& w, const TypeDesc& type, const Value& value);
// Reads a body sent as `sent` into a value of `target`. A scalar of another type converts through
// its text; fields and columns the target lacks are skipped. Throws ConversionError for a value
// that does not convert and proto::ProtocolError for bad input.
Value readValue(proto::Reader& r, proto::WireType sent, const TypeDesc& target, int depth = 0);

}  // namespace vsim::rfc

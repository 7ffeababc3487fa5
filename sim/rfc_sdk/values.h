// Values between the program's memory and the wire: a Slot's bytes become a wire value and a wire
// value of any convertible type lands in a Slot's bytes, converted as an ABAP system converts
// what a partner sends. Tables stream row by row, without a value tree.
#pragma once

#include "rfc_protocol/codec.h"
#include "rfc_sdk/itab.h"
#include "rfc_sdk/structures.h"

namespace rfcsdk {

vsim::proto::WireType wireTypeOf(const Slot& s);

// The type byte and the body of the value at `p`.
void writeValue(vsim::proto::Writer& w, const Slot& s, const unsigned char* p);
void writeBody(vsim::proto::Writer& w, const Slot& s, const unsigned char* p);
// A table value of the rows of `t`, each a `row`.
void writeTable(vsim::proto::Writer& w, const Slot& row, InternalTable* t);

// Reads a body of wire type `type` into `p`. Throws Failure RFC_CONVERSION for a value that does
// not convert, and ProtocolError for a broken message.
void readInto(vsim::proto::Reader& r, vsim::proto::WireType type, const Slot& s, unsigned char* p, int depth = 0);
// Reads a table body into `t`, replacing its rows.
void readTable(vsim::proto::Reader& r, vsim::proto::WireType type, const Slot& row, InternalTable& t);

// The initial value: blanks for characters, zeros for digits, 0 for numbers, null strings.
void initialize(const Slot& s, unsigned char* p);

// Replaces the content of an XSTRING with `n` bytes (n 0 frees it).
void resizeXString(RFC_XSTRING& x, size_t n);

}  // namespace rfcsdk

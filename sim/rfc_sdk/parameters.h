// The program's parameter arrays (RFC_PARAMETER and RFC_TABLE, each ended by an entry without a
// name) as values sections of the protocol, in both directions.
#pragma once

#include <functional>
#include <string>

#include "rfc_protocol/codec.h"
#include "rfc_sdk/itab.h"
#include "rfc_sdk/structures.h"

namespace rfcsdk {

// The name of an entry, upper-case UTF-8 (nlen characters, or up to the terminator when 0).
std::string entryName(const RFC_CHAR* name, unsigned nlen);

// The table of an entry; one is created when the entry has none (newitab is then set).
InternalTable& tableOf(RFC_TABLE& t);

// Decimals of a scalar packed parameter by name, -1 when unknown.
using DecimalsOf = std::function<int(const std::string& name)>;

struct Outgoing {
  const RFC_PARAMETER* first = nullptr;
  const RFC_PARAMETER* second = nullptr;
  const RFC_TABLE* tables = nullptr;
  bool withTables = true;
};
// Writes a values section: the parameters of both arrays, then the tables.
void writeSection(vsim::proto::Writer& w, const Outgoing& out, const DecimalsOf& decimals);

struct Incoming {
  RFC_PARAMETER* first = nullptr;
  RFC_PARAMETER* second = nullptr;
  RFC_TABLE* tables = nullptr;
};
// Reads a values section into the entries of the same names; others are passed over.
void readSection(vsim::proto::Reader& r, const Incoming& in, const DecimalsOf& decimals);

}  // namespace rfcsdk

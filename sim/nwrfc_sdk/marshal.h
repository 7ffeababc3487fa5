// Containers on the wire: the values sections of calls and answers, written straight from the
// records and read straight into them (texts converted between UTF-8 and UTF-16 in place).
#pragma once

#include "nwrfc_sdk/containers.h"
#include "rfc_protocol/codec.h"

namespace nwrfc {

// Which parameters of a function go into a values section.
enum class Outgoing {
  Request,     // importing, changing and tables: active and supplied by the caller
  Answer,      // exporting, changing and tables: active
  TablesOnly,  // tables: active (the answer to an ABAP exception)
};
void writeParameters(vsim::proto::Writer& w, FunctionContainer& f, Outgoing which);
// Names of the parameters the caller switched off.
std::vector<std::string> inactiveParameters(FunctionContainer& f);
// Reads a values section into the parameters of the same names; others are skipped.
void readParameters(vsim::proto::Reader& r, FunctionContainer& f);

void writeSlot(vsim::proto::Writer& w, const Record& r, const Slot& s);
void readSlot(vsim::proto::Reader& in, vsim::proto::WireType sent, const Record& r, const Slot& s, int depth = 0);

}  // namespace nwrfc

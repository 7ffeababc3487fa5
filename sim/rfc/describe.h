// Descriptions of function modules and dictionary types as the RFC front sends them: parameters
// with direction, type, both layouts' lengths, decimals, default, text and optional flag; nested
// structures and table rows as named type descriptions.
#pragma once

#include <vector>

#include "engine/function.h"
#include "rfc_protocol/messages.h"

namespace vsim::rfc {

proto::FunctionInfo describeFunction(const FunctionModule& fm);
// The type list of a structure or table type (its row structure); the type itself comes last.
std::vector<proto::TypeInfo> describeType(const TypeDesc& type);

}  // namespace vsim::rfc

// Values between JSON and the call's fields, decided by each field's RfcType:
// dates "YYYY-MM-DD", times "HH:MM:SS", binary as base64, integers and
// floats as numbers, all other scalars as strings; structures as objects,
// tables as arrays of objects.
#pragma once

#include <string>

#include <nlohmann/json.hpp>
#include <veltrane.h>

namespace veltrane::cli {

using Json = nlohmann::ordered_json;

// Puts a JSON value into a field of any kind. `path` names the field in
// messages ("DESTINATION_FROM.CITY"). A value that does not fit the type is
// a UsageError.
void jsonToField(IRfcField* field, const Json& value, const std::string& path);

// Puts a command-line text into a field: the text itself for a scalar, JSON
// for a structure or a table.
void textToField(IRfcField* field, const std::string& text, const std::string& path);

// The value of a field of any kind.
Json fieldToJson(IRfcField* field);

// A scalar value; `type` decides how a VT_DATE reads (date, time or both).
Json variantToJson(const VARIANT& value, ABAPTYPE type);

// Scalar kind and ABAP type of a type; the kind alone for others.
RFCTYPEKIND typeKind(IRfcType* type);
ABAPTYPE scalarType(IRfcType* type);
bool isNumericType(ABAPTYPE type);

}  // namespace veltrane::cli

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

// What the back end in use can carry, for the checks before sending.
struct ValueRules {
  std::string backend = "soap";       // for messages
  int charLengthUnit = 1;             // bytes per character in the length of a parameter's CHAR or NUMC type
  bool unsignedIntegers = false;      // integers go out as unsigned 32-bit text
  bool packedMembersInBytes = false;  // a packed field of a structure has its length in bytes, not digits
};
void setValueRules(ValueRules rules);
const ValueRules& valueRules();

// Length of a scalar type in the command's unit: characters for CHAR, NUMC,
// DATE and TIME, bytes for RAW, digits for packed numbers; 0 for types of
// no fixed length. `member`: the type of a structure's or a row's field,
// whose length the back ends give in characters.
long scalarLength(IRfcType* type, bool member);

// Puts a JSON value into a field of any kind. `path` names the field in
// messages ("DESTINATION_FROM.CITY"). A value that does not fit the type
// (its form, its length, its range, or what the back end can carry) is a
// UsageError.
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

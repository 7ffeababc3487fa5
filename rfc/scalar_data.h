// One ABAP scalar between a variant of the object model and its byte form
// in a buffer of the classic SDK (the Unicode flavour: one UTF-16 code unit
// per character of CHAR, NUM, DATE and TIME; STRING as SDK-owned UTF-8;
// XSTRING as a 32-bit length and a data pointer). The marshalling objects,
// the classic server and the metadata import use these; the table of sizes
// and letters is abap/scalar_conversion.h.
#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/oaidl.h"
#include "rfc/rfc_entry_points.h"

// The SDK calls a conversion makes: the packed-number converters, the
// string allocator and the XSTRING resizer, from the loaded library.
using veltrane::sdk::rfc::EntryPoints;

// Writes value into the field at target as type with ScalarLength length
// and decimals. value is changed in place to the form the type needs. A
// code without a scalar form does nothing. Raises CXVeltrane on failure
// (a text too long for a NUM field is no failure: the field stays "0").
int RfcVariantToData(void* target, int32_t type, uint16_t length, int16_t decimals, VARIANT* value,
                     const EntryPoints& sdk);

// RfcVariantToData of a value as the object model holds it, which stays as
// it is: a value already in the form the type needs is read in place, any
// other converted on a copy.
void RfcValueToData(void* target, int32_t type, uint16_t length, int16_t decimals, const VARIANT& value,
                    const EntryPoints& sdk);

// Reads the field at source (byteLength bytes: two per character for CHAR
// and NUM) into result, which is cleared first. A null source or a code
// above 30 leaves it VT_EMPTY. Raises CXVeltrane on failure.
int RfcDataToVariant(VARIANT* result, const void* source, int32_t type, uint16_t byteLength, int16_t decimals,
                     const EntryPoints& sdk);

class RowStore;

// RfcDataToVariant into a cell of a table's row store (model/row_store.h):
// texts (CHAR, NUM, a packed number's text, STRING) straight from the
// buffer into the store, numbers, dates and times unboxed, byte arrays as
// arrays. Raises as RfcDataToVariant does.
void RfcDataToStore(RowStore& store, size_t row, size_t column, const void* source, int32_t type, uint16_t byteLength,
                    int16_t decimals, const EntryPoints& sdk);

// value as an array of bytes (VT_ARRAY | VT_UI1), changed in place, copied
// into length bytes at target (the array's count when length is 0).
void RfcVariantSafeArrayToRaw(void* target, uint32_t length, VARIANT* value);

// size bytes at data as a new array of bytes in result, lower bound 0; size
// 0 gives an empty array.
void RfcRawToVariantSafeArray(VARIANT* result, const void* data, uint32_t size);

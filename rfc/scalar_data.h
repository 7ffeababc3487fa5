// One ABAP scalar between a variant of the object model and its byte form
// in a buffer of the classic SDK (the Unicode flavour: one UTF-16 code unit
// per character of CHAR, NUM, DATE and TIME; STRING as SDK-owned UTF-8;
// XSTRING as a 32-bit length and a data pointer). The marshalling objects,
// the classic server and the metadata import use these; the table of sizes
// and letters is abap/scalar_conversion.h.
#pragma once

#include <cstdint>

#include "platform/oaidl.h"

// The SDK calls a conversion needs, as the classic SDK exports them: the
// packed-number converters, the string allocator and the XSTRING resizer.
// A back end fills it from the loaded library.
struct ScalarSdk {
  // text of textLength units, decimals in/out, into a packed number of
  // targetSize bytes: 2 is a number too large, 3 and 4 a bad format, all
  // else done.
  int (*convertCharToBcd)(char16_t* text, int textLength, int* decimals, unsigned char* target, int targetSize);
  // A packed number of size bytes into bufferLength units, right-aligned in
  // blanks; non-zero is a failure.
  int (*convertBcdToChar)(unsigned char* bcd, int size, int decimals, char16_t* buffer, int bufferLength);
  // size bytes that the SDK owns and frees with the parameter; null when out
  // of memory.
  unsigned char* (*allocString)(unsigned size);
  // Resizes the XSTRING record at record; 1 is a failure.
  int (*resizeXString)(void* record, int size);
};

// The SDK's XSTRING record: a 32-bit length, then the data pointer.
struct ScalarXString {
  int32_t length;
  unsigned char* content;
};
static_assert(sizeof(ScalarXString) == 16, "a 32-bit length and a pointer");

// Writes value into the field at target as type with ScalarLength length
// and decimals. value is changed in place to the form the type needs. A
// code without a scalar form does nothing. Raises CXVeltrane on failure
// (a text too long for a NUM field is no failure: the field stays "0").
int RfcVariantToData(void* target, int32_t type, uint16_t length, int16_t decimals, VARIANT* value,
                     const ScalarSdk& sdk);

// Reads the field at source (byteLength bytes: two per character for CHAR
// and NUM) into result, which is cleared first. A null source or a code
// above 30 leaves it VT_EMPTY. Raises CXVeltrane on failure.
int RfcDataToVariant(VARIANT* result, const void* source, int32_t type, uint16_t byteLength, int16_t decimals,
                     const ScalarSdk& sdk);

// value as an array of bytes (VT_ARRAY | VT_UI1), changed in place, copied
// into length bytes at target (the array's count when length is 0).
void RfcVariantSafeArrayToRaw(void* target, uint32_t length, VARIANT* value);

// size bytes at data as a new array of bytes in result, lower bound 0; size
// 0 gives an empty array.
void RfcRawToVariantSafeArray(VARIANT* result, const void* data, uint32_t size);

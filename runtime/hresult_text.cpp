#include "runtime/hresult_text.h"

#include <cstdio>

#include "runtime/unicode.h"

namespace {

struct HResultText {
  uint32_t code;
  const char16_t* name;
  const char16_t* message;
};

constexpr HResultText kTable[] = {
    {0x00000000, u"S_OK", u"The operation completed successfully."},
    {0x8000FFFF, u"E_UNEXPECTED", u"Catastrophic failure"},
    {0x80004001, u"E_NOTIMPL", u"Not implemented"},
    {0x80004002, u"E_NOINTERFACE", u"No such interface supported"},
    {0x80004003, u"E_POINTER", u"Invalid pointer"},
    {0x80004004, u"E_ABORT", u"Operation aborted"},
    {0x80004005, u"E_FAIL", u"Unspecified error"},
    {0x8000000A, u"E_PENDING", u"The data necessary to complete this operation is not yet available."},
    {0x8000000B, u"E_BOUNDS", u"The operation attempted to access data outside the valid range"},
    {0x8000000C, u"E_CHANGED_STATE",
     u"A concurrent or interleaved operation changed the state of the object, invalidating this operation."},
    {0x8000000E, u"E_ILLEGAL_METHOD_CALL", u"A method was called at an unexpected time."},
    {0x80070002, u"ERROR_FILE_NOT_FOUND", u"The system cannot find the file specified."},
    {0x80070003, u"ERROR_PATH_NOT_FOUND", u"The system cannot find the path specified."},
    {0x80070005, u"E_ACCESSDENIED", u"Access is denied."},
    {0x80070006, u"E_HANDLE", u"The handle is invalid."},
    {0x8007000B, u"ERROR_BAD_FORMAT", u"An attempt was made to load a program with an incorrect format."},
    {0x8007000D, u"ERROR_INVALID_DATA", u"The data is invalid."},
    {0x8007000E, u"E_OUTOFMEMORY", u"Not enough memory resources are available to complete this operation."},
    {0x80070032, u"ERROR_NOT_SUPPORTED", u"The request is not supported."},
    {0x80070057, u"E_INVALIDARG", u"The parameter is incorrect."},
    {0x8007007A, u"ERROR_INSUFFICIENT_BUFFER", u"The data area passed to a system call is too small."},
    {0x8007007E, u"ERROR_MOD_NOT_FOUND", u"The specified module could not be found."},
    {0x8007007F, u"ERROR_PROC_NOT_FOUND", u"The specified procedure could not be found."},
    {0x800700B7, u"ERROR_ALREADY_EXISTS", u"Cannot create a file when that file already exists."},
    {0x80070490, u"ERROR_NOT_FOUND", u"Element not found."},
    {0x800704C7, u"ERROR_CANCELLED", u"The operation was canceled by the user."},
    {0x800705B4, u"ERROR_TIMEOUT", u"This operation returned because the timeout period expired."},
    {0x80020001, u"DISP_E_UNKNOWNINTERFACE", u"Unknown interface."},
    {0x80020003, u"DISP_E_MEMBERNOTFOUND", u"Member not found."},
    {0x80020004, u"DISP_E_PARAMNOTFOUND", u"Parameter not found."},
    {0x80020005, u"DISP_E_TYPEMISMATCH", u"Type mismatch."},
    {0x80020006, u"DISP_E_UNKNOWNNAME", u"Unknown name."},
    {0x80020007, u"DISP_E_NONAMEDARGS", u"No named arguments."},
    {0x80020008, u"DISP_E_BADVARTYPE", u"Bad variable type."},
    {0x80020009, u"DISP_E_EXCEPTION", u"Exception occurred."},
    {0x8002000A, u"DISP_E_OVERFLOW", u"Out of present range."},
    {0x8002000B, u"DISP_E_BADINDEX", u"Invalid index."},
    {0x8002000C, u"DISP_E_UNKNOWNLCID", u"Unknown language."},
    {0x8002000D, u"DISP_E_ARRAYISLOCKED", u"Memory is locked."},
    {0x8002000E, u"DISP_E_BADPARAMCOUNT", u"Invalid number of parameters."},
    {0x8002000F, u"DISP_E_PARAMNOTOPTIONAL", u"Parameter not optional."},
    {0x80020010, u"DISP_E_BADCALLEE", u"Invalid callee."},
    {0x80020011, u"DISP_E_NOTACOLLECTION", u"Does not support a collection."},
    {0x80020012, u"DISP_E_DIVBYZERO", u"Division by zero."},
    {0x80020013, u"DISP_E_BUFFERTOOSMALL", u"Buffer too small"},
    {0x8002801D, u"TYPE_E_LIBNOTREGISTERED", u"Library not registered."},
    {0x8002802B, u"TYPE_E_ELEMENTNOTFOUND", u"Element not found."},
    {0x80010106, u"RPC_E_CHANGED_MODE", u"Cannot change thread mode after it is set."},
    {0x8001010E, u"RPC_E_WRONG_THREAD",
     u"The application called an interface that was marshalled for a different thread."},
    {0x80040110, u"CLASS_E_NOAGGREGATION", u"Class does not support aggregation (or class object is remote)"},
    {0x80040111, u"CLASS_E_CLASSNOTAVAILABLE", u"ClassFactory cannot supply requested class"},
    {0x80040112, u"CLASS_E_NOTLICENSED", u"Class is not licensed for use"},
    {0x80040154, u"REGDB_E_CLASSNOTREG", u"Class not registered"},
    {0x80040155, u"REGDB_E_IIDNOTREG", u"Interface not registered"},
    {0x800401F0, u"CO_E_NOTINITIALIZED", u"CoInitialize has not been called."},
    {0x800401F3, u"CO_E_CLASSSTRING", u"Invalid class string"},
    {0x800401F4, u"CO_E_IIDSTRING", u"Invalid interface string"},
};

const HResultText* Find(HRESULT hr) {
  for (const auto& row : kTable)
    if (row.code == static_cast<uint32_t>(hr)) return &row;
  return nullptr;
}

}  // namespace

std::u16string HResultMessage(HRESULT hr) {
  if (const HResultText* row = Find(hr)) return row->message;
  char text[16];
  std::snprintf(text, sizeof text, "0x%08X", static_cast<uint32_t>(hr));
  return Utf8ToWide(text);
}

bool HResultKnown(HRESULT hr) { return Find(hr) != nullptr; }

std::u16string HResultName(HRESULT hr) {
  const HResultText* row = Find(hr);
  return row ? row->name : u"";
}

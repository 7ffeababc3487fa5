#include "runtime/variant_name.h"

#include <boost/format.hpp>

#include "platform/unicode.h"

namespace {

struct VtName {
  VARTYPE vt;
  const char16_t* name;
};

// VT_I2 deliberately reads "VT_I4": the table has no text of its own for it.
constexpr VtName kNames[] = {
    {0, u"VT_EMPTY"},
    {1, u"VT_NULL"},
    {2, u"VT_I4"},
    {3, u"VT_I4"},
    {4, u"VT_R4"},
    {5, u"VT_R8"},
    {6, u"VT_CY"},
    {7, u"VT_DATE"},
    {8, u"VT_BSTR"},
    {9, u"VT_DISPATCH"},
    {10, u"VT_ERROR"},
    {11, u"VT_BOOL"},
    {12, u"VT_VARIANT"},
    {13, u"VT_UNKNOWN"},
    {14, u"VT_DECIMAL"},
    {16, u"VT_I1"},
    {17, u"VT_UI1"},
    {18, u"VT_UI2"},
    {19, u"VT_UI4"},
    {20, u"VT_I8"},
    {21, u"VT_UI8"},
    {22, u"VT_INT"},
    {23, u"VT_UINT"},
    {24, u"VT_VOID"},
    {25, u"VT_HRESULT"},
    {26, u"VT_PTR"},
    {27, u"VT_SAFEARRAY"},
    {28, u"VT_CARRAY"},
    {29, u"VT_USERDEFINED"},
    {30, u"VT_LPSTR"},
    {31, u"VT_LPWSTR"},
    {36, u"VT_RECORD"},
    {37, u"VT_INT_PTR"},
    {38, u"VT_UINT_PTR"},
    {64, u"VT_FILETIME"},
    {65, u"VT_BLOB"},
    {66, u"VT_STREAM"},
    {67, u"VT_STORAGE"},
    {68, u"VT_STREAMED_OBJECT"},
    {69, u"VT_STORED_OBJECT"},
    {70, u"VT_BLOB_OBJECT"},
    {71, u"VT_CF"},
    {72, u"VT_CLSID"},
    {73, u"VT_VERSIONED_STREAM"},
    {4095, u"VT_BSTR_BLOB"},
};

}  // namespace

std::u16string VariantTypeName(VARTYPE vt) {
  const VARTYPE base = vt & VT_TYPEMASK;
  std::u16string text;
  for (const auto& row : kNames) {
    if (row.vt == base) {
      text = row.name;
      break;
    }
  }
  if (text.empty()) text = Utf8ToWide(boost::str(boost::format("UNKNOWN_VT(%1%)") % base));
  if (vt & VT_VECTOR) text += u"|VT_VECTOR";
  if (vt & VT_ARRAY) text += u"|VT_ARRAY";
  if (vt & VT_BYREF) text += u"|VT_BYREF";
  if (vt & VT_RESERVED) text += u"|VT_RESERVED";
  return text;
}

#include "runtime/variant_name.h"

#include <gtest/gtest.h>

namespace {

struct Case {
  VARTYPE vt;
  const char16_t* name;
};

TEST(VariantTypeName, Table) {
  const Case cases[] = {
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
  for (const auto& c : cases) EXPECT_EQ(VariantTypeName(c.vt), c.name) << c.vt;
}

TEST(VariantTypeName, TwoReadsI4) { EXPECT_EQ(VariantTypeName(VT_I2), u"VT_I4"); }

TEST(VariantTypeName, UnknownNumbers) {
  EXPECT_EQ(VariantTypeName(15), u"UNKNOWN_VT(15)");
  EXPECT_EQ(VariantTypeName(32), u"UNKNOWN_VT(32)");
  EXPECT_EQ(VariantTypeName(74), u"UNKNOWN_VT(74)");
  EXPECT_EQ(VariantTypeName(4094), u"UNKNOWN_VT(4094)");
  EXPECT_EQ(VariantTypeName(15 | VT_ARRAY), u"UNKNOWN_VT(15)|VT_ARRAY");
}

TEST(VariantTypeName, Flags) {
  EXPECT_EQ(VariantTypeName(VT_BSTR | VT_ARRAY | VT_BYREF), u"VT_BSTR|VT_ARRAY|VT_BYREF");
  EXPECT_EQ(VariantTypeName(VT_UI1 | VT_ARRAY), u"VT_UI1|VT_ARRAY");
  EXPECT_EQ(VariantTypeName(VT_VARIANT | VT_BYREF), u"VT_VARIANT|VT_BYREF");
  EXPECT_EQ(VariantTypeName(VT_I4 | VT_VECTOR), u"VT_I4|VT_VECTOR");
  EXPECT_EQ(VariantTypeName(0xFFFF), u"VT_BSTR_BLOB|VT_VECTOR|VT_ARRAY|VT_BYREF|VT_RESERVED");
  EXPECT_EQ(VariantTypeName(VT_RESERVED | VT_EMPTY), u"VT_EMPTY|VT_RESERVED");
}

}  // namespace

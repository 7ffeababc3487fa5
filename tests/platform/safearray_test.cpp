#include "platform/atlbase.h"

#include <gtest/gtest.h>

TEST(SafeArray, VectorBoundsAndElements) {
  SAFEARRAY* psa = SafeArrayCreateVector(VT_I4, 1, 5);
  ASSERT_NE(psa, nullptr);
  EXPECT_EQ(SafeArrayGetDim(psa), 1u);
  EXPECT_EQ(SafeArrayGetElemsize(psa), 4u);
  LONG lb = 0, ub = 0;
  EXPECT_EQ(SafeArrayGetLBound(psa, 1, &lb), S_OK);
  EXPECT_EQ(SafeArrayGetUBound(psa, 1, &ub), S_OK);
  EXPECT_EQ(lb, 1);
  EXPECT_EQ(ub, 5);
  EXPECT_EQ(SafeArrayGetLBound(psa, 2, &lb), DISP_E_BADINDEX);
  for (LONG i = 1; i <= 5; ++i) {
    LONG v = i * 10;
    EXPECT_EQ(SafeArrayPutElement(psa, &i, &v), S_OK);
  }
  LONG i = 0, v = 0;
  EXPECT_EQ(SafeArrayPutElement(psa, &i, &v), DISP_E_BADINDEX);
  i = 6;
  EXPECT_EQ(SafeArrayGetElement(psa, &i, &v), DISP_E_BADINDEX);
  i = 3;
  EXPECT_EQ(SafeArrayGetElement(psa, &i, &v), S_OK);
  EXPECT_EQ(v, 30);
  VARTYPE vt;
  EXPECT_EQ(SafeArrayGetVartype(psa, &vt), S_OK);
  EXPECT_EQ(vt, VT_I4);
  EXPECT_EQ(SafeArrayDestroy(psa), S_OK);
}

TEST(SafeArray, MultiDimensionalIsColumnMajorWithReversedBounds) {
  SAFEARRAYBOUND bounds[2] = {{2, 0}, {3, 10}};  // first dimension 0..1, second 10..12
  SAFEARRAY* psa = SafeArrayCreate(VT_I2, 2, bounds);
  ASSERT_NE(psa, nullptr);
  // Stored in reverse order of the dimensions.
  EXPECT_EQ(psa->rgsabound[0].cElements, 3u);
  EXPECT_EQ(psa->rgsabound[0].lLbound, 10);
  EXPECT_EQ(psa->rgsabound[1].cElements, 2u);
  LONG lb;
  SafeArrayGetLBound(psa, 2, &lb);
  EXPECT_EQ(lb, 10);
  LONG idx[2] = {1, 11};
  SHORT value = 99;
  ASSERT_EQ(SafeArrayPutElement(psa, idx, &value), S_OK);
  SHORT* data = nullptr;
  ASSERT_EQ(SafeArrayAccessData(psa, reinterpret_cast<void**>(&data)), S_OK);
  EXPECT_EQ(data[1 + 2 * 1], 99);  // the first index varies fastest
  EXPECT_EQ(SafeArrayDestroy(psa), DISP_E_ARRAYISLOCKED);
  EXPECT_EQ(SafeArrayUnaccessData(psa), S_OK);
  EXPECT_EQ(SafeArrayUnaccessData(psa), E_UNEXPECTED);
  EXPECT_EQ(SafeArrayDestroy(psa), S_OK);
}

TEST(SafeArray, BstrElementsAreCopiedInAndOut) {
  SAFEARRAY* psa = SafeArrayCreateVector(VT_BSTR, 0, 2);
  LONG i = 0;
  CComBSTR s(u"value");
  ASSERT_EQ(SafeArrayPutElement(psa, &i, s.m_str), S_OK);
  BSTR out = nullptr;
  ASSERT_EQ(SafeArrayGetElement(psa, &i, &out), S_OK);
  EXPECT_NE(out, s.m_str);
  EXPECT_EQ(std::u16string(out), u"value");
  SysFreeString(out);
  SAFEARRAY* copy = nullptr;
  ASSERT_EQ(SafeArrayCopy(psa, &copy), S_OK);
  BSTR* cells = static_cast<BSTR*>(copy->pvData);
  EXPECT_NE(cells[0], static_cast<BSTR*>(psa->pvData)[0]);
  EXPECT_EQ(cells[1], nullptr);
  SafeArrayDestroy(copy);
  SafeArrayDestroy(psa);
}

TEST(SafeArray, VariantElementsAndRedim) {
  SAFEARRAY* psa = SafeArrayCreateVector(VT_VARIANT, 0, 2);
  CComVariant v(u"x");
  LONG i = 1;
  ASSERT_EQ(SafeArrayPutElement(psa, &i, &v), S_OK);
  SAFEARRAYBOUND nb{1, 0};
  ASSERT_EQ(SafeArrayRedim(psa, &nb), S_OK);  // drops (and clears) the string cell
  LONG ub;
  SafeArrayGetUBound(psa, 1, &ub);
  EXPECT_EQ(ub, 0);
  nb.cElements = 4;
  ASSERT_EQ(SafeArrayRedim(psa, &nb), S_OK);
  VARIANT* cells = static_cast<VARIANT*>(psa->pvData);
  EXPECT_EQ(cells[3].vt, VT_EMPTY);
  SafeArrayDestroy(psa);
}

TEST(SafeArray, RejectsWhatCannotBeAnElement) {
  EXPECT_EQ(SafeArrayCreateVector(VT_NULL, 0, 1), nullptr);
  EXPECT_EQ(SafeArrayCreateVector(VT_EMPTY, 0, 1), nullptr);
  SAFEARRAY* psa = nullptr;
  EXPECT_EQ(SafeArrayAllocDescriptor(0, &psa), E_INVALIDARG);
  ASSERT_EQ(SafeArrayAllocDescriptor(1, &psa), S_OK);
  VARTYPE vt;
  EXPECT_EQ(SafeArrayGetVartype(psa, &vt), E_INVALIDARG);
  SafeArrayDestroyDescriptor(psa);
  EXPECT_EQ(SafeArrayDestroy(nullptr), S_OK);
}

TEST(SafeArray, ByteArrayInVariant) {
  CComVariant v;
  v.vt = VT_ARRAY | VT_UI1;
  v.parray = SafeArrayCreateVector(VT_UI1, 0, 3);
  BYTE* data = nullptr;
  SafeArrayAccessData(v.parray, reinterpret_cast<void**>(&data));
  data[0] = 1;
  data[2] = 3;
  SafeArrayUnaccessData(v.parray);
  CComVariant copy(v);
  EXPECT_EQ(copy.vt, VT_ARRAY | VT_UI1);
  EXPECT_EQ(static_cast<BYTE*>(copy.parray->pvData)[2], 3);
}

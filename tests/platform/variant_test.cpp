#include "platform/atlbase.h"

#include <gtest/gtest.h>

namespace {

class CountingUnknown : public IUnknown {
 public:
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) override {
    if (riid == IID_IUnknown) {
      *ppv = this;
      AddRef();
      return S_OK;
    }
    *ppv = nullptr;
    return E_NOINTERFACE;
  }
  ULONG STDMETHODCALLTYPE AddRef() override { return ++refs; }
  ULONG STDMETHODCALLTYPE Release() override { return --refs; }
  ULONG refs = 1;
};

}  // namespace

TEST(Variant, InitSetsEmpty) {
  VARIANT v;
  v.vt = VT_I4;
  VariantInit(&v);
  EXPECT_EQ(V_VT(&v), VT_EMPTY);
}

TEST(Variant, ClearFreesStringsAndReleasesInterfaces) {
  CountingUnknown unk;
  VARIANT v;
  VariantInit(&v);
  V_VT(&v) = VT_UNKNOWN;
  V_UNKNOWN(&v) = &unk;
  unk.AddRef();
  EXPECT_EQ(VariantClear(&v), S_OK);
  EXPECT_EQ(unk.refs, 1u);
  EXPECT_EQ(V_VT(&v), VT_EMPTY);

  V_VT(&v) = VT_BSTR;
  V_BSTR(&v) = SysAllocString(u"x");
  EXPECT_EQ(VariantClear(&v), S_OK);  // the sanitizer catches a leak here
}

TEST(Variant, ClearRejectsBadTypes) {
  VARIANT v;
  VariantInit(&v);
  V_VT(&v) = 15;
  EXPECT_EQ(VariantClear(&v), DISP_E_BADVARTYPE);
  V_VT(&v) = VT_EMPTY | VT_BYREF;
  EXPECT_EQ(VariantClear(&v), DISP_E_BADVARTYPE);
  V_VT(&v) = VT_I4 | VT_VECTOR;
  EXPECT_EQ(VariantClear(&v), DISP_E_BADVARTYPE);
  V_VT(&v) = VT_VARIANT;
  EXPECT_EQ(VariantClear(&v), DISP_E_BADVARTYPE);
  V_VT(&v) = VT_EMPTY;
}

TEST(Variant, CopyIsDeepForStringsAndArrays) {
  CComVariant src(u"text");
  VARIANT dst;
  VariantInit(&dst);
  ASSERT_EQ(VariantCopy(&dst, &src), S_OK);
  EXPECT_EQ(V_VT(&dst), VT_BSTR);
  EXPECT_NE(V_BSTR(&dst), V_BSTR(&src));
  EXPECT_EQ(std::u16string(V_BSTR(&dst)), u"text");
  VariantClear(&dst);

  VARIANT arr;
  VariantInit(&arr);
  V_VT(&arr) = VT_ARRAY | VT_I4;
  V_ARRAY(&arr) = SafeArrayCreateVector(VT_I4, 0, 3);
  LONG idx = 1, val = 42;
  SafeArrayPutElement(V_ARRAY(&arr), &idx, &val);
  ASSERT_EQ(VariantCopy(&dst, &arr), S_OK);
  EXPECT_NE(V_ARRAY(&dst), V_ARRAY(&arr));
  LONG got = 0;
  SafeArrayGetElement(V_ARRAY(&dst), &idx, &got);
  EXPECT_EQ(got, 42);
  VariantClear(&dst);
  VariantClear(&arr);
}

TEST(Variant, CopyKeepsNullBstr) {
  VARIANT src, dst;
  VariantInit(&src);
  VariantInit(&dst);
  V_VT(&src) = VT_BSTR;
  V_BSTR(&src) = nullptr;
  ASSERT_EQ(VariantCopy(&dst, &src), S_OK);
  EXPECT_EQ(V_BSTR(&dst), nullptr);
}

TEST(Variant, CopyAddRefsInterfacesAndCopiesDecimals) {
  CountingUnknown unk;
  VARIANT src, dst;
  VariantInit(&src);
  VariantInit(&dst);
  V_VT(&src) = VT_UNKNOWN;
  V_UNKNOWN(&src) = &unk;
  ASSERT_EQ(VariantCopy(&dst, &src), S_OK);
  EXPECT_EQ(unk.refs, 2u);
  VariantClear(&dst);
  EXPECT_EQ(unk.refs, 1u);

  DECIMAL d{};
  d.scale = 2;
  d.sign = DECIMAL_NEG;
  d.Lo64 = 12345;
  V_DECIMAL(&src) = d;
  V_VT(&src) = VT_DECIMAL;
  ASSERT_EQ(VariantCopy(&dst, &src), S_OK);
  EXPECT_EQ(V_VT(&dst), VT_DECIMAL);
  EXPECT_EQ(V_DECIMAL(&dst).scale, 2);
  EXPECT_EQ(V_DECIMAL(&dst).sign, DECIMAL_NEG);
  EXPECT_EQ(V_DECIMAL(&dst).Lo64, 12345u);
}

TEST(Variant, CopyIndDereferences) {
  LONG value = 7;
  VARIANT ref, dst;
  VariantInit(&ref);
  VariantInit(&dst);
  V_VT(&ref) = VT_I4 | VT_BYREF;
  V_I4REF(&ref) = &value;
  ASSERT_EQ(VariantCopyInd(&dst, &ref), S_OK);
  EXPECT_EQ(V_VT(&dst), VT_I4);
  EXPECT_EQ(V_I4(&dst), 7);

  BSTR s = SysAllocString(u"ref");
  V_VT(&ref) = VT_BSTR | VT_BYREF;
  V_BSTRREF(&ref) = &s;
  ASSERT_EQ(VariantCopyInd(&ref, &ref), S_OK);  // in place
  EXPECT_EQ(V_VT(&ref), VT_BSTR);
  EXPECT_NE(V_BSTR(&ref), s);
  EXPECT_EQ(std::u16string(V_BSTR(&ref)), u"ref");
  VariantClear(&ref);
  SysFreeString(s);

  VARIANT inner;
  VariantInit(&inner);
  V_VT(&inner) = VT_R8;
  V_R8(&inner) = 1.5;
  V_VT(&ref) = VT_VARIANT | VT_BYREF;
  V_VARIANTREF(&ref) = &inner;
  ASSERT_EQ(VariantCopyInd(&dst, &ref), S_OK);
  EXPECT_EQ(V_VT(&dst), VT_R8);
  EXPECT_DOUBLE_EQ(V_R8(&dst), 1.5);
}

TEST(CComVariant, ConstructorsPickTheAutomationTypes) {
  EXPECT_EQ(CComVariant(true).vt, VT_BOOL);
  EXPECT_EQ(CComVariant(true).boolVal, VARIANT_TRUE);
  EXPECT_EQ(CComVariant(5).vt, VT_I4);
  EXPECT_EQ(CComVariant(short(5)).vt, VT_I2);
  EXPECT_EQ(CComVariant(2.5).vt, VT_R8);
  EXPECT_EQ(CComVariant(2.5, VT_DATE).vt, VT_DATE);
  EXPECT_EQ(CComVariant(LONG(0x80020004), VT_ERROR).vt, VT_ERROR);
  CComVariant s(u"abc");
  EXPECT_EQ(s.vt, VT_BSTR);
  CComVariant copy = s;
  EXPECT_NE(copy.bstrVal, s.bstrVal);
  CComVariant moved = std::move(copy);
  EXPECT_EQ(copy.vt, VT_EMPTY);
  EXPECT_EQ(moved.vt, VT_BSTR);
}

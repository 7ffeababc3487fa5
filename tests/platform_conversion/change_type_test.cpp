// VariantChangeType(Ex) as a whole: in place, references, empty and null,
// invalid types, arrays, objects and the value property, flags, locales.
#include "conversion_table.h"
#include "platform/oaidl.h"

#include <cstring>

// Conformance rows: one conversion and its expected outcome per line.
// clang-format off
namespace {

// An object whose value property (DISPID_VALUE) is a fixed VARIANT.
class ValueObject final : public IDispatch {
 public:
  explicit ValueObject(Var value) : value_(std::move(value)) {}

  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** out) override {
    if (iid == IID_IUnknown || iid == IID_IDispatch) {
      *out = static_cast<IDispatch*>(this);
      AddRef();
      return S_OK;
    }
    *out = nullptr;
    return E_NOINTERFACE;
  }
  ULONG STDMETHODCALLTYPE AddRef() override { return ++refs_; }
  ULONG STDMETHODCALLTYPE Release() override {
    ULONG r = --refs_;
    if (!r) delete this;
    return r;
  }
  HRESULT STDMETHODCALLTYPE GetTypeInfoCount(UINT* count) override {
    *count = 0;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE GetTypeInfo(UINT, LCID, ITypeInfo**) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE GetIDsOfNames(REFIID, LPOLESTR*, UINT, LCID, DISPID*) override {
    return DISP_E_UNKNOWNNAME;
  }
  HRESULT STDMETHODCALLTYPE Invoke(DISPID id, REFIID, LCID lcid, WORD flags, DISPPARAMS* params, VARIANT* result,
                                   EXCEPINFO*, UINT*) override {
    ++invokes;
    lastLcid = lcid;
    if (fail || id != DISPID_VALUE || !(flags & DISPATCH_PROPERTYGET) || !params || params->cArgs || !result)
      return DISP_E_MEMBERNOTFOUND;
    if (returnsItself) {
      result->vt = VT_DISPATCH;
      result->pdispVal = this;
      AddRef();
      return S_OK;
    }
    return VariantCopy(result, value_.get());
  }

  ULONG refs() const { return refs_; }

  int invokes = 0;
  LCID lastLcid = 0;
  bool fail = false;
  bool returnsItself = false;

 private:
  ~ValueObject() = default;
  Var value_;
  ULONG refs_ = 1;
};

// An object that is no IDispatch.
class PlainObject final : public IUnknown {
 public:
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** out) override {
    if (iid == IID_IUnknown) {
      *out = this;
      AddRef();
      return S_OK;
    }
    *out = nullptr;
    return E_NOINTERFACE;
  }
  ULONG STDMETHODCALLTYPE AddRef() override { return ++refs_; }
  ULONG STDMETHODCALLTYPE Release() override {
    ULONG r = --refs_;
    if (!r) delete this;
    return r;
  }
  ULONG refs() const { return refs_; }

 private:
  ~PlainObject() = default;
  ULONG refs_ = 1;
};

Var DISPV(IDispatch* d) {
  Var v;
  v->vt = VT_DISPATCH;
  v->pdispVal = d;
  if (d) d->AddRef();
  return v;
}

Var UNKV(IUnknown* u) {
  Var v;
  v->vt = VT_UNKNOWN;
  v->punkVal = u;
  if (u) u->AddRef();
  return v;
}

Var BYTES(std::initializer_list<unsigned char> bytes) {
  Var v;
  v->vt = VT_ARRAY | VT_UI1;
  v->parray = SafeArrayCreateVector(VT_UI1, 0, static_cast<ULONG>(bytes.size()));
  void* data = nullptr;
  SafeArrayAccessData(v->parray, &data);
  if (bytes.size()) std::memcpy(data, bytes.begin(), bytes.size());
  SafeArrayUnaccessData(v->parray);
  return v;
}

class ChangeType : public ConversionTable {};

TEST_F(ChangeType, InPlace) {
  Var v = STR(u"12");
  ASSERT_EQ(VariantChangeTypeEx(v.get(), v.get(), 0x0409, 0, VT_I4), S_OK);
  EXPECT_EQ(v->vt, VT_I4);
  EXPECT_EQ(v->lVal, 12);
  ASSERT_EQ(VariantChangeTypeEx(v.get(), v.get(), 0x0409, 0, VT_BSTR), S_OK);
  EXPECT_EQ(Printable(v->bstrVal), "\"12\"");
  ASSERT_EQ(VariantChangeTypeEx(v.get(), v.get(), 0x0409, 0, VT_DECIMAL), S_OK);
  EXPECT_EQ(v->vt, VT_DECIMAL);
  EXPECT_EQ(v->decVal.Lo64, 12u);
  ASSERT_EQ(VariantChangeTypeEx(v.get(), v.get(), 0x0409, 0, VT_R8), S_OK);
  EXPECT_EQ(v->vt, VT_R8);
  EXPECT_EQ(v->dblVal, 12.0);
}

TEST_F(ChangeType, FailureLeavesBothSides) {
  Var v = STR(u"abc");
  EXPECT_EQ(VariantChangeTypeEx(v.get(), v.get(), 0x0409, 0, VT_I4), DISP_E_TYPEMISMATCH);
  EXPECT_EQ(v->vt, VT_BSTR);
  EXPECT_EQ(Printable(v->bstrVal), "\"abc\"");

  Var dest = STR(u"keep");
  Var src = R8(1e300);
  EXPECT_EQ(VariantChangeTypeEx(dest.get(), src.get(), 0x0409, 0, VT_I4), DISP_E_OVERFLOW);
  EXPECT_EQ(dest->vt, VT_BSTR);
  EXPECT_EQ(Printable(dest->bstrVal), "\"keep\"");
  EXPECT_EQ(src->vt, VT_R8);
}

TEST_F(ChangeType, DestinationIsClearedFirst) {
  Var dest = STR(u"old text");
  Var src = I4(7);
  ASSERT_EQ(VariantChangeTypeEx(dest.get(), src.get(), 0x0409, 0, VT_I2), S_OK);
  EXPECT_EQ(dest->vt, VT_I2);
  EXPECT_EQ(dest->iVal, 7);
}

TEST_F(ChangeType, ReferencesAreRead) {
  LONG l = 42;
  Var ref;
  ref->vt = VT_I4 | VT_BYREF;
  ref->plVal = &l;
  CONVERT(std::move(ref), VT_BSTR); EXPECT_STR(u"42");

  BSTR text = SysAllocString(u"2.5");
  ref->vt = VT_BSTR | VT_BYREF;
  ref->pbstrVal = &text;
  CONVERT(std::move(ref), VT_I4); EXPECT(2);
  EXPECT_NE(text, nullptr);  // the referenced text stays with its owner
  SysFreeString(text);

  DECIMAL d = MakeDecimal(1, DECIMAL_NEG, 0, 15);
  ref->vt = VT_DECIMAL | VT_BYREF;
  ref->pdecVal = &d;
  CONVERT(std::move(ref), VT_R8); EXPECT(-1.5);

  VARIANT_BOOL b = VARIANT_TRUE;
  ref->vt = VT_BOOL | VT_BYREF;
  ref->pboolVal = &b;
  CONVERT(std::move(ref), VT_UI1); EXPECT(255);

  BYTE small = 200;
  ref->vt = VT_UI1 | VT_BYREF;
  ref->pbVal = &small;
  CONVERT(std::move(ref), VT_I1); EXPECT(-56);

  USHORT wide = 200;
  ref->vt = VT_UI2 | VT_BYREF;
  ref->puiVal = &wide;
  CONVERT(std::move(ref), VT_I1); EXPECT_OVERFLOW;

  Var inner = CYV(25000);
  ref->vt = VT_VARIANT | VT_BYREF;
  ref->pvarVal = inner.get();
  CONVERT(std::move(ref), VT_I4); EXPECT(2);

  // The reference itself stays untouched when converted in place.
  Var self;
  self->vt = VT_I4 | VT_BYREF;
  self->plVal = &l;
  ASSERT_EQ(VariantChangeTypeEx(self.get(), self.get(), 0x0409, 0, VT_R8), S_OK);
  EXPECT_EQ(self->vt, VT_R8);
  EXPECT_EQ(self->dblVal, 42.0);
  EXPECT_EQ(l, 42);

  Var null;
  null->vt = VT_I4 | VT_BYREF;
  null->plVal = nullptr;
  CONVERT(std::move(null), VT_BSTR); EXPECT_MISMATCH;

  CONVERT(I4(1), VT_I4 | VT_BYREF); EXPECT_MISMATCH;
}

TEST_F(ChangeType, EmptyNullAndError) {
  CONVERT(EMPTYV(), VT_EMPTY);
  ASSERT_TRUE(succeeded());
  CONVERT(EMPTYV(), VT_NULL);
  ASSERT_TRUE(succeeded());
  CONVERT(NULLV(), VT_NULL);
  ASSERT_TRUE(succeeded());
  CONVERT(NULLV(), VT_EMPTY); EXPECT_MISMATCH;
  CONVERT(NULLV(), VT_BSTR); EXPECT_MISMATCH;
  CONVERT(NULLV(), VT_BOOL); EXPECT_MISMATCH;
  CONVERT(NULLV(), VT_DATE); EXPECT_MISMATCH;
  CONVERT(NULLV(), VT_CY); EXPECT_MISMATCH;
  CONVERT(NULLV(), VT_DISPATCH); EXPECT_MISMATCH;
  CONVERT(I4(5), VT_EMPTY);
  ASSERT_TRUE(succeeded());
  CONVERT(STR(u"x"), VT_EMPTY);
  ASSERT_TRUE(succeeded());
  CONVERT(DEC(1, 0, 0, 1), VT_NULL);
  ASSERT_TRUE(succeeded());
  CONVERT(R8(1.0), VT_NULL);
  ASSERT_TRUE(succeeded());
  CONVERT(ERRV(DISP_E_PARAMNOTFOUND), VT_EMPTY); EXPECT_MISMATCH;
  CONVERT(ERRV(DISP_E_PARAMNOTFOUND), VT_NULL); EXPECT_MISMATCH;
  CONVERT(ERRV(DISP_E_PARAMNOTFOUND), VT_ERROR);
  ASSERT_TRUE(succeeded());
  EXPECT_EQ(out_->scode, DISP_E_PARAMNOTFOUND);
  CONVERT(I4(5), VT_ERROR); EXPECT_MISMATCH;
  CONVERT(EMPTYV(), VT_DISPATCH); EXPECT_MISMATCH;
  CONVERT(EMPTYV(), VT_UNKNOWN); EXPECT_MISMATCH;
  CONVERT(I4(5), VT_VARIANT); EXPECT_MISMATCH;
  CONVERT(I4(5), VT_RECORD); EXPECT_MISMATCH;
}

TEST_F(ChangeType, InvalidTypes) {
  VARIANT odd;
  VariantInit(&odd);
  Var out;
  odd.vt = 15;
  EXPECT_EQ(VariantChangeTypeEx(out.get(), &odd, 0x0409, 0, VT_I4), DISP_E_BADVARTYPE);
  odd.vt = VT_VECTOR | VT_I4;
  EXPECT_EQ(VariantChangeTypeEx(out.get(), &odd, 0x0409, 0, VT_I4), DISP_E_BADVARTYPE);
  odd.vt = VT_BYREF | VT_EMPTY;
  EXPECT_EQ(VariantChangeTypeEx(out.get(), &odd, 0x0409, 0, VT_I4), DISP_E_BADVARTYPE);
  odd.vt = VT_ARRAY | VT_NULL;
  EXPECT_EQ(VariantChangeTypeEx(out.get(), &odd, 0x0409, 0, VT_I4), DISP_E_BADVARTYPE);
  odd.vt = VT_RESERVED | VT_I4;
  EXPECT_EQ(VariantChangeTypeEx(out.get(), &odd, 0x0409, 0, VT_I4), DISP_E_BADVARTYPE);
  odd.vt = VT_VOID;
  EXPECT_EQ(VariantChangeTypeEx(out.get(), &odd, 0x0409, 0, VT_I4), DISP_E_BADVARTYPE);
  odd.vt = VT_LPSTR;
  EXPECT_EQ(VariantChangeTypeEx(out.get(), &odd, 0x0409, 0, VT_I4), DISP_E_BADVARTYPE);

  CONVERT(I4(1), 15); EXPECT_BADVAR;
  CONVERT(I4(1), VT_CLSID); EXPECT_BADVAR;
  CONVERT(I4(1), VT_VOID); EXPECT_BADVAR;
  CONVERT(I4(1), VT_HRESULT); EXPECT_BADVAR;
  CONVERT(I4(1), VT_INT_PTR); EXPECT_BADVAR;
  CONVERT(I4(1), 0x50); EXPECT_BADVAR;
  CONVERT(I4(1), VT_VECTOR | VT_I4); EXPECT_BADVAR;
  CONVERT(I4(1), VT_ARRAY | VT_EMPTY); EXPECT_BADVAR;
  CONVERT(I4(1), VT_BYREF | VT_NULL); EXPECT_BADVAR;
  CONVERT(I4(1), VT_RESERVED | VT_I4); EXPECT_BADVAR;

  EXPECT_EQ(VariantChangeTypeEx(nullptr, out.get(), 0x0409, 0, VT_I4), E_INVALIDARG);
  EXPECT_EQ(VariantChangeTypeEx(out.get(), nullptr, 0x0409, 0, VT_I4), E_INVALIDARG);
}

TEST_F(ChangeType, ArraysOfBytesAndText) {
  CONVERT(BYTES({0x41, 0x00, 0x42, 0x00}), VT_BSTR); EXPECT_STR(u"AB");
  EXPECT_EQ(SysStringByteLen(out_->bstrVal), 4u);

  CONVERT(BYTES({0x41, 0x00, 0x42}), VT_BSTR);
  ASSERT_TRUE(succeeded());
  EXPECT_EQ(SysStringByteLen(out_->bstrVal), 3u);

  CONVERT(BYTES({}), VT_BSTR);
  ASSERT_TRUE(succeeded());
  EXPECT_EQ(SysStringByteLen(out_->bstrVal), 0u);

  CONVERT(STR(u"AB"), VT_ARRAY | VT_UI1);
  ASSERT_TRUE(succeeded());
  SAFEARRAY* psa = out_->parray;
  ASSERT_NE(psa, nullptr);
  EXPECT_EQ(SafeArrayGetDim(psa), 1u);
  LONG lower = -1, upper = -1;
  SafeArrayGetLBound(psa, 1, &lower);
  SafeArrayGetUBound(psa, 1, &upper);
  EXPECT_EQ(lower, 0);
  EXPECT_EQ(upper, 3);
  const unsigned char expected[] = {0x41, 0x00, 0x42, 0x00};
  EXPECT_EQ(std::memcmp(psa->pvData, expected, 4), 0);

  Var nullText;
  nullText->vt = VT_BSTR;
  nullText->bstrVal = nullptr;
  CONVERT(std::move(nullText), VT_ARRAY | VT_UI1);
  ASSERT_TRUE(succeeded());
  EXPECT_EQ(out_->parray->rgsabound[0].cElements, 0u);

  SAFEARRAYBOUND bounds[2] = {{2, 0}, {2, 0}};
  Var square;
  square->vt = VT_ARRAY | VT_UI1;
  square->parray = SafeArrayCreate(VT_UI1, 2, bounds);
  CONVERT(std::move(square), VT_BSTR); EXPECT_HR(E_INVALIDARG);
}

TEST_F(ChangeType, ArraysOnlyCopy) {
  Var ints;
  ints->vt = VT_ARRAY | VT_I4;
  ints->parray = SafeArrayCreateVector(VT_I4, 1, 3);
  LONG index = 2, value = 99;
  SafeArrayPutElement(ints->parray, &index, &value);
  SAFEARRAY* original = ints->parray;
  CONVERT(std::move(ints), VT_ARRAY | VT_I4);
  ASSERT_TRUE(succeeded());
  EXPECT_NE(out_->parray, original);
  LONG got = 0;
  SafeArrayGetElement(out_->parray, &index, &got);
  EXPECT_EQ(got, 99);

  ints = std::move(in_);
  CONVERT(std::move(ints), VT_ARRAY | VT_R8); EXPECT_MISMATCH;
  ints = std::move(in_);
  CONVERT(std::move(ints), VT_I4); EXPECT_MISMATCH;
  ints = std::move(in_);
  CONVERT(std::move(ints), VT_BSTR); EXPECT_MISMATCH;
  CONVERT(I4(1), VT_ARRAY | VT_I4); EXPECT_MISMATCH;
  CONVERT(STR(u"x"), VT_ARRAY | VT_I2); EXPECT_MISMATCH;
}

TEST_F(ChangeType, DispatchValueProperty) {
  auto* obj = new ValueObject(I4(42));
  lcid_ = 0x0407;
  CONVERT(DISPV(obj), VT_BSTR); EXPECT_STR(u"42");
  EXPECT_EQ(obj->invokes, 1);
  EXPECT_EQ(obj->lastLcid, 0x0407u);
  CONVERT(DISPV(obj), VT_R8); EXPECT(42.0);
  CONVERT(DISPV(obj), VT_I1); EXPECT(42);
  CONVERT(DISPV(obj), VT_BOOL); EXPECT(VARIANT_TRUE);
  CONVERT(DISPV(obj), VT_DECIMAL); EXPECT_DEC(0, 0, 0, 42);
  CONVERT(DISPV(obj), VT_CY); EXPECT_CY(420000);
  CONVERT(DISPV(obj), VT_DATE); EXPECT(42.0);
  EXPECT_EQ(obj->invokes, 7);

  Var byref = DISPV(obj);
  IDispatch* held = byref->pdispVal;
  Var ref;
  ref->vt = VT_DISPATCH | VT_BYREF;
  ref->ppdispVal = &held;
  CONVERT(std::move(ref), VT_I2); EXPECT(42);

  flags_ = VARIANT_NOVALUEPROP;
  CONVERT(DISPV(obj), VT_I4); EXPECT_MISMATCH;
  EXPECT_EQ(obj->invokes, 8);
  flags_ = 0;

  obj->fail = true;
  CONVERT(DISPV(obj), VT_I4); EXPECT_MISMATCH;
  obj->fail = false;

  out_ = Var();
  in_ = Var();
  byref = Var();
  EXPECT_EQ(obj->refs(), 1u);
  obj->Release();
}

TEST_F(ChangeType, DispatchValueIsConvertedWithTheSameRules) {
  auto* text = new ValueObject(STR(u"1,5"));
  lcid_ = 0x0407;
  CONVERT(DISPV(text), VT_R8); EXPECT(1.5);
  lcid_ = 0x0409;
  CONVERT(DISPV(text), VT_R8); EXPECT(15.0);
  CONVERT(DISPV(text), VT_I1); EXPECT(15);

  auto* null = new ValueObject(NULLV());
  CONVERT(DISPV(null), VT_I4); EXPECT_MISMATCH;
  CONVERT(DISPV(null), VT_NULL);
  ASSERT_TRUE(succeeded());

  auto* big = new ValueObject(R8(1e10));
  CONVERT(DISPV(big), VT_I4); EXPECT_OVERFLOW;

  out_ = Var();
  in_ = Var();
  text->Release();
  null->Release();
  big->Release();
}

TEST_F(ChangeType, DispatchWhoseValueIsItself) {
  auto* obj = new ValueObject(EMPTYV());
  obj->returnsItself = true;
  CONVERT(DISPV(obj), VT_I4); EXPECT_MISMATCH;
  EXPECT_GT(obj->invokes, 1);
  in_ = Var();
  EXPECT_EQ(obj->refs(), 1u);
  obj->Release();
}

TEST_F(ChangeType, ObjectsByQueryInterface) {
  auto* obj = new ValueObject(I4(1));
  CONVERT(DISPV(obj), VT_UNKNOWN);
  ASSERT_TRUE(succeeded());
  EXPECT_EQ(out_->punkVal, static_cast<IUnknown*>(obj));
  EXPECT_EQ(obj->invokes, 0);
  EXPECT_EQ(obj->refs(), 3u);  // ours, the source's, the result's

  CONVERT(UNKV(obj), VT_DISPATCH);
  ASSERT_TRUE(succeeded());
  EXPECT_EQ(out_->pdispVal, obj);

  CONVERT(DISPV(obj), VT_DISPATCH);
  ASSERT_TRUE(succeeded());
  EXPECT_EQ(out_->pdispVal, obj);
  EXPECT_EQ(obj->refs(), 3u);

  // Clearing to VT_EMPTY does not read the value.
  CONVERT(DISPV(obj), VT_EMPTY);
  ASSERT_TRUE(succeeded());
  EXPECT_EQ(obj->invokes, 0);

  auto* plain = new PlainObject();
  CONVERT(UNKV(plain), VT_DISPATCH); EXPECT_MISMATCH;
  CONVERT(UNKV(plain), VT_I4); EXPECT_MISMATCH;
  CONVERT(UNKV(plain), VT_BSTR); EXPECT_MISMATCH;

  CONVERT(DISPV(nullptr), VT_I4); EXPECT_BADVAR;
  CONVERT(DISPV(nullptr), VT_UNKNOWN);
  ASSERT_TRUE(succeeded());
  EXPECT_EQ(out_->punkVal, nullptr);
  CONVERT(UNKV(nullptr), VT_DISPATCH);
  ASSERT_TRUE(succeeded());
  EXPECT_EQ(out_->pdispVal, nullptr);

  out_ = Var();
  in_ = Var();
  EXPECT_EQ(obj->refs(), 1u);
  EXPECT_EQ(plain->refs(), 1u);
  obj->Release();
  plain->Release();
}

TEST_F(ChangeType, WithoutLocaleUsesTheThreadLocale) {
  const LCID before = GetThreadLocale();
  Var v = R8(1.5);
  Var out;
  ASSERT_TRUE(SetThreadLocale(0x0407));
  ASSERT_EQ(VariantChangeType(out.get(), v.get(), 0, VT_BSTR), S_OK);
  EXPECT_EQ(Printable(out->bstrVal), "\"1,5\"");
  Var text = STR(u"2,5");
  ASSERT_EQ(VariantChangeType(out.get(), text.get(), 0, VT_R8), S_OK);
  EXPECT_EQ(out->dblVal, 2.5);
  ASSERT_TRUE(SetThreadLocale(0x0409));
  ASSERT_EQ(VariantChangeType(out.get(), v.get(), 0, VT_BSTR), S_OK);
  EXPECT_EQ(Printable(out->bstrVal), "\"1.5\"");
  SetThreadLocale(before);
}

TEST_F(ChangeType, DefaultLocaleIdentifiers) {
  for (LCID lcid : {LOCALE_USER_DEFAULT, LOCALE_SYSTEM_DEFAULT, LOCALE_NEUTRAL, 0x0009u}) {
    lcid_ = lcid;
    CONVERT(STR(u"12"), VT_I4); EXPECT(12);
  }
  lcid_ = 0x0007;
  CONVERT(R8(0.5), VT_BSTR); EXPECT_STR(u"0,5");
  lcid_ = 0x10407;  // German with the phone book sort order
  CONVERT(R8(0.5), VT_BSTR); EXPECT_STR(u"0,5");
  lcid_ = 0x100409;
  CONVERT(R8(0.5), VT_BSTR); EXPECT_HR(DISP_E_UNKNOWNLCID);
}

}  // namespace

#include "model/typedefs.h"

#include <gtest/gtest.h>

#include <map>
#include <vector>

#include "platform/com_object.h"
#include "platform/comdef.h"
#include "platform/dispatch_impl.h"
#include "runtime/exceptions.h"
#include "runtime/trace.h"
#include "platform/unicode.h"
#include "temp_dir.h"

// Small fakes of the object model: only the members the accessors use do
// anything; the others answer E_NOTIMPL.

namespace {

std::u16string KeyOf(const VARIANT& v) {
  if (v.vt != VT_BSTR) return u"";
  return std::u16string(v.bstrVal, SysStringLen(v.bstrVal));
}

class FakeField : public CComObjectBase<FakeField, IDispatchImpl<FakeField, IRfcField>> {
 public:
  CComVariant value;
  CComPtr<IRfcRows> rows;
  HRESULT failure = S_OK;

  HRESULT STDMETHODCALLTYPE get_name(BSTR*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE put_name(BSTR) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE get_RfcType(IRfcType**) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE put_RfcType(IRfcType*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE get_value(VARIANT* pVal) override {
    if (FAILED(failure)) return failure;
    return VariantCopy(pVal, &value);
  }
  HRESULT STDMETHODCALLTYPE put_value(VARIANT) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE get_Fields(IRfcFields**) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE get_Rows(IRfcRows** pVal) override {
    if (FAILED(failure)) return failure;
    return rows.CopyTo(pVal);
  }
  HRESULT STDMETHODCALLTYPE get_InternalType(LONG*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE get_IsEmpty(VARIANT_BOOL*) override { return E_NOTIMPL; }
};

class FakeFields : public CComObjectBase<FakeFields, IDispatchImpl<FakeFields, IRfcFields>> {
 public:
  std::map<std::u16string, CComPtr<IRfcField>> items;

  HRESULT STDMETHODCALLTYPE get_Count(LONG* pVal) override {
    *pVal = static_cast<LONG>(items.size());
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE HasKey(BSTR, VARIANT_BOOL*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE get_Item(VARIANT inIndex, IRfcField** pVal) override {
    auto it = items.find(KeyOf(inIndex));
    if (it == items.end()) return E_INVALIDARG;
    return it->second.CopyTo(pVal);
  }
  HRESULT STDMETHODCALLTYPE get__NewEnum(IUnknown**) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE AddField(IRfcField*) override { return E_NOTIMPL; }
};

class FakeRows : public CComObjectBase<FakeRows, IDispatchImpl<FakeRows, IRfcRows>> {
 public:
  std::vector<CComPtr<IRfcFields>> rows;

  HRESULT STDMETHODCALLTYPE get_Count(LONG* pVal) override {
    *pVal = static_cast<LONG>(rows.size());
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE get_Item(LONG inIndex, IRfcFields** pVal) override {
    if (inIndex < 1 || inIndex > static_cast<LONG>(rows.size())) return E_INVALIDARG;
    return rows[inIndex - 1].CopyTo(pVal);
  }
  HRESULT STDMETHODCALLTYPE get__NewEnum(IUnknown**) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE get_FileMode(VARIANT_BOOL*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE get_DataCol(SHORT*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE get_IndexCol(SHORT*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE get_RfcType(IRfcType**) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE AddRows(LONG) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE AddRow(IRfcFields**) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE SetFileMode(SHORT, SHORT) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE RemoveAll() override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE put_RfcType(IRfcType*) override { return E_NOTIMPL; }
};

class FakeParam : public CComObjectBase<FakeParam, IDispatchImpl<FakeParam, IRfcParameter>> {
 public:
  CComVariant value;
  CComPtr<IRfcFields> fields;
  CComPtr<IRfcRows> rows;
  HRESULT failure = S_OK;

  HRESULT STDMETHODCALLTYPE get_name(BSTR*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE get_RfcType(IRfcType**) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE get_value(VARIANT* pVal) override {
    if (FAILED(failure)) return failure;
    return VariantCopy(pVal, &value);
  }
  HRESULT STDMETHODCALLTYPE put_value(VARIANT) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE get_Fields(IRfcFields** pVal) override {
    if (FAILED(failure)) return failure;
    return fields.CopyTo(pVal);
  }
  HRESULT STDMETHODCALLTYPE get_Rows(IRfcRows** pVal) override {
    if (FAILED(failure)) return failure;
    return rows.CopyTo(pVal);
  }
  HRESULT STDMETHODCALLTYPE DefineScalar(BSTR, ABAPTYPE, SHORT, SHORT, VARIANT) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE Define(BSTR, IRfcType*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE get_InternalType(LONG*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE get_InternalField(IRfcField**) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE get_Optional(VARIANT_BOOL*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE put_Optional(VARIANT_BOOL) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE get_Description(BSTR*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE put_Description(BSTR) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE get_DefaultValue(BSTR*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE put_DefaultValue(BSTR) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE get_IsEmpty(VARIANT_BOOL*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE get_IsRequested(VARIANT_BOOL*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE put_IsRequested(VARIANT_BOOL) override { return E_NOTIMPL; }
};

class FakeParams : public CComObjectBase<FakeParams, IDispatchImpl<FakeParams, IRfcParameters>> {
 public:
  std::map<std::u16string, CComPtr<IRfcParameter>> items;

  HRESULT STDMETHODCALLTYPE get_Count(LONG* pVal) override {
    *pVal = static_cast<LONG>(items.size());
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE HasKey(BSTR, VARIANT_BOOL*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE get_Item(VARIANT inIndex, IRfcParameter** pVal) override {
    auto it = items.find(KeyOf(inIndex));
    if (it == items.end()) return E_INVALIDARG;
    return it->second.CopyTo(pVal);
  }
  HRESULT STDMETHODCALLTYPE get__NewEnum(IUnknown**) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE AddScalar(BSTR, ABAPTYPE, SHORT, SHORT, VARIANT) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE AddParameter(BSTR, IRfcType*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE AddTable(BSTR, IRfcType*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE RemoveParameter(BSTR) override { return E_NOTIMPL; }
};

template <class T>
CComPtr<T> Make() {
  T* raw = nullptr;
  EXPECT_EQ(T::CreateInstance(&raw), S_OK);
  CComPtr<T> p;
  p.Attach(raw);
  return p;
}

CComPtr<IRfcField> FieldWith(const CComVariant& v) {
  auto f = Make<FakeField>();
  f->value = v;
  return CComPtr<IRfcField>(f.p);
}

class AccessorTest : public ::testing::Test {
 protected:
  void SetUp() override {
    TraceResetForTesting();
    TraceOpen(u"Veltrane", Utf8ToWide(dir.file("t.trc")), true);
    SetTraceLevel(3);

    auto structure = Make<FakeFields>();
    structure->items[u"MATNR"] = FieldWith(CComVariant(u"4711"));
    structure->items[u"COUNT"] = FieldWith(CComVariant(LONG(3)));
    fields = structure.p;

    auto row1 = Make<FakeFields>();
    row1->items[u"COL"] = FieldWith(CComVariant(u"first"));
    auto row2 = Make<FakeFields>();
    row2->items[u"COL"] = FieldWith(CComVariant(u"second"));
    auto table = Make<FakeRows>();
    table->rows = {CComPtr<IRfcFields>(row1.p), CComPtr<IRfcFields>(row2.p)};
    rows = table.p;

    auto scalar = Make<FakeParam>();
    scalar->value = CComVariant(u"scalar value");
    auto structParam = Make<FakeParam>();
    structParam->fields = fields;
    auto tableParam = Make<FakeParam>();
    tableParam->rows = rows;
    auto set = Make<FakeParams>();
    set->items[u"SCALAR"] = CComPtr<IRfcParameter>(scalar.p);
    set->items[u"STRUCT"] = CComPtr<IRfcParameter>(structParam.p);
    set->items[u"TABLE"] = CComPtr<IRfcParameter>(tableParam.p);
    params = set.p;
  }
  void TearDown() override { TraceResetForTesting(); }

  std::string TraceText() { return ReadFile(dir.file("t.trc")); }

  TempDir dir;
  CComPtr<IRfcParameters> params;
  CComPtr<IRfcFields> fields;
  CComPtr<IRfcRows> rows;
};

std::u16string TextOf(const CComVariant& v) {
  EXPECT_EQ(v.vt, VT_BSTR);
  return v.vt == VT_BSTR ? std::u16string(v.bstrVal, SysStringLen(v.bstrVal)) : u"";
}

TEST_F(AccessorTest, GetParamAndScalarValue) {
  CComPtr<IRfcParameter> p = _getParam(params, u"SCALAR");
  ASSERT_TRUE(p != nullptr);
  EXPECT_EQ(TextOf(_getScalarVal(p)), u"scalar value");
}

TEST_F(AccessorTest, UnknownParameterRaisesAndTraces) {
  try {
    _getParam(params, u"NO_SUCH_PARAM");
    ADD_FAILURE();
  } catch (const CXCOMError& e) {
    EXPECT_EQ(static_cast<uint32_t>(e.Result()), 0x80070057u);
  }
  std::string trace = TraceText();
  EXPECT_NE(trace.find("_getParam("), std::string::npos);
  EXPECT_NE(trace.find("Error getting parameter NO_SUCH_PARAM\n"), std::string::npos);
}

TEST_F(AccessorTest, StructValueOfFieldsAndOfParameter) {
  EXPECT_EQ(TextOf(_getStructVal(fields, u"MATNR")), u"4711");
  CComVariant count = _getStructVal(fields, u"COUNT");
  EXPECT_EQ(count.vt, VT_I4);
  EXPECT_EQ(count.lVal, 3);
  EXPECT_EQ(TextOf(_getStructVal(_getParam(params, u"STRUCT"), u"MATNR")), u"4711");
}

TEST_F(AccessorTest, UnknownStructFieldRaisesAndTraces) {
  EXPECT_THROW(_getStructVal(fields, u"matnr"), CXCOMError);
  EXPECT_THROW(_getStructVal(_getParam(params, u"STRUCT"), u"NOPE"), CXCOMError);
  std::string trace = TraceText();
  EXPECT_NE(trace.find("_getStructVal("), std::string::npos);
  EXPECT_NE(trace.find("Error getting struct field matnr\n"), std::string::npos);
  EXPECT_NE(trace.find("Error getting struct field NOPE\n"), std::string::npos);
}

TEST_F(AccessorTest, RowsAndRow) {
  CComPtr<IRfcRows> r = _getRows(_getParam(params, u"TABLE"));
  ASSERT_TRUE(r != nullptr);
  EXPECT_EQ(TextOf(_getStructVal(_getRow(r, 1), u"COL")), u"first");
  EXPECT_EQ(TextOf(_getStructVal(_getRow(r, 2), u"COL")), u"second");
  try {
    _getRow(r, 3);
    ADD_FAILURE();
  } catch (const CXCOMError& e) {
    EXPECT_EQ(e.Result(), E_INVALIDARG);
  }
  EXPECT_NE(TraceText().find("_getRow("), std::string::npos);
  EXPECT_NE(TraceText().find("Error 0x80070057: The parameter is incorrect."), std::string::npos);
}

TEST_F(AccessorTest, RowsOfAField) {
  auto field = Make<FakeField>();
  field->rows = rows;
  CComPtr<IRfcField> f(field.p);
  EXPECT_EQ(static_cast<IRfcRows*>(_getRows(f)), rows.p);
  EXPECT_EQ(TextOf(_getScalarVal(CComPtr<IRfcField>(FieldWith(CComVariant(u"v"))))), u"v");
}

TEST_F(AccessorTest, FailedPropertyIsRaisedWithItsCode) {
  auto param = Make<FakeParam>();
  param->failure = DISP_E_TYPEMISMATCH;
  CComPtr<IRfcParameter> p(param.p);
  try {
    _getScalarVal(p);
    ADD_FAILURE();
  } catch (const CXCOMError& e) {
    EXPECT_EQ(e.Result(), DISP_E_TYPEMISMATCH);
  }
  EXPECT_THROW(_getRows(p), CXCOMError);
  EXPECT_NE(TraceText().find("_getScalarVal("), std::string::npos);
  EXPECT_NE(TraceText().find("_getRows("), std::string::npos);
}

TEST_F(AccessorTest, MissingRowsOfAScalarIsAFailure) {
  // A parameter without rows answers success and nothing.
  EXPECT_THROW(_getRows(_getParam(params, u"SCALAR")), CXCOMError);
}

TEST_F(AccessorTest, NullObjectsAreInvalidPointers) {
  auto expectPointer = [](auto f) {
    try {
      f();
      ADD_FAILURE();
    } catch (const _com_error& e) {
      EXPECT_EQ(e.Error(), E_POINTER);
    }
  };
  expectPointer([] { _getParam(CComPtr<IRfcParameters>(), u"X"); });
  expectPointer([] { _getRows(CComPtr<IRfcParameter>()); });
  expectPointer([] { _getRows(CComPtr<IRfcField>()); });
  expectPointer([] { _getRow(CComPtr<IRfcRows>(), 1); });
  expectPointer([] { _getScalarVal(CComPtr<IRfcParameter>()); });
  expectPointer([] { _getScalarVal(CComPtr<IRfcField>()); });
  expectPointer([] { _getStructVal(CComPtr<IRfcFields>(), u"X"); });
  expectPointer([] { _getStructVal(CComPtr<IRfcParameter>(), u"X"); });
}

}  // namespace

// An IRfcType of another implementation than the model's: it forwards to a
// real type and may lie about its kind and row type. The model must work
// with it through the interface alone.
#pragma once

#include <optional>

#include "platform/atlbase.h"
#include "platform/com_object.h"
#include "platform/dispatch_impl.h"
#include "veltrane_tlb.h"

namespace model_test {

class CForeignType : public CComObjectBase<CForeignType, IDispatchImpl<CForeignType, IRfcType>> {
 public:
  CComPtr<IRfcType> inner;
  std::optional<RFCTYPEKIND> kind;
  bool noRowType = false;

  HRESULT STDMETHODCALLTYPE get_name(BSTR* p) override { return inner->get_name(p); }
  HRESULT STDMETHODCALLTYPE get_Kind(RFCTYPEKIND* p) override {
    if (!kind) return inner->get_Kind(p);
    *p = *kind;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE get_ScalarType(ABAPTYPE* p) override { return inner->get_ScalarType(p); }
  HRESULT STDMETHODCALLTYPE put_ScalarType(ABAPTYPE v) override { return inner->put_ScalarType(v); }
  HRESULT STDMETHODCALLTYPE get_ScalarLength(SHORT* p) override { return inner->get_ScalarLength(p); }
  HRESULT STDMETHODCALLTYPE put_ScalarLength(SHORT v) override { return inner->put_ScalarLength(v); }
  HRESULT STDMETHODCALLTYPE get_ScalarDecimals(SHORT* p) override { return inner->get_ScalarDecimals(p); }
  HRESULT STDMETHODCALLTYPE put_ScalarDecimals(SHORT v) override { return inner->put_ScalarDecimals(v); }
  HRESULT STDMETHODCALLTYPE get_StructOffset(LONG* p) override { return inner->get_StructOffset(p); }
  HRESULT STDMETHODCALLTYPE put_StructOffset(LONG v) override { return inner->put_StructOffset(v); }
  HRESULT STDMETHODCALLTYPE get_StructLength(LONG* p) override { return inner->get_StructLength(p); }
  HRESULT STDMETHODCALLTYPE put_StructLength(LONG v) override { return inner->put_StructLength(v); }
  HRESULT STDMETHODCALLTYPE get_StructFields(IRfcTypes** p) override { return inner->get_StructFields(p); }
  HRESULT STDMETHODCALLTYPE get_RowType(IRfcType** p) override {
    if (!noRowType) return inner->get_RowType(p);
    *p = nullptr;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE DefineScalar(BSTR n, ABAPTYPE t, SHORT l, SHORT d, LONG o) override {
    return inner->DefineScalar(n, t, l, d, o);
  }
  HRESULT STDMETHODCALLTYPE DefineStruct(BSTR n) override { return inner->DefineStruct(n); }
  HRESULT STDMETHODCALLTYPE DefineTable(BSTR n, IRfcType* t) override { return inner->DefineTable(n, t); }
  HRESULT STDMETHODCALLTYPE AddComplexStructField(IRfcType* f) override { return inner->AddComplexStructField(f); }
  HRESULT STDMETHODCALLTYPE AddScalarStructField(BSTR n, ABAPTYPE t, SHORT l, SHORT d, LONG o, LONG o1, LONG s,
                                                 LONG s1) override {
    return inner->AddScalarStructField(n, t, l, d, o, o1, s, s1);
  }
  HRESULT STDMETHODCALLTYPE get_Tag(VARIANT* p) override { return inner->get_Tag(p); }
  HRESULT STDMETHODCALLTYPE put_Tag(VARIANT v) override { return inner->put_Tag(v); }
  HRESULT STDMETHODCALLTYPE get_structOffsetC1(LONG* p) override { return inner->get_structOffsetC1(p); }
  HRESULT STDMETHODCALLTYPE put_structOffsetC1(LONG v) override { return inner->put_structOffsetC1(v); }
  HRESULT STDMETHODCALLTYPE get_structLengthC1(LONG* p) override { return inner->get_structLengthC1(p); }
  HRESULT STDMETHODCALLTYPE put_structLengthC1(LONG v) override { return inner->put_structLengthC1(v); }
  HRESULT STDMETHODCALLTYPE GetInternalObj(VARIANT* p) override {
    VariantInit(p);
    return S_OK;
  }

  static CComPtr<IRfcType> Wrap(IRfcType* real, std::optional<RFCTYPEKIND> kind = std::nullopt,
                                bool noRowType = false) {
    CForeignType* f = nullptr;
    CreateInstance(&f);
    f->inner = real;
    f->kind = kind;
    f->noRowType = noRowType;
    CComPtr<IRfcType> out(static_cast<IRfcType*>(f));
    f->Release();
    return out;
  }
};

}  // namespace model_test

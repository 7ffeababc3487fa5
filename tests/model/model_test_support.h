// Helpers of the object-model tests: building types, reading the thread's
// error record, and late-bound calls through IDispatch.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <initializer_list>
#include <sstream>
#include <string>
#include <vector>

#include <unistd.h>

#include "model/model.h"
#include "call_sets.h"
#include "platform/atlbase.h"
#include "runtime/trace.h"
#include "platform/unicode.h"
#include "veltrane_tlb.h"

namespace model_test {

inline std::u16string Str(BSTR s) { return s ? std::u16string(s, SysStringLen(s)) : std::u16string(); }
inline std::u16string Str(const CComBSTR& s) { return Str(s.m_str); }

// The thread's error record, taken (and so cleared).
struct ErrorRecord {
  bool present = false;
  std::u16string source;
  std::u16string description;
  GUID iid{};
};

inline ErrorRecord TakeError() {
  ErrorRecord r;
  CComPtr<IErrorInfo> info;
  if (GetErrorInfo(0, &info) == S_OK && info) {
    r.present = true;
    CComBSTR source, description;
    info->GetSource(&source);
    info->GetDescription(&description);
    info->GetGUID(&r.iid);
    r.source = Str(source);
    r.description = Str(description);
  }
  return r;
}

inline void ClearError() { SetErrorInfo(0, nullptr); }

// hr is 0x80040000 + code, with the record's source and the table's text.
inline void ExpectModelError(HRESULT hr, UINT code, const char16_t* source, const char16_t* text) {
  EXPECT_EQ(hr, static_cast<HRESULT>(0x80040000u + code));
  ErrorRecord r = TakeError();
  EXPECT_TRUE(r.present);
  EXPECT_EQ(r.source, source);
  EXPECT_EQ(r.description, text);
  EXPECT_TRUE(r.iid == IID_ISession);
}

inline CComPtr<IRfcType> NewType() {
  CComPtr<IRfcType> t;
  EXPECT_EQ(CreateRfcType(&t), S_OK);
  return t;
}

inline CComPtr<IRfcType> Scalar(const char16_t* name, ABAPTYPE type, SHORT length = 0, SHORT decimals = 0) {
  CComPtr<IRfcType> t = NewType();
  EXPECT_EQ(t->DefineScalar(CComBSTR(name), type, length, decimals, -1), S_OK);
  return t;
}

inline CComPtr<IRfcType> Struct(const char16_t* name, std::initializer_list<IRfcType*> members) {
  CComPtr<IRfcType> t = NewType();
  EXPECT_EQ(t->DefineStruct(CComBSTR(name)), S_OK);
  for (IRfcType* m : members) {
    EXPECT_EQ(t->AddComplexStructField(m), S_OK);
  }
  return t;
}

inline CComPtr<IRfcType> Table(const char16_t* name, IRfcType* rowType) {
  CComPtr<IRfcType> t = NewType();
  EXPECT_EQ(t->DefineTable(CComBSTR(name), rowType), S_OK);
  return t;
}

inline CComPtr<IFunctionCall> NewCall(const char16_t* name = nullptr) {
  CComPtr<IFunctionCall> c;
  EXPECT_EQ(CreateFunctionCall(&c), S_OK);
  if (name) {
    EXPECT_EQ(c->put_Function(CComBSTR(name)), S_OK);
  }
  return c;
}

inline CComVariant Key(const char16_t* key) { return CComVariant(key); }

// A variant for an omitted optional argument.
inline CComVariant Missing() {
  CComVariant v;
  v.vt = VT_ERROR;
  v.scode = DISP_E_PARAMNOTFOUND;
  return v;
}

template <class Coll, class Item>
CComPtr<Item> ItemOf(Coll* c, const VARIANT& index) {
  CComPtr<Item> item;
  EXPECT_EQ(c->get_Item(index, &item), S_OK);
  return item;
}

using test_support::Changing;
using test_support::Exporting;
using test_support::Importing;
using test_support::Tables;

inline CComPtr<IRfcParameter> Param(IRfcParameters* set, const VARIANT& index) {
  CComPtr<IRfcParameter> p;
  EXPECT_EQ(set->get_Item(index, &p), S_OK);
  return p;
}

inline LONG CountOf(IRfcParameters* s) {
  LONG n = -1;
  EXPECT_EQ(s->get_Count(&n), S_OK);
  return n;
}

// --- late-bound calls --------------------------------------------------------

inline DISPID DispIdOf(IDispatch* d, const char16_t* name) {
  DISPID id = DISPID_UNKNOWN;
  LPOLESTR names[] = {const_cast<LPOLESTR>(name)};
  EXPECT_EQ(d->GetIDsOfNames(IID_NULL, names, 1, LOCALE_USER_DEFAULT, &id), S_OK) << WideToUtf8(name);
  return id;
}

// Invokes by DISPID with the arguments in their declared order.
inline HRESULT InvokeId(IDispatch* d, DISPID id, WORD flags, std::vector<CComVariant> args, VARIANT* result,
                        EXCEPINFO* excep = nullptr) {
  std::vector<VARIANT> reversed(args.rbegin(), args.rend());
  DISPPARAMS params{reversed.empty() ? nullptr : reversed.data(), nullptr, static_cast<UINT>(reversed.size()), 0};
  DISPID named = DISPID_PROPERTYPUT;
  if (flags & (DISPATCH_PROPERTYPUT | DISPATCH_PROPERTYPUTREF)) {
    params.rgdispidNamedArgs = &named;
    params.cNamedArgs = 1;
  }
  EXCEPINFO local{};
  UINT argErr = 0;
  HRESULT hr = d->Invoke(id, IID_NULL, LOCALE_USER_DEFAULT, flags, &params, result, excep ? excep : &local, &argErr);
  if (!excep) {
    SysFreeString(local.bstrSource);
    SysFreeString(local.bstrDescription);
    SysFreeString(local.bstrHelpFile);
  }
  return hr;
}

// Invokes by name; the DISPID must be the one given.
inline HRESULT Invoke(IDispatch* d, const char16_t* name, DISPID expectedId, WORD flags, std::vector<CComVariant> args,
                      VARIANT* result, EXCEPINFO* excep = nullptr) {
  const DISPID id = DispIdOf(d, name);
  EXPECT_EQ(id, expectedId) << WideToUtf8(name);
  return InvokeId(d, id, flags, std::move(args), result, excep);
}

// The dispatch pointer of a variant result, taken over.
template <class Itf>
CComPtr<Itf> Take(VARIANT& v) {
  CComPtr<Itf> out;
  EXPECT_EQ(v.vt, VT_DISPATCH);
  if (v.vt == VT_DISPATCH && v.pdispVal) {
    v.pdispVal->QueryInterface(__uuidof(Itf), reinterpret_cast<void**>(&out));
  }
  VariantClear(&v);
  return out;
}

// --- trace ---------------------------------------------------------------------

// Opens a fresh trace file for one test and reads it back.
class TraceFile {
 public:
  TraceFile() {
    TraceResetForTesting();
    m_path = std::filesystem::temp_directory_path() /
             ("veltrane_model_trace_" + std::to_string(::getpid()) + "_" + std::to_string(++s_counter) + ".log");
    std::filesystem::remove(m_path);
    TraceOpen(u"Veltrane", Utf8ToWide(m_path.string()), false);
    SetTraceLevel(3);
  }
  ~TraceFile() {
    TraceResetForTesting();
    std::error_code ec;
    std::filesystem::remove(m_path, ec);
  }
  std::string Text() const {
    std::ifstream in(m_path, std::ios::binary);
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
  }

 private:
  std::filesystem::path m_path;
  static inline int s_counter = 0;
};

}  // namespace model_test

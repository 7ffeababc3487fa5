// Building calls and types for the codec tests, and reading values back.
#pragma once

#include <gtest/gtest.h>

#include <initializer_list>
#include <string>
#include <utility>
#include <vector>

#include "model/model.h"
#include "call_sets.h"
#include "platform/atlbase.h"
#include "platform/oleauto.h"
#include "veltrane_tlb.h"

namespace codec_test {

inline std::u16string Str(BSTR s) { return s ? std::u16string(s, SysStringLen(s)) : std::u16string(); }

inline void Ok(HRESULT hr) { ASSERT_EQ(hr, S_OK); }

inline CComPtr<IFunctionCall> NewCall(const char16_t* name) {
  CComPtr<IFunctionCall> call;
  EXPECT_EQ(CreateFunctionCall(&call), S_OK);
  EXPECT_EQ(call->put_Function(CComBSTR(name)), S_OK);
  return call;
}

using test_support::Changing;
using test_support::Exporting;
using test_support::Importing;
using test_support::Tables;

inline void AddScalar(IRfcParameters* set, const char16_t* name, ABAPTYPE type, SHORT length, VARIANT value,
                      SHORT decimals = 0) {
  EXPECT_EQ(set->AddScalar(CComBSTR(name), type, length, decimals, value), S_OK);
}

struct Member {
  const char16_t* name;
  ABAPTYPE type;
  SHORT length;
  SHORT decimals = 0;
};

inline CComPtr<IRfcType> Struct(const char16_t* name, std::initializer_list<Member> members) {
  CComPtr<IRfcType> type;
  EXPECT_EQ(CreateRfcType(&type), S_OK);
  EXPECT_EQ(type->DefineStruct(CComBSTR(name)), S_OK);
  for (const Member& m : members)
    EXPECT_EQ(type->AddScalarStructField(CComBSTR(m.name), m.type, m.length, m.decimals, -1, -1, -1, -1), S_OK);
  return type;
}

inline CComPtr<IRfcParameter> Param(IRfcParameters* set, const char16_t* name) {
  CComPtr<IRfcParameter> p;
  EXPECT_EQ(set->get_Item(CComVariant(name), &p), S_OK);
  return p;
}

inline CComVariant Value(IRfcParameters* set, const char16_t* name) {
  CComVariant v;
  CComPtr<IRfcParameter> p = Param(set, name);
  if (p) {
    EXPECT_EQ(p->get_value(&v), S_OK);
  }
  return v;
}

inline CComVariant MemberValue(IRfcFields* fields, const char16_t* name) {
  CComPtr<IRfcField> f;
  EXPECT_EQ(fields->get_Item(CComVariant(name), &f), S_OK);
  CComVariant v;
  if (f) {
    EXPECT_EQ(f->get_value(&v), S_OK);
  }
  return v;
}

inline void SetMember(IRfcFields* fields, const char16_t* name, const VARIANT& value) {
  CComPtr<IRfcField> f;
  ASSERT_EQ(fields->get_Item(CComVariant(name), &f), S_OK);
  ASSERT_EQ(f->put_value(value), S_OK);
}

inline CComPtr<IRfcFields> Fields(IRfcParameters* set, const char16_t* name) {
  CComPtr<IRfcFields> f;
  EXPECT_EQ(Param(set, name)->get_Fields(&f), S_OK);
  return f;
}

inline CComPtr<IRfcRows> Rows(IRfcParameters* set, const char16_t* name) {
  CComPtr<IRfcRows> r;
  EXPECT_EQ(Param(set, name)->get_Rows(&r), S_OK);
  return r;
}

inline CComPtr<IRfcFields> AddRow(IRfcRows* rows) {
  CComPtr<IRfcFields> row;
  EXPECT_EQ(rows->AddRow(&row), S_OK);
  return row;
}

inline CComPtr<IRfcFields> Row(IRfcRows* rows, LONG i) {
  CComPtr<IRfcFields> row;
  EXPECT_EQ(rows->get_Item(i, &row), S_OK);
  return row;
}

inline LONG Count(IRfcRows* rows) {
  LONG n = -1;
  EXPECT_EQ(rows->get_Count(&n), S_OK);
  return n;
}

inline CComVariant Bytes(std::vector<uint8_t> bytes) {
  CComVariant v;
  v.vt = VT_ARRAY | VT_UI1;
  v.parray = SafeArrayCreateVector(VT_UI1, 0, static_cast<ULONG>(bytes.size()));
  void* data = nullptr;
  if (!bytes.empty()) {
    SafeArrayAccessData(v.parray, &data);
    std::copy(bytes.begin(), bytes.end(), static_cast<uint8_t*>(data));
    SafeArrayUnaccessData(v.parray);
  }
  return v;
}

inline std::vector<uint8_t> BytesOf(const VARIANT& v) {
  std::vector<uint8_t> out;
  if (v.vt != (VT_ARRAY | VT_UI1) || !v.parray) return out;
  LONG lo = 0, hi = -1;
  SafeArrayGetLBound(v.parray, 1, &lo);
  SafeArrayGetUBound(v.parray, 1, &hi);
  void* data = nullptr;
  SafeArrayAccessData(v.parray, &data);
  out.assign(static_cast<uint8_t*>(data), static_cast<uint8_t*>(data) + (hi - lo + 1));
  SafeArrayUnaccessData(v.parray);
  return out;
}

inline std::u16string TextOf(const VARIANT& v) {
  return v.vt == VT_BSTR ? Str(v.bstrVal) : u"<vt " + std::u16string(1, char16_t(u'0' + v.vt % 10)) + u">";
}

}  // namespace codec_test

// The rows the SDK table benchmarks send: TT_FLAT of Z_VSIM_TYPES, every
// field of ZVSIM_FLAT set through the object model, or held in plain C++
// rows as a client of the SDK alone would keep them.
#pragma once

#include <cstring>
#include <string>
#include <vector>

#include "platform/atlbase.h"
#include "platform/objbase.h"
#include "veltrane_tlb.h"

namespace bench {

inline constexpr int kFlatRows = 100000;

inline std::u16string WideAscii(const std::string& s) { return std::u16string(s.begin(), s.end()); }

// Fills the call's TT_FLAT with rows 1..count; false when the call has no such table.
inline bool FillFlatTable(IFunctionCall* call, LONG count) {
  CComPtr<IRfcParameters> tables;
  call->get_Tables(&tables);
  CComPtr<IRfcParameter> table;
  if (!tables || tables->get_Item(CComVariant(u"TT_FLAT"), &table) != S_OK || !table) return false;
  CComPtr<IRfcRows> rows;
  table->get_Rows(&rows);
  rows->AddRows(count);
  for (LONG i = 1; i <= count; ++i) {
    CComPtr<IRfcFields> row;
    rows->get_Item(i, &row);
    auto set = [&](const char16_t* name, const CComVariant& value) {
      CComPtr<IRfcField> field;
      row->get_Item(CComVariant(name), &field);
      field->put_value(value);
    };
    set(u"CHAR", CComVariant(WideAscii("row " + std::to_string(i)).c_str()));
    set(u"NUMC", CComVariant(WideAscii(std::to_string(i)).c_str()));
    CComVariant date;
    date.vt = VT_DATE;
    date.date = 45292.0 + i % 365;  // 2024-01-01 on
    set(u"DATE", date);
    CComVariant time;
    time.vt = VT_DATE;
    time.date = (i % 86400) / 86400.0;
    set(u"TIME", time);
    SAFEARRAY* bytes = SafeArrayCreateVector(VT_UI1, 0, 4);
    std::memcpy(bytes->pvData, &i, 4);
    CComVariant raw;
    raw.vt = VT_ARRAY | VT_UI1;
    raw.parray = bytes;
    set(u"RAW", raw);
    set(u"PACKED", CComVariant(WideAscii(std::to_string(i) + ".25").c_str()));
    set(u"FLOAT", CComVariant(i * 0.5));
    set(u"INT", CComVariant(static_cast<LONG>(i)));
    set(u"INT1", CComVariant(static_cast<LONG>(i % 100)));
    set(u"INT2", CComVariant(static_cast<LONG>(i % 1000)));
  }
  return true;
}

// Z_VSIM_TYPES, without the parameters the session cannot carry, with TT_FLAT
// filled with rows 1..count; null when it does not import.
inline CComPtr<IFunctionCall> FilledTypesCall(ISession* session, LONG count) {
  CComPtr<IFunctionCall> call;
  if (session->ImportCall(CComBSTR(u"Z_VSIM_TYPES"), VARIANT_TRUE, &call) != S_OK || !call) return nullptr;
  if (!FillFlatTable(call, count)) return nullptr;
  return call;
}

// A row of TT_FLAT as a client of the SDK would keep it.
struct FlatRow {
  std::u16string text, numc, packed;
  char16_t date[8], time[6];
  unsigned char raw[4];
  double number;
  int integer;
  unsigned char tiny;
  short small;
};

// Rows 1..count with the values FillFlatTable gives them.
inline std::vector<FlatRow> FlatRows(int count) {
  std::vector<FlatRow> rows(static_cast<size_t>(count));
  for (int i = 0; i < count; ++i) {
    FlatRow& r = rows[static_cast<size_t>(i)];
    const int n = i + 1;
    r.text = WideAscii("row " + std::to_string(n));
    r.numc = WideAscii(std::to_string(n));
    r.packed = WideAscii(std::to_string(n) + ".25");
    std::memcpy(r.date, u"20240101", sizeof r.date);
    std::memcpy(r.time, u"000000", sizeof r.time);
    std::memcpy(r.raw, &n, 4);
    r.number = n * 0.5;
    r.integer = n;
    r.tiny = static_cast<unsigned char>(n % 100);
    r.small = static_cast<short>(n % 1000);
  }
  return rows;
}

}  // namespace bench

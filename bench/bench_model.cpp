// The object model's hot paths: tables built and read field by field, the
// deep copy of a call, collection access, and the XML form.
#include <benchmark/benchmark.h>

#include <string>
#include <vector>

#include "model/model.h"
#include "platform/atlbase.h"
#include "platform/unicode.h"

namespace {

CComBSTR Name(const char* prefix, int i) { return CComBSTR(Utf8ToWide(prefix + std::to_string(i))); }

CComPtr<IRfcType> RowType(int fields) {
  CComPtr<IRfcType> row;
  CreateRfcType(&row);
  row->DefineStruct(CComBSTR(u"ROW"));
  for (int i = 0; i < fields; ++i) row->AddScalarStructField(Name("FIELD", i), TYPE_CHAR, 20, 0, -1, -1, -1, -1);
  return row;
}

CComPtr<IRfcRows> TableRows(IFunctionCall* call, IRfcType* row) {
  CComPtr<IRfcParameters> tables;
  call->get_Tables(&tables);
  tables->AddTable(CComBSTR(u"DATA"), row);
  CComPtr<IRfcParameter> p;
  tables->get_Item(CComVariant(u"DATA"), &p);
  CComPtr<IRfcRows> rows;
  p->get_Rows(&rows);
  return rows;
}

constexpr int kRows = 100000;
constexpr int kFields = 10;

// AddRow and one value put per field, by position.
void BuildTable(IRfcRows* rows, const CComVariant& value) {
  for (int r = 0; r < kRows; ++r) {
    CComPtr<IRfcFields> row;
    rows->AddRow(&row);
    for (LONG f = 1; f <= kFields; ++f) {
      CComPtr<IRfcField> field;
      row->get_Item(CComVariant(f), &field);
      field->put_value(value);
    }
  }
}

void BM_BuildTable100kRows10Fields(benchmark::State& state) {
  CComPtr<IRfcType> row = RowType(kFields);
  const CComVariant value(u"value of a field");
  for (auto _ : state) {
    CComPtr<IFunctionCall> call;
    CreateFunctionCall(&call);
    CComPtr<IRfcRows> rows = TableRows(call, row);
    BuildTable(rows, value);
    state.PauseTiming();
    rows.Release();
    call.Release();
    state.ResumeTiming();
  }
  state.SetItemsProcessed(state.iterations() * kRows);
}
BENCHMARK(BM_BuildTable100kRows10Fields)->Unit(benchmark::kMillisecond);

void BM_ReadTable100kRows10Fields(benchmark::State& state) {
  CComPtr<IRfcType> row = RowType(kFields);
  CComPtr<IFunctionCall> call;
  CreateFunctionCall(&call);
  CComPtr<IRfcRows> rows = TableRows(call, row);
  BuildTable(rows, CComVariant(u"value of a field"));
  for (auto _ : state) {
    size_t characters = 0;
    LONG count = 0;
    rows->get_Count(&count);
    for (LONG r = 1; r <= count; ++r) {
      CComPtr<IRfcFields> fields;
      rows->get_Item(r, &fields);
      for (LONG f = 1; f <= kFields; ++f) {
        CComPtr<IRfcField> field;
        fields->get_Item(CComVariant(f), &field);
        CComVariant v;
        field->get_value(&v);
        characters += SysStringLen(v.bstrVal);
      }
    }
    benchmark::DoNotOptimize(characters);
  }
  state.SetItemsProcessed(state.iterations() * kRows);
}
BENCHMARK(BM_ReadTable100kRows10Fields)->Unit(benchmark::kMillisecond);

CComPtr<IFunctionCall> CallWith(int parameters) {
  CComPtr<IFunctionCall> call;
  CreateFunctionCall(&call);
  call->put_Function(CComBSTR(u"Z_BENCH"));
  CComPtr<IRfcType> row = RowType(kFields);
  CComPtr<IRfcType> address = RowType(5);
  CComPtr<IRfcParameters> sets[4];
  call->get_Importing(&sets[0]);
  call->get_Exporting(&sets[1]);
  call->get_Changing(&sets[2]);
  call->get_Tables(&sets[3]);
  CComVariant missing;
  missing.vt = VT_ERROR;
  missing.scode = DISP_E_PARAMNOTFOUND;
  for (int i = 0; i < parameters; ++i) {
    switch (i % 4) {
      case 0: sets[0]->AddScalar(Name("IMP", i), TYPE_CHAR, 18, 0, missing); break;
      case 1: sets[1]->AddParameter(Name("EXP", i), address); break;
      case 2: sets[2]->AddScalar(Name("CHG", i), TYPE_BCD, 15, 2, missing); break;
      default: sets[3]->AddTable(Name("TAB", i), row); break;
    }
  }
  return call;
}

void BM_DeepCopyCall50Parameters(benchmark::State& state) {
  CComPtr<IFunctionCall> call = CallWith(50);
  for (auto _ : state) {
    CComPtr<IFunctionCall> copy;
    DeepCopyCall(call, &copy);
    benchmark::DoNotOptimize(copy.p);
  }
}
BENCHMARK(BM_DeepCopyCall50Parameters)->Unit(benchmark::kMicrosecond);

CComPtr<IRfcTypes> Collection1000(CComPtr<IRfcType>& owner) {
  owner = RowType(1000);
  CComPtr<IRfcTypes> members;
  owner->get_StructFields(&members);
  return members;
}

void BM_ItemByKey1000(benchmark::State& state) {
  CComPtr<IRfcType> owner;
  CComPtr<IRfcTypes> members = Collection1000(owner);
  std::vector<CComVariant> keys;
  for (int i = 0; i < 1000; i += 7) keys.emplace_back(Name("FIELD", i));
  size_t k = 0;
  for (auto _ : state) {
    CComPtr<IRfcType> item;
    members->get_Item(keys[k], &item);
    benchmark::DoNotOptimize(item.p);
    if (++k == keys.size()) k = 0;
  }
}
BENCHMARK(BM_ItemByKey1000);

void BM_ItemByPosition1000(benchmark::State& state) {
  CComPtr<IRfcType> owner;
  CComPtr<IRfcTypes> members = Collection1000(owner);
  LONG position = 1;
  for (auto _ : state) {
    CComPtr<IRfcType> item;
    members->get_Item(CComVariant(position), &item);
    benchmark::DoNotOptimize(item.p);
    position = position % 1000 + 1;
  }
}
BENCHMARK(BM_ItemByPosition1000);

void BM_ToXML200Parameters(benchmark::State& state) {
  CComPtr<IFunctionCall> call = CallWith(200);
  size_t bytes = 0;
  for (auto _ : state) {
    CComBSTR xml;
    call->ToXML(&xml);
    bytes = xml.ByteLength();
    benchmark::DoNotOptimize(xml.m_str);
  }
  state.SetBytesProcessed(state.iterations() * bytes);
}
BENCHMARK(BM_ToXML200Parameters)->Unit(benchmark::kMicrosecond);

void BM_FromXML200Parameters(benchmark::State& state) {
  CComBSTR xml;
  CallWith(200)->ToXML(&xml);
  for (auto _ : state) {
    CComPtr<IFunctionCall> call;
    CreateFunctionCall(&call);
    call->FromXML(xml);
    benchmark::DoNotOptimize(call.p);
  }
  state.SetBytesProcessed(state.iterations() * xml.ByteLength());
}
BENCHMARK(BM_FromXML200Parameters)->Unit(benchmark::kMicrosecond);

}  // namespace

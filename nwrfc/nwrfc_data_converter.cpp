#include "nwrfc/nwrfc_data_converter.h"

#include <algorithm>
#include <cwctype>

#include <boost/format.hpp>

#include "abap/model_values.h"
#include "abap/scalar_conversion.h"
#include "model/model.h"
#include "model/row_store.h"
#include "nwrfc/sdk_error.h"
#include "platform/comdef.h"
#include "platform/unicode.h"
#include "runtime/report_error.h"
#include "runtime/trace.h"

using veltrane::abap::FieldValue;
using veltrane::abap::RowFields;
using veltrane::abap::StoredRows;

namespace {

std::string Narrow(std::u16string_view text) { return WideToUtf8Lossy(text); }

// A failed model call or conversion: its result, traced with the place.
HRESULT Traced(HRESULT hr, const std::string& place) {
  TraceResult(hr, place.c_str(), __FILE__, __LINE__);
  return hr;
}
HRESULT Traced(HRESULT hr, const boost::format& place) { return Traced(hr, place.str()); }

template <class T>
T* Required(T* p) {
  if (!p) throw _com_error(E_POINTER);
  return p;
}

bool IsBlank(char16_t c) { return std::iswspace(static_cast<wint_t>(c)) != 0; }

// ReadChars keeps the text without its trailing whitespace.
constexpr size_t kTrimmed = static_cast<size_t>(-1);

size_t TrimmedEnd(const SAP_UC* text, size_t n) {
  while (n > 0 && IsBlank(text[n - 1])) --n;
  return n;
}

// "%1%=%2%" or "%1%-%2%=%3%" at level 3.
void TraceValue(std::u16string_view parentName, std::u16string_view name, const VARIANT& value) {
  if (TraceLevel() < TRACE_INFORMATION) return;
  const std::string text = Narrow(VariantTraceText(value));
  if (parentName.empty())
    TraceLog(TRACE_INFORMATION, boost::format("%1%=%2%") % Narrow(name) % text, nullptr, __FILE__, __LINE__);
  else
    TraceLog(TRACE_INFORMATION, boost::format("%1%-%2%=%3%") % Narrow(parentName) % Narrow(name) % text, nullptr,
             __FILE__, __LINE__);
}

// "<call>(<table>[<row>])", the context of a failed cursor call.
std::u16string RowContext(const char16_t* call, const std::u16string& table, long row) {
  return std::u16string(call) + u"(" + table + u"[" + Utf8ToWide(std::to_string(row)) + u"])";
}

std::u16string NameOf(IRfcField* field, HRESULT* hr) {
  CComBSTR name;
  *hr = field->get_name(&name);
  return std::u16string(name.View());
}

}  // namespace

// The members of a table's row type, read once for all its rows.
struct CNWRFCDataConverter::RowPlan {
  struct Member {
    std::u16string name;
    RFCTYPEKIND kind = RFCTYPEKIND_UNDEFINED;
    int32_t type = -1;
    int32_t length = 0;
  };
  std::vector<Member> members;

  // False when the rows have no row type to read.
  bool Read(IRfcRows* rows) {
    CComPtr<IRfcType> rowType;
    CComPtr<IRfcTypes> types;
    LONG count = 0;
    if (FAILED(rows->get_RfcType(&rowType)) || !rowType || FAILED(rowType->get_StructFields(&types)) || !types ||
        FAILED(types->get_Count(&count)) || count < 1)
      return false;
    members.resize(static_cast<size_t>(count));
    for (LONG i = 1; i <= count; ++i) {
      CComPtr<IRfcType> type;
      CComBSTR name;
      ABAPTYPE scalarType = TYPE_CHAR;
      SHORT length = 0;
      Member& m = members[static_cast<size_t>(i - 1)];
      if (FAILED(types->get_Item(CComVariant(i), &type)) || !type || FAILED(type->get_name(&name)) ||
          FAILED(type->get_Kind(&m.kind)) || FAILED(type->get_ScalarType(&scalarType)) ||
          FAILED(type->get_ScalarLength(&length)))
        return false;
      m.name = name.View();
      m.type = scalarType;
      m.length = length;
    }
    return true;
  }
};

HRESULT CNWRFCDataConverter::SdkFailure(std::u16string_view context) {
  return veltrane::nwrfc::ReportRfcError(m_errorInfo ? *m_errorInfo : RFC_ERROR_INFO{}, context, Text::RfcError,
                                         m_clsid);
}

RFC_STRUCTURE_HANDLE CNWRFCDataConverter::CurrentRow(RFC_TABLE_HANDLE table, const std::u16string& name, long row,
                                                     HRESULT* hr) {
  RFC_STRUCTURE_HANDLE current = m_sdk.RfcGetCurrentRow(table, m_errorInfo);
  if (current) return current;
  // No row is a failure, whatever the record says.
  *hr = SdkFailure(row < 0 ? u"RfcGetCurrentRow([" + name + u"])" : RowContext(u"RfcGetCurrentRow", name, row));
  if (SUCCEEDED(*hr)) *hr = ReportError(m_clsid, Text::RfcError);
  return nullptr;
}

HRESULT CNWRFCDataConverter::NextRow(RFC_TABLE_HANDLE table, const std::u16string& name, long row) {
  if (m_sdk.RfcMoveToNextRow(table, m_errorInfo) == RFC_OK) return S_OK;
  return SdkFailure(RowContext(u"RfcMoveToNextRow", name, row));
}

// ------------------------------------------------------------ whole calls

HRESULT CNWRFCDataConverter::FillOutgoingArgs(IFunctionCall* call, RFC_FUNCTION_HANDLE function) {
  CComBSTR functionName;
  HRESULT hr = Required(call)->get_Function(&functionName);
  if (FAILED(hr)) return Traced(hr, "get_Function()");
  CComPtr<IRfcParameters> group;
  if (FAILED(hr = call->get_Importing(&group))) return Traced(hr, "get_Importing()");
  if (FAILED(hr = putRfcArgs(group, function, u"IMPORTING", true))) return hr;
  group.Release();
  if (FAILED(hr = call->get_Changing(&group))) return Traced(hr, "get_Changing()");
  if (FAILED(hr = putRfcArgs(group, function, u"CHANGING", false))) return hr;
  group.Release();
  if (FAILED(hr = call->get_Tables(&group))) return Traced(hr, "get_Tables()");
  if (FAILED(hr = putRfcArgs(group, function, u"TABLES", false))) return hr;
  group.Release();
  if (FAILED(hr = call->get_Exporting(&group))) return Traced(hr, "get_Exporting()");
  LONG count = 0;
  if (FAILED(hr = Required(group.p)->get_Count(&count))) return Traced(hr, "get_Count(EXPORTING)");
  for (LONG i = 1; i <= count; ++i) {
    CComPtr<IRfcParameter> parameter;
    if (FAILED(hr = group->get_Item(CComVariant(i), &parameter))) return Traced(hr, "get_Item(EXPORTING)");
    CComBSTR name;
    VARIANT_BOOL requested = VARIANT_TRUE;
    if (FAILED(hr = Required(parameter.p)->get_name(&name)) || FAILED(hr = parameter->get_IsRequested(&requested)))
      return Traced(hr, "get_Item(EXPORTING)");
    const std::u16string parameterName(name.View());
    if (m_sdk.RfcSetParameterActive(function, parameterName.c_str(), requested == VARIANT_TRUE ? 1 : 0, m_errorInfo) !=
            RFC_OK &&
        FAILED(hr = SdkFailure(parameterName)))
      return hr;
  }
  return S_OK;
}

HRESULT CNWRFCDataConverter::FillIncomingArgs(RFC_RC rfcResult, RFC_FUNCTION_HANDLE function, IFunctionCall* call) {
  CComBSTR functionName;
  HRESULT hr = Required(call)->get_Function(&functionName);
  if (FAILED(hr)) return Traced(hr, "get_Function()");
  CComPtr<IRfcParameters> group;
  if (rfcResult == RFC_OK) {
    if (FAILED(hr = call->get_Exporting(&group))) return Traced(hr, "get_Exporting()");
    if (FAILED(hr = getRfcArgs(function, group, u"EXPORTING"))) return hr;
    group.Release();
    if (FAILED(hr = call->get_Changing(&group))) return Traced(hr, "get_Changing()");
    if (FAILED(hr = getRfcArgs(function, group, u"CHANGING"))) return hr;
    group.Release();
  } else if (rfcResult != RFC_ABAP_EXCEPTION) {
    return S_OK;
  }
  if (FAILED(hr = call->get_Tables(&group))) return Traced(hr, "get_Tables()");
  return getRfcArgs(function, group, u"TABLES");
}

// -------------------------------------------------------------- parameters

HRESULT CNWRFCDataConverter::getRfcArgs(DATA_CONTAINER_HANDLE container, IRfcParameters* parameters,
                                        std::u16string_view groupName) {
  LONG count = 0;
  HRESULT hr = Required(parameters)->get_Count(&count);
  if (FAILED(hr)) return Traced(hr, boost::format("get_Count(%1%)") % Narrow(groupName));
  for (LONG i = 1; i <= count; ++i) {
    CComPtr<IRfcParameter> parameter;
    if (FAILED(hr = parameters->get_Item(CComVariant(i), &parameter)))
      return Traced(hr, boost::format("get_Item(%1%[%2%])") % Narrow(groupName) % i);
    VARIANT_BOOL requested = VARIANT_TRUE;
    if (FAILED(hr = Required(parameter.p)->get_IsRequested(&requested)))
      return Traced(hr, boost::format("get_Item(%1%[%2%])") % Narrow(groupName) % i);
    // The group ends at the first parameter nobody asked for.
    if (requested == VARIANT_FALSE) return S_OK;
    CComPtr<IRfcField> field;
    if (FAILED(hr = parameter->get_InternalField(&field)))
      return Traced(hr, boost::format("get_Item(%1%[%2%])") % Narrow(groupName) % i);
    if (FAILED(hr = getRfcField(container, Required(field.p), true, u""))) return hr;
  }
  return S_OK;
}

HRESULT CNWRFCDataConverter::putRfcArgs(IRfcParameters* parameters, DATA_CONTAINER_HANDLE container,
                                        std::u16string_view groupName, bool deactivateEmpty) {
  LONG count = 0;
  HRESULT hr = Required(parameters)->get_Count(&count);
  if (FAILED(hr)) return Traced(hr, boost::format("putRfcArgs(%1%)") % Narrow(groupName));
  for (LONG i = 1; i <= count; ++i) {
    CComPtr<IRfcParameter> parameter;
    if (FAILED(hr = parameters->get_Item(CComVariant(i), &parameter)))
      return Traced(hr, boost::format("putRfcArgs(%1%)") % Narrow(groupName));
    VARIANT_BOOL empty = VARIANT_FALSE, requested = VARIANT_TRUE;
    CComBSTR name;
    if (FAILED(hr = Required(parameter.p)->get_IsEmpty(&empty)) ||
        FAILED(hr = parameter->get_IsRequested(&requested)) || FAILED(hr = parameter->get_name(&name)))
      return Traced(hr, boost::format("putRfcArgs(%1%)") % Narrow(groupName));
    const bool isEmpty = empty == VARIANT_TRUE;
    const bool isRequested = requested == VARIANT_TRUE;
    // Not requested, or requested, empty and to be switched off: inactive.
    if (!isRequested || (isEmpty && deactivateEmpty)) {
      const std::u16string parameterName(name.View());
      if (m_sdk.RfcSetParameterActive(container, parameterName.c_str(), 0, m_errorInfo) != RFC_OK &&
          FAILED(hr = SdkFailure(parameterName)))
        return hr;
    }
    // Whether the value goes out is decided by emptiness alone.
    if (isEmpty) continue;
    CComPtr<IRfcField> field;
    if (FAILED(hr = parameter->get_InternalField(&field)))
      return Traced(hr, boost::format("putRfcArgs(%1%)") % Narrow(groupName));
    if (FAILED(hr = putRfcField(Required(field.p), container, true, u""))) return hr;
  }
  return S_OK;
}

// ------------------------------------------------------------------ fields

HRESULT CNWRFCDataConverter::FieldHead(IRfcField* field, const char* place, std::u16string* name, RFCTYPEKIND* kind) {
  HRESULT hr;
  *name = NameOf(field, &hr);
  if (FAILED(hr)) return Traced(hr, "get_name()");
  CComPtr<IRfcType> type;
  if (FAILED(hr = field->get_RfcType(&type)) || FAILED(hr = Required(type.p)->get_Kind(kind)))
    return Traced(hr, boost::format("%1%(%2%)") % place % Narrow(*name));
  return S_OK;
}

HRESULT CNWRFCDataConverter::SubStructure(DATA_CONTAINER_HANDLE container, IRfcField* field, const std::u16string& name,
                                          std::u16string_view failure, IRfcFields** fields,
                                          RFC_STRUCTURE_HANDLE* structure) {
  HRESULT hr = field->get_Fields(fields);
  if (FAILED(hr)) return Traced(hr, boost::format("%1%: get_Fields()") % Narrow(name));
  Required(*fields);
  *structure = nullptr;
  if (m_sdk.RfcGetStructure(container, name.c_str(), structure, m_errorInfo) != RFC_OK &&
      FAILED(hr = SdkFailure(failure)))
    return hr;
  return S_OK;
}

HRESULT CNWRFCDataConverter::getRfcField(DATA_CONTAINER_HANDLE container, IRfcField* field, bool traceValues,
                                         std::u16string_view parentName) {
  std::u16string name;
  RFCTYPEKIND kind = RFCTYPEKIND_UNDEFINED;
  HRESULT hr = FieldHead(field, "get_RfcType", &name, &kind);
  if (FAILED(hr)) return hr;
  switch (kind) {
    case RFCTYPEKIND_SCALAR: return getScalarVal(container, field, traceValues, parentName);
    case RFCTYPEKIND_STRUCT: {
      CComPtr<IRfcFields> fields;
      RFC_STRUCTURE_HANDLE structure = nullptr;
      if (FAILED(hr = SubStructure(container, field, name, name, &fields, &structure))) return hr;
      if (FAILED(hr = getStructFields(structure, fields, traceValues, name)))
        return Traced(hr, boost::format("GetStructFields(%1%)") % Narrow(name));
      return S_OK;
    }
    case RFCTYPEKIND_TABLE: return GetTable(container, field, name);
    default: return S_OK;
  }
}

HRESULT CNWRFCDataConverter::putRfcField(IRfcField* field, DATA_CONTAINER_HANDLE container, bool traceValues,
                                         std::u16string_view parentName) {
  std::u16string name;
  RFCTYPEKIND kind = RFCTYPEKIND_UNDEFINED;
  HRESULT hr = FieldHead(field, "putRfcField", &name, &kind);
  if (FAILED(hr)) return hr;
  switch (kind) {
    case RFCTYPEKIND_SCALAR: return putScalarVal(field, container, traceValues, parentName);
    case RFCTYPEKIND_STRUCT: {
      CComPtr<IRfcFields> fields;
      RFC_STRUCTURE_HANDLE structure = nullptr;
      if (FAILED(hr = SubStructure(container, field, name, u"RfcGetStructure([" + name + u"])", &fields, &structure)))
        return hr;
      if (FAILED(hr = putStructFields(fields, structure, traceValues, name)))
        return Traced(hr, boost::format("putStructFields(%1%)") % Narrow(name));
      return S_OK;
    }
    case RFCTYPEKIND_TABLE: return PutTable(field, container, name);
    default: return S_OK;
  }
}

HRESULT CNWRFCDataConverter::getStructFields(DATA_CONTAINER_HANDLE container, IRfcFields* fields, bool traceValues,
                                             std::u16string_view parentName) {
  LONG count = 0;
  HRESULT hr = fields->get_Count(&count);
  if (FAILED(hr)) return Traced(hr, boost::format("%1%: fields->get_Count()") % Narrow(parentName));
  for (LONG i = 1; i <= count; ++i) {
    CComPtr<IRfcField> field;
    if (FAILED(hr = fields->get_Item(CComVariant(i), &field))) return Traced(hr, boost::format("get_Item(%1%)") % i);
    if (FAILED(hr = getRfcField(container, Required(field.p), traceValues, parentName)))
      return Traced(hr, boost::format("getStructFields(%1%[%2%])") % Narrow(parentName) % i);
  }
  return S_OK;
}

HRESULT CNWRFCDataConverter::putStructFields(IRfcFields* fields, DATA_CONTAINER_HANDLE container, bool traceValues,
                                             std::u16string_view parentName) {
  LONG count = 0;
  HRESULT hr = fields->get_Count(&count);
  if (FAILED(hr)) return Traced(hr, boost::format("%1%: fields->get_Count()") % Narrow(parentName));
  for (LONG i = 1; i <= count; ++i) {
    CComPtr<IRfcField> field;
    if (FAILED(hr = fields->get_Item(CComVariant(i), &field))) return Traced(hr, boost::format("get_Item(%1%)") % i);
    if (FAILED(hr = putRfcField(Required(field.p), container, traceValues, parentName)))
      return Traced(hr, boost::format("PutStructFields(%1%[%2%])") % Narrow(parentName) % i);
  }
  return S_OK;
}

// ------------------------------------------------------------------ tables

HRESULT CNWRFCDataConverter::GetTable(DATA_CONTAINER_HANDLE container, IRfcField* field, const std::u16string& name) {
  CComPtr<IRfcRows> rows;
  HRESULT hr = field->get_Rows(&rows);
  if (FAILED(hr)) return Traced(hr, boost::format("get_Rows(%1%)") % Narrow(name));
  // Rows of an earlier call go before anything is read.
  if (FAILED(hr = Required(rows.p)->RemoveAll())) return Traced(hr, "rows->RemoveAll()");
  RFC_TABLE_HANDLE table = nullptr;
  if (m_sdk.RfcGetTable(container, name.c_str(), &table, m_errorInfo) != RFC_OK &&
      FAILED(hr = SdkFailure(u"RfcGetTable([" + name + u"])")))
    return hr;
  unsigned count = 0;
  if (m_sdk.RfcGetRowCount(table, &count, m_errorInfo) != RFC_OK && FAILED(hr = SdkFailure(u"GetRowCount"))) return hr;
  if (count == 0) {
    TraceLog(TRACE_INFORMATION, boost::format("RfcGetField(%1%) (0 rows)") % Narrow(name), nullptr, __FILE__, __LINE__);
    return S_OK;
  }
  if (m_sdk.RfcMoveToFirstRow(table, m_errorInfo) != RFC_OK &&
      FAILED(hr = SdkFailure(u"RfcMoveToNextRow(" + name + u")")))
    return hr;
  RowPlan plan;
  if (plan.Read(rows)) {
    hr = GetPlannedRows(table, rows, plan, count, name);
    if (hr != E_NOINTERFACE) return hr;
  }
  // Rows of another implementation: one at a time through the interfaces.
  for (unsigned i = 0; i < count; ++i) {
    RFC_STRUCTURE_HANDLE row = CurrentRow(table, name, i, &hr);
    if (!row) return hr;
    CComPtr<IRfcFields> fields;
    if (FAILED(hr = rows->AddRow(&fields))) return Traced(hr, "AddRow");
    if (FAILED(hr = getStructFields(row, Required(fields.p), false, u"")))
      return Traced(hr, boost::format("getStructFields(%1%[%2%])") % Narrow(name) % i);
    if (i + 1 < count && FAILED(hr = NextRow(table, name, i))) return hr;
  }
  return S_OK;
}

// All rows appended at once and filled cell by cell with the plan's names
// and types. E_NOINTERFACE, with nothing added, for rows the model cannot
// append this way. A failure leaves the rows read before it.
HRESULT CNWRFCDataConverter::GetPlannedRows(RFC_TABLE_HANDLE table, IRfcRows* rows, const RowPlan& plan, unsigned count,
                                            const std::u16string& name) {
  // Rows of scalars go into the rows' store; the objects are made when a
  // client reaches them.
  RowStore* store = nullptr;
  size_t first = 0;
  HRESULT stored = RfcRowsAppendStored(rows, static_cast<LONG>(count), &store, &first);
  if (SUCCEEDED(stored)) return GetStoredRows(table, rows, plan, count, name, *store, first);
  if (stored != E_NOINTERFACE) return Traced(stored, "AddRow");
  std::vector<CRfcField*> cells;
  cells.reserve(static_cast<size_t>(count) * plan.members.size());
  HRESULT hr = RfcRowsAddRows(rows, static_cast<LONG>(count), &cells);
  if (hr == E_NOINTERFACE) return hr;
  if (FAILED(hr)) return Traced(hr, "AddRow");
  const size_t width = plan.members.size();
  auto keepRows = [&](unsigned kept) {
    for (LONG position = static_cast<LONG>(count); position > static_cast<LONG>(kept); --position)
      RfcRowsRemove(rows, position);
  };
  VARIANT value;
  VariantInit(&value);
  for (unsigned i = 0; i < count; ++i) {
    RFC_STRUCTURE_HANDLE row = CurrentRow(table, name, i, &hr);
    if (!row) {
      keepRows(i);
      return hr;
    }
    CRfcField* const* cell = cells.data() + static_cast<size_t>(i) * width;
    for (size_t j = 0; j < width; ++j) {
      const RowPlan::Member& member = plan.members[j];
      if (member.kind == RFCTYPEKIND_SCALAR) {
        hr = ReadScalar(row, member.name, member.type, member.length, value);
        if (SUCCEEDED(hr)) hr = RfcFieldAttachValue(cell[j], &value);
        VariantClear(&value);
      } else {
        hr = getRfcField(row, RfcFieldInterface(cell[j]), false, u"");
      }
      if (FAILED(hr)) {
        keepRows(i + 1);
        return Traced(hr, boost::format("getStructFields(%1%[%2%])") % Narrow(name) % i);
      }
    }
    if (i + 1 < count && FAILED(hr = NextRow(table, name, i))) {
      keepRows(i + 1);
      return hr;
    }
  }
  return S_OK;
}

HRESULT CNWRFCDataConverter::GetStoredRows(RFC_TABLE_HANDLE table, IRfcRows* rows, const RowPlan& plan, unsigned count,
                                           const std::u16string& name, RowStore& store, size_t first) {
  const size_t width = plan.members.size();
  if (store.Width() != width) return Traced(E_UNEXPECTED, "AddRow");
  auto keepRows = [&](unsigned kept) {
    for (LONG position = static_cast<LONG>(count); position > static_cast<LONG>(kept); --position)
      RfcRowsRemove(rows, position);
  };
  HRESULT hr = S_OK;
  VARIANT value;
  VariantInit(&value);
  for (unsigned i = 0; i < count; ++i) {
    RFC_STRUCTURE_HANDLE row = CurrentRow(table, name, i, &hr);
    if (!row) {
      keepRows(i);
      return hr;
    }
    for (size_t j = 0; j < width; ++j) {
      const RowPlan::Member& member = plan.members[j];
      hr = ReadScalar(row, member.name, member.type, member.length, value);
      if (SUCCEEDED(hr)) hr = store.Take(first + i, j, &value);
      VariantClear(&value);
      if (FAILED(hr)) {
        keepRows(i + 1);
        return Traced(hr, boost::format("getStructFields(%1%[%2%])") % Narrow(name) % i);
      }
    }
    if (i + 1 < count && FAILED(hr = NextRow(table, name, i))) {
      keepRows(i + 1);
      return hr;
    }
  }
  return S_OK;
}

HRESULT CNWRFCDataConverter::PutTable(IRfcField* field, DATA_CONTAINER_HANDLE container, const std::u16string& name) {
  CComPtr<IRfcRows> rows;
  HRESULT hr = field->get_Rows(&rows);
  if (FAILED(hr)) return Traced(hr, boost::format("get_Rows(%1%)") % Narrow(name));
  LONG count = 0;
  if (FAILED(hr = Required(rows.p)->get_Count(&count)))
    return Traced(hr, boost::format("get_Count(%1%)") % Narrow(name));
  RFC_TABLE_HANDLE table = nullptr;
  if (m_sdk.RfcGetTable(container, name.c_str(), &table, m_errorInfo) != RFC_OK &&
      FAILED(hr = SdkFailure(u"RfcGetTable([" + name + u"])")))
    return hr;
  // What the container held is replaced, not extended.
  if (m_sdk.RfcDeleteAllRows(table, m_errorInfo) != RFC_OK &&
      FAILED(hr = SdkFailure(u"RfcDeleteAllRows([" + name + u"])")))
    return hr;
  // The whole table in one call; the cursor stands on the first new row.
  if (m_sdk.RfcAppendNewRows(table, static_cast<unsigned>(count), m_errorInfo) != RFC_OK &&
      FAILED(hr = SdkFailure(u"RfcAppendNewRows(" + name + u", %2)")))
    return hr;
  RowPlan plan;
  const bool planned = count > 0 && plan.Read(rows);
  StoredRows stored(rows);
  const bool scalars = planned && std::all_of(plan.members.begin(), plan.members.end(),
                                              [](const RowPlan::Member& m) { return m.kind == RFCTYPEKIND_SCALAR; });
  for (LONG i = 1; i <= count; ++i) {
    // A row no client has reached goes from the rows' store as it stands.
    if (scalars && stored.Find(i) && stored.Width() == plan.members.size()) {
      RFC_STRUCTURE_HANDLE row = CurrentRow(table, name, -1, &hr);
      if (!row) return hr;
      for (size_t j = 0; j < plan.members.size(); ++j) {
        const VARIANT& value = stored.Cell(j);
        if (value.vt < VT_I2) continue;
        const RowPlan::Member& member = plan.members[j];
        if (FAILED(hr = WriteScalar(row, member.name, member.type, value)))
          return Traced(hr, boost::format("PutStructFields(%1%[%2%])") % Narrow(name) % i);
      }
      if (i < count && FAILED(hr = NextRow(table, name, i))) return hr;
      continue;
    }
    CComPtr<IRfcFields> fields;
    if (FAILED(hr = rows->get_Item(i, &fields)))
      return Traced(hr, boost::format("get_Item(%1%[%2%])") % Narrow(name) % i);
    RFC_STRUCTURE_HANDLE row = CurrentRow(table, name, -1, &hr);
    if (!row) return hr;
    if (FAILED(hr = PutRow(Required(fields.p), planned ? &plan : nullptr, row)))
      return Traced(hr, boost::format("PutStructFields(%1%[%2%])") % Narrow(name) % i);
    if (i < count && FAILED(hr = NextRow(table, name, i))) return hr;
  }
  return S_OK;
}

// One row: with a plan, its scalars by the plan's names and types, without
// asking each field; without one (or for a row that does not fit it), as
// any structure.
HRESULT CNWRFCDataConverter::PutRow(IRfcFields* row, const RowPlan* plan, DATA_CONTAINER_HANDLE handle) {
  RowFields fields(row);
  const LONG width = fields.Count();
  if (!plan || static_cast<size_t>(width) != plan->members.size()) return putStructFields(row, handle, false, u"");
  HRESULT hr;
  FieldValue value;
  for (LONG j = 1; j <= width; ++j) {
    IRfcField* field = fields.At(j, &hr);
    if (FAILED(hr)) return Traced(hr, boost::format("get_Item(%1%)") % j);
    const RowPlan::Member& member = plan->members[static_cast<size_t>(j - 1)];
    if (member.kind != RFCTYPEKIND_SCALAR) {
      if (FAILED(hr = putRfcField(Required(field), handle, false, u""))) return hr;
      continue;
    }
    if (FAILED(hr = value.Read(Required(field)))) return Traced(hr, "get_value()");
    if (value.Get().vt < VT_I2) continue;
    if (FAILED(hr = WriteScalar(handle, member.name, member.type, value.Get()))) return hr;
  }
  return S_OK;
}

// ----------------------------------------------------------------- scalars

HRESULT CNWRFCDataConverter::getScalarVal(DATA_CONTAINER_HANDLE container, IRfcField* field, bool traceValues,
                                          std::u16string_view parentName) {
  HRESULT hr;
  const std::u16string name = NameOf(field, &hr);
  if (FAILED(hr)) return Traced(hr, "get_name()");
  CComPtr<IRfcType> type;
  ABAPTYPE scalarType = TYPE_CHAR;
  SHORT length = 0;
  if (FAILED(hr = field->get_RfcType(&type)) || FAILED(hr = Required(type.p)->get_ScalarType(&scalarType)) ||
      FAILED(hr = type->get_ScalarLength(&length)))
    return Traced(hr, boost::format("get_RfcType(%1%)") % Narrow(name));
  CComVariant value;
  if (FAILED(hr = ReadScalar(container, name, scalarType, length, value))) return hr;
  if (traceValues) TraceValue(parentName, name, value);
  return RfcFieldAttachValue(field, &value);
}

HRESULT CNWRFCDataConverter::putScalarVal(IRfcField* field, DATA_CONTAINER_HANDLE container, bool traceValues,
                                          std::u16string_view parentName) {
  HRESULT hr;
  const std::u16string name = NameOf(field, &hr);
  if (FAILED(hr)) return Traced(hr, "get_name()");
  FieldValue value;
  if (FAILED(hr = value.Read(field))) return Traced(hr, boost::format("get_value(%1%)") % Narrow(name));
  // Nothing to send: the SDK keeps the field's initial value.
  if (value.Get().vt < VT_I2) return S_OK;
  CComPtr<IRfcType> type;
  ABAPTYPE scalarType = TYPE_CHAR;
  if (FAILED(hr = field->get_RfcType(&type)) || FAILED(hr = Required(type.p)->get_ScalarType(&scalarType)))
    return Traced(hr, boost::format("get_RfcType(%1%)") % Narrow(name));
  if (traceValues) TraceValue(parentName, name, value.Get());
  return WriteScalar(container, name, scalarType, value.Get());
}

HRESULT CNWRFCDataConverter::ReadChars(DATA_CONTAINER_HANDLE container, const std::u16string& name, unsigned count,
                                       size_t keep, VARIANT& value) {
  if (m_chars.size() < count) m_chars.resize(count);
  if (m_sdk.RfcGetChars(container, name.c_str(), m_chars.data(), count, m_errorInfo) != RFC_OK) {
    const HRESULT hr = SdkFailure(name);
    if (FAILED(hr)) return hr;
  }
  const size_t n = keep == kTrimmed ? TrimmedEnd(m_chars.data(), count) : std::min<size_t>(keep, count);
  value.vt = VT_BSTR;
  value.bstrVal = SysAllocStringLen(m_chars.data(), static_cast<UINT>(n));
  if (!value.bstrVal) {
    value.vt = VT_EMPTY;
    return E_OUTOFMEMORY;
  }
  return S_OK;
}

HRESULT CNWRFCDataConverter::ReadBytes(DATA_CONTAINER_HANDLE container, const std::u16string& name, unsigned count,
                                       VARIANT& value) {
  SAFEARRAY* array = SafeArrayCreateVector(VT_UI1, 0, count);
  if (!array) return E_OUTOFMEMORY;
  value.vt = VT_ARRAY | VT_UI1;
  value.parray = array;
  void* data = nullptr;
  HRESULT hr = SafeArrayAccessData(array, &data);
  if (FAILED(hr)) return hr;
  unsigned written = 0;
  const RFC_RC rc =
      m_sdk.RfcGetXString(container, name.c_str(), static_cast<SAP_RAW*>(data), count, &written, m_errorInfo);
  SafeArrayUnaccessData(array);
  // The array keeps its count, whatever the SDK wrote.
  if (rc != RFC_OK && FAILED(hr = SdkFailure(name))) return hr;
  return S_OK;
}

HRESULT CNWRFCDataConverter::ReadScalar(DATA_CONTAINER_HANDLE container, const std::u16string& name, int32_t type,
                                        int32_t length, VARIANT& value) {
  const SAP_UC* field = name.c_str();
  RFC_RC rc = RFC_OK;
  switch (type) {
    case TYPE_CHAR:
    case TYPE_NUM: return ReadChars(container, name, static_cast<unsigned>(length > 0 ? length : 0), kTrimmed, value);
    case TYPE_BCD:
      return ReadChars(container, name, static_cast<unsigned>(length + 1 > 0 ? length + 1 : 0), kTrimmed, value);
    case TYPE_STRING: {
      unsigned n = 0;
      m_sdk.RfcGetStringLength(container, field, &n, m_errorInfo);
      return ReadChars(container, name, n + 1, n, value);
    }
    case TYPE_DATE: {
      RFC_DATE date{};
      if ((rc = m_sdk.RfcGetDate(container, field, date, m_errorInfo)) != RFC_OK) break;
      if (!RfcDateToVariant(&value, date)) return ReportError(m_clsid, Text::InvalidDateTime);
      return S_OK;
    }
    case TYPE_TIME: {
      RFC_TIME time{};
      if ((rc = m_sdk.RfcGetTime(container, field, time, m_errorInfo)) != RFC_OK) break;
      if (FAILED(RfcTimeToVariant(&value, time))) return ReportError(m_clsid, Text::InvalidDateTime);
      return S_OK;
    }
    case TYPE_BYTE: return ReadBytes(container, name, static_cast<unsigned>(length > 0 ? length : 0), value);
    case TYPE_XSTRING: {
      unsigned n = 0;
      m_sdk.RfcGetStringLength(container, field, &n, m_errorInfo);
      return ReadBytes(container, name, n, value);
    }
    case TYPE_FLOAT:
      value.vt = VT_R8;
      value.dblVal = 0;
      rc = m_sdk.RfcGetFloat(container, field, &value.dblVal, m_errorInfo);
      break;
    case TYPE_INT: {
      // The SDK's 32 bits fill the lower half of a zeroed 64-bit value.
      RFC_INT n = 0;
      rc = m_sdk.RfcGetInt(container, field, &n, m_errorInfo);
      value.vt = VT_I8;
      value.llVal = static_cast<LONGLONG>(static_cast<uint32_t>(n));
      break;
    }
    case TYPE_INT2:
      value.vt = VT_I2;
      value.iVal = 0;
      rc = m_sdk.RfcGetInt2(container, field, &value.iVal, m_errorInfo);
      break;
    case TYPE_INT1: {
      RFC_INT1 n = 0;
      rc = m_sdk.RfcGetInt1(container, field, &n, m_errorInfo);
      value.vt = VT_I1;
      value.cVal = static_cast<CHAR>(n);
      break;
    }
    default: return S_OK;
  }
  if (rc != RFC_OK) return SdkFailure(name);
  return S_OK;
}

HRESULT CNWRFCDataConverter::WriteScalar(DATA_CONTAINER_HANDLE container, const std::u16string& name, int32_t type,
                                         const VARIANT& value) {
  const SAP_UC* field = name.c_str();
  // The value in the type the setter takes: itself, or changed into a copy.
  CComVariant changed;
  const VARIANT* v = &value;
  auto as = [&](VARTYPE vt) {
    if (value.vt == vt) return S_OK;
    const HRESULT hr = VariantChangeType(&changed, &value, 0, vt);
    if (FAILED(hr)) return Traced(hr, boost::format("putRfcField(%1%)") % Narrow(name));
    v = &changed;
    return hr;
  };
  HRESULT hr = S_OK;
  RFC_RC rc = RFC_OK;
  switch (type) {
    case TYPE_CHAR:
    case TYPE_NUM:
    case TYPE_STRING: {
      if (FAILED(hr = as(VT_BSTR))) return hr;
      const unsigned n = SysStringLen(v->bstrVal);
      const SAP_UC* text = v->bstrVal ? v->bstrVal : u"";
      rc = type == TYPE_CHAR  ? m_sdk.RfcSetChars(container, field, text, n, m_errorInfo)
           : type == TYPE_NUM ? m_sdk.RfcSetNum(container, field, text, n, m_errorInfo)
                              : m_sdk.RfcSetString(container, field, text, n, m_errorInfo);
      break;
    }
    case TYPE_BCD: {
      if (FAILED(hr = as(VT_BSTR))) return hr;
      const std::u16string_view text(v->bstrVal ? v->bstrVal : u"", SysStringLen(v->bstrVal));
      size_t first = 0;
      while (first < text.size() && IsBlank(text[first])) ++first;
      if (first == text.size()) {
        // Only blanks: zero, whatever the SDK answers.
        m_sdk.RfcSetChars(container, field, u"0", 1, m_errorInfo);
        return S_OK;
      }
      rc = m_sdk.RfcSetChars(container, field, text.data(), static_cast<unsigned>(text.size()), m_errorInfo);
      break;
    }
    case TYPE_DATE: {
      // The conversion changes what it is given: a copy.
      changed = value;
      RFC_DATE date;
      RfcVariantToDate(date, &changed);
      rc = m_sdk.RfcSetDate(container, field, date, m_errorInfo);
      break;
    }
    case TYPE_TIME: {
      changed = value;
      RFC_TIME time;
      RfcVariantToTime(time, &changed);
      rc = m_sdk.RfcSetTime(container, field, time, m_errorInfo);
      break;
    }
    case TYPE_BYTE:
    case TYPE_XSTRING: {
      if (FAILED(hr = as(VT_ARRAY | VT_UI1))) return hr;
      SAFEARRAY* array = v->parray;
      if (!array || SafeArrayGetElemsize(array) != 1) return S_OK;
      LONG lower = 0, upper = -1;
      SafeArrayGetLBound(array, 1, &lower);
      SafeArrayGetUBound(array, 1, &upper);
      void* data = nullptr;
      if (FAILED(hr = SafeArrayAccessData(array, &data))) return hr;
      // The SDK's answer is not looked at.
      m_sdk.RfcSetXString(container, field, static_cast<const SAP_RAW*>(data), static_cast<unsigned>(upper - lower + 1),
                          m_errorInfo);
      SafeArrayUnaccessData(array);
      return S_OK;
    }
    case TYPE_FLOAT:
      if (FAILED(hr = as(VT_R8))) return hr;
      rc = m_sdk.RfcSetFloat(container, field, v->dblVal, m_errorInfo);
      break;
    case TYPE_INT:
      if (FAILED(hr = as(VT_I8))) return hr;
      rc = m_sdk.RfcSetInt(container, field, static_cast<RFC_INT>(static_cast<uint32_t>(v->llVal)), m_errorInfo);
      break;
    case TYPE_INT2:
      if (FAILED(hr = as(VT_I2))) return hr;
      rc = m_sdk.RfcSetInt2(container, field, v->iVal, m_errorInfo);
      break;
    case TYPE_INT1:
      if (FAILED(hr = as(VT_I1))) return hr;
      rc = m_sdk.RfcSetInt1(container, field, static_cast<RFC_INT1>(v->cVal), m_errorInfo);
      break;
    default: return S_OK;
  }
  if (rc != RFC_OK) return SdkFailure(name);
  return S_OK;
}

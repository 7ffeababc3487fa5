#include "abap/metadata_import.h"

#include <string>

#include <boost/format.hpp>

#include "model/model.h"
#include "platform/atlbase.h"
#include "platform/comdef.h"
#include "abap/scalar_conversion.h"
#include "runtime/exceptions.h"
#include "runtime/report_error.h"
#include "runtime/trace.h"
#include "model/typedefs.h"
#include "platform/unicode.h"

namespace {

bool TracesAt(int level) { return TraceIsOpen() && TraceLevel() >= level; }

std::u16string TextOf(const VARIANT& value) {
  if (value.vt == VT_BSTR) return std::u16string(BstrView(value.bstrVal));
  CComVariant text;
  if (FAILED(VariantChangeType(&text, &value, 0, VT_BSTR)) || text.vt != VT_BSTR) return {};
  return std::u16string(BstrView(text.bstrVal));
}

LONG IntOf(const VARIANT& value) {
  CComVariant number;
  if (FAILED(VariantChangeType(&number, &value, 0, VT_I4))) return 0;
  return number.lVal;
}

char16_t FirstLetter(const std::u16string& text) { return text.empty() ? u' ' : text[0]; }

CComPtr<IRfcParameters> Group(IFunctionCall* call, HRESULT (STDMETHODCALLTYPE IFunctionCall::*get)(IRfcParameters**)) {
  CComPtr<IRfcParameters> params;
  ThrowIfFailed((call->*get)(&params));
  if (!params) throw _com_error(E_POINTER);
  return params;
}

CComPtr<IFunctionCall> NewCall(const char16_t* function) {
  CComPtr<IFunctionCall> call;
  ThrowIfFailed(CreateFunctionCall(&call));
  ThrowIfFailed(call->put_Function(CComBSTR(function)));
  return call;
}

CComPtr<IRfcType> NewType() {
  CComPtr<IRfcType> type;
  ThrowIfFailed(CreateRfcType(&type));
  return type;
}

void AddChar(IRfcParameters* params, const char16_t* name, SHORT length, std::u16string_view value) {
  ThrowIfFailed(params->AddScalar(CComBSTR(name), TYPE_CHAR, length, 0, CComVariant(value)));
}

// The row of RFC_GET_UNICODE_STRUCTURE's FIELDS, with the fields read here.
CComPtr<IRfcType> BuildFieldsRowType() {
  struct Member {
    const char16_t* name;
    ABAPTYPE type;
    SHORT length;
  };
  static const Member kMembers[] = {
      {u"TABNAME", TYPE_CHAR, 30}, {u"FIELDNAME", TYPE_CHAR, 30}, {u"POSITION", TYPE_INT, 10},  {u"EXID", TYPE_CHAR, 1},
      {u"DECIMALS", TYPE_INT, 10}, {u"OFFSET_B1", TYPE_INT, 10},  {u"LENGTH_B1", TYPE_INT, 10},
  };
  CComPtr<IRfcType> type = NewType();
  ThrowIfFailed(type->DefineStruct(CComBSTR(u"RFC_FLDS_U")));
  for (const Member& m : kMembers)
    ThrowIfFailed(type->AddScalarStructField(CComBSTR(m.name), m.type, m.length, 0, -1, -1, -1, -1));
  return type;
}

// RFC_GET_NAMETAB's HEADER, reduced to the one field read.
CComPtr<IRfcType> BuildHeaderType() {
  CComPtr<IRfcType> type = NewType();
  ThrowIfFailed(type->DefineStruct(CComBSTR(u"X030L")));
  ThrowIfFailed(type->AddScalarStructField(CComBSTR(u"REFNAME"), TYPE_CHAR, 30, 0, 0, -1, -1, -1));
  return type;
}

}  // namespace

HRESULT MetadataImport::TypeSteps(BSTR name, IRfcType* type) const {
  CComPtr<IRfcType> rowType = BuildFieldsRowType();
  CComPtr<IFunctionCall> call = NewCall(u"RFC_GET_UNICODE_STRUCTURE");
  CComPtr<IRfcParameters> importing = Group(call, &IFunctionCall::get_Importing);
  AddChar(importing, u"TABNAME", 30, BstrView(name));
  AddChar(importing, u"ALLOW_HALF_DEEP", 1, u"X");
  AddChar(importing, u"SKIP_UTF16_INFO", 1, u"X");
  AddChar(importing, u"SKIP_UCS_4_INFO", 1, u"X");
  CComPtr<IRfcParameters> exporting = Group(call, &IFunctionCall::get_Exporting);
  ThrowIfFailed(exporting->AddScalar(CComBSTR(u"B1_TABLENGTH"), TYPE_INT, 10, 0, CComVariant(LONG(0))));
  CComPtr<IRfcParameters> tables = Group(call, &IFunctionCall::get_Tables);
  ThrowIfFailed(tables->AddTable(CComBSTR(u"FIELDS"), rowType));

  HRESULT hr = Run(call);
  if (FAILED(hr)) return hr;

  LONG length = IntOf(_getScalarVal(_getParam(exporting, u"B1_TABLENGTH")));
  ThrowIfFailed(type->DefineStruct(name));
  ThrowIfFailed(type->put_structLengthC1(length));
  ThrowIfFailed(type->put_StructLength(length * 2));

  CComPtr<IRfcRows> rows = _getRows(_getParam(tables, u"FIELDS"));
  LONG count = 0;
  ThrowIfFailed(rows->get_Count(&count));
  for (LONG i = 1; i <= count; ++i) {
    CComPtr<IRfcFields> row = _getRow(rows, i);
    std::u16string field = TextOf(_getStructVal(row, u"FIELDNAME"));
    char16_t exid = FirstLetter(TextOf(_getStructVal(row, u"EXID")));
    LONG decimals = IntOf(_getStructVal(row, u"DECIMALS"));
    LONG fieldLength = IntOf(_getStructVal(row, u"LENGTH_B1"));
    LONG offset = IntOf(_getStructVal(row, u"OFFSET_B1"));
    int32_t abapType = RfcTypeFromLetter(exid);
    if (abapType < 0) {
      if (TracesAt(TRACE_WARNING))
        Trace(u"warning: unknown EXID '%c' found in struct field %s-%s", exid, std::u16string(BstrView(name)), field);
      continue;
    }
    SHORT scalarDecimals = (exid == u'N' || exid == u'P') ? static_cast<SHORT>(decimals) : SHORT(0);
    ThrowIfFailed(type->AddScalarStructField(CComBSTR(field), static_cast<ABAPTYPE>(abapType),
                                             static_cast<SHORT>(fieldLength), scalarDecimals, offset, -1, -1, -1));
    if (TracesAt(TRACE_INFORMATION))
      TraceRaw(u"\tfield %s (t=%c l=%i d=%i)\n", field, exid, static_cast<int>(scalarDecimals),
               static_cast<int>(static_cast<SHORT>(fieldLength)));
  }
  return S_OK;
}

namespace {

struct ParamRow {
  char16_t paramClass;
  std::u16string parameter;
  std::u16string tabname;
  std::u16string defaultValue;
  std::u16string text;
  bool optional;
  LONG intLength;
  LONG decimals;
  char16_t exid;
};

ParamRow ReadParamRow(const CComPtr<IRfcFields>& row) {
  ParamRow p;
  p.paramClass = FirstLetter(TextOf(_getStructVal(row, u"PARAMCLASS")));
  p.parameter = TextOf(_getStructVal(row, u"PARAMETER"));
  p.tabname = TextOf(_getStructVal(row, u"TABNAME"));
  p.defaultValue = TextOf(_getStructVal(row, u"DEFAULT"));
  p.text = TextOf(_getStructVal(row, u"PARAMTEXT"));
  p.optional = FirstLetter(TextOf(_getStructVal(row, u"OPTIONAL"))) == u'X';
  p.intLength = IntOf(_getStructVal(row, u"INTLENGTH"));
  p.decimals = IntOf(_getStructVal(row, u"DECIMALS"));
  p.exid = FirstLetter(TextOf(_getStructVal(row, u"EXID")));
  return p;
}

}  // namespace

HRESULT MetadataImport::CallSteps(BSTR name, IFunctionCall* target) const {
  if (TracesAt(TRACE_INFORMATION))
    TraceLog(TRACE_INFORMATION, boost::format("importing %1%") % WideToUtf8Lossy(BstrView(name)), nullptr, __FILE__,
             __LINE__);
  CComPtr<IFunctionCall> call = NewCall(u"RFC_GET_FUNCTION_INTERFACE");
  CComPtr<IRfcParameters> importing = Group(call, &IFunctionCall::get_Importing);
  AddChar(importing, u"FUNCNAME", 30, BstrView(name));

  if (TracesAt(TRACE_INFORMATION)) Trace(u"Importing RFC_FUNINT");
  CComPtr<IRfcType> funint;
  HRESULT hr = Structure(CComBSTR(u"RFC_FUNINT"), &funint);
  if (FAILED(hr)) return hr;
  if (!funint) return E_POINTER;
  CComPtr<IRfcParameters> tables = Group(call, &IFunctionCall::get_Tables);
  ThrowIfFailed(tables->AddTable(CComBSTR(u"PARAMS"), funint));

  if (TracesAt(TRACE_INFORMATION)) Trace(u"Calling RFC_GET_FUNCTION_INTERFACE");
  hr = Run(call);
  if (FAILED(hr)) return hr;

  if (TracesAt(TRACE_INFORMATION)) Trace(u"Processing PARAMS");
  CComPtr<IRfcRows> rows = _getRows(_getParam(tables, u"PARAMS"));
  LONG count = 0;
  ThrowIfFailed(rows->get_Count(&count));
  for (LONG i = 1; i <= count; ++i) {
    ParamRow p = ReadParamRow(_getRow(rows, i));
    if (TracesAt(TRACE_INFORMATION))
      Trace(u"Adding Parameter: %s (%c:%s:%i:%i:%i:%s:%s)", p.parameter, p.paramClass, p.tabname,
            static_cast<int>(p.intLength), static_cast<int>(p.decimals), static_cast<int>(p.optional ? 1 : 0),
            std::u16string(1, p.exid), p.defaultValue);

    CComPtr<IRfcParameters> set;
    switch (p.paramClass) {
      case u'C': set = Group(target, &IFunctionCall::get_Changing); break;
      case u'E': set = Group(target, &IFunctionCall::get_Exporting); break;
      case u'I': set = Group(target, &IFunctionCall::get_Importing); break;
      case u'T': set = Group(target, &IFunctionCall::get_Tables); break;
      default: continue;  // exceptions and anything unknown
    }

    CComPtr<IRfcType> type = NewType();
    CComBSTR tabname(p.tabname);
    switch (RfcKindFromLetter(p.exid)) {
      case RFCTYPEKIND_SCALAR: {
        RfcFieldInfo info;
        if (!RfcTypeFromFieldInfo(p.exid, p.intLength, p.decimals, info)) {
          if (TracesAt(TRACE_WARNING))
            TraceLog(TRACE_WARNING,
                     boost::format("%1%: unknown type letter '%2%' (not supported)") % WideToUtf8Lossy(p.parameter) %
                         WideToUtf8Lossy(std::u16string(1, p.exid)),
                     nullptr, __FILE__, __LINE__);
          continue;
        }
        ThrowIfFailed(type->DefineScalar(tabname, static_cast<ABAPTYPE>(info.type), static_cast<SHORT>(info.length),
                                         static_cast<SHORT>(info.decimals), -1));
        break;
      }
      case RFCTYPEKIND_STRUCT: {
        CComPtr<IRfcType> structure;
        hr = Structure(tabname, &structure);
        if (FAILED(hr)) return hr;
        if (!structure) return E_POINTER;
        if (p.paramClass == u'T') {
          ThrowIfFailed(type->DefineTable(CComBSTR(u""), structure));
        } else {
          type = structure;
        }
        break;
      }
      case RFCTYPEKIND_TABLE:
        hr = TableType(tabname, type);
        if (FAILED(hr)) return hr;
        break;
      default:
        if (TracesAt(TRACE_WARNING))
          TraceLog(TRACE_WARNING,
                   boost::format("%1%: %2% is complex (not supported)") % WideToUtf8Lossy(p.parameter) %
                       WideToUtf8Lossy(p.tabname),
                   nullptr, __FILE__, __LINE__);
        continue;
    }

    CComBSTR parameterName(p.parameter);
    ThrowIfFailed(set->AddParameter(parameterName, type));
    CComPtr<IRfcParameter> added = _getParam(set, p.parameter);
    ThrowIfFailed(added->put_Optional(p.optional ? VARIANT_TRUE : VARIANT_FALSE));
    ThrowIfFailed(added->put_Description(CComBSTR(p.text)));
    ThrowIfFailed(added->put_DefaultValue(CComBSTR(p.defaultValue)));
  }
  return S_OK;
}

bool MetadataImport::Connected() const {
  VARIANT_BOOL connected = VARIANT_FALSE;
  return SUCCEEDED(m_session->get_IsConnected(&connected)) && connected;
}

HRESULT MetadataImport::NotConnected() const { return ReportError(m_clsid, Text::NotConnected); }

HRESULT MetadataImport::Call(BSTR name, VARIANT_BOOL /*ignoreUnsupportedParams*/, IFunctionCall* call) const {
  if (!Connected()) return NotConnected();
  if (!call) return E_POINTER;
  return CallSteps(name, call);
}

HRESULT MetadataImport::Type(BSTR name, IRfcType* type) const {
  if (!Connected()) return NotConnected();
  if (!type) return E_POINTER;
  try {
    return TypeSteps(name, type);
  } catch (const _com_error& e) {
    TraceLog(TRACE_ERROR,
             boost::format("COM Error: %1% (%2%) in %3%::ImportTypeFromBackend") % WideToUtf8Lossy(e.ErrorMessage()) %
                 static_cast<uint32_t>(e.Error()) % m_traceName,
             nullptr, __FILE__, __LINE__);
  } catch (const std::exception& e) {
    TraceLog(TRACE_ERROR, boost::format("Exception %1% in %2%::ImportTypeFromBackend") % e.what() % m_traceName,
             nullptr, __FILE__, __LINE__);
  }
  return ReportError(m_clsid, Text::TypeImportNotPossible);
}

HRESULT MetadataImport::TableType(BSTR name, IRfcType* type) const {
  if (!Connected()) return NotConnected();
  if (!type) return E_POINTER;
  CComPtr<IFunctionCall> call = NewCall(u"RFC_GET_NAMETAB");
  AddChar(Group(call, &IFunctionCall::get_Importing), u"TABNAME", 30, BstrView(name));
  CComPtr<IRfcParameters> exporting = Group(call, &IFunctionCall::get_Exporting);
  ThrowIfFailed(exporting->AddParameter(CComBSTR(u"HEADER"), BuildHeaderType()));

  HRESULT hr = Run(call);
  if (FAILED(hr)) return hr;

  std::u16string refName = TextOf(_getStructVal(_getParam(exporting, u"HEADER"), u"REFNAME"));
  if (refName.empty()) return ReportError(m_clsid, Text::TypeImportNotPossible);
  CComPtr<IRfcType> rowType;
  hr = Structure(CComBSTR(refName), &rowType);
  if (FAILED(hr)) return hr;
  if (!rowType) return E_POINTER;
  ThrowIfFailed(type->DefineTable(name, rowType));
  return S_OK;
}

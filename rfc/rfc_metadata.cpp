// The classic session's metadata import: a function's interface from
// RfcGetFunctionInfoAsTableU, a structure from RfcGetStructureInfoFlatU.
#include <cstring>

#include "abap/scalar_conversion.h"
#include "model/model.h"
#include "platform/comdef.h"
#include "rfc/rfc_session.h"
#include "rfc/sdk_text.h"
#include "runtime/report_error.h"
#include "runtime/trace.h"

using namespace veltrane::rfc;
using namespace veltrane::sdk::rfc;

namespace {

HRESULT Report(Text text) { return ReportError(CLSID_RfcSession, text); }

constexpr unsigned kLineSize = 420;
static_assert(sizeof(RFC_U_FUNINT) == kLineSize, "the line of RfcGetFunctionInfoAsTableU");

bool IsOptionalFlag(char16_t flag) { return flag == u'X' || flag == u'x' || flag == u'1' || flag == 1; }

// The internal table of the interface read, deleted with the object.
class FunctionInfoTable {
 public:
  explicit FunctionInfoTable(const EntryPoints& sdk)
      : m_sdk(sdk), m_table(sdk.ItCreateU(const_cast<char16_t*>(u"funcinfo"), kLineSize, 1, 0)) {}
  ~FunctionInfoTable() {
    if (m_table) m_sdk.ItDeleteU(m_table);
  }
  ITAB_H* Address() { return &m_table; }
  ITAB_H Get() const { return m_table; }

 private:
  const EntryPoints& m_sdk;
  ITAB_H m_table;
};

}  // namespace

HRESULT CRfcSession::ImportCallFromBackend(BSTR name, VARIANT_BOOL ignoreUnsupportedParams, IFunctionCall* call) {
  if (m_handle == 0) return Report(Text::NotConnected);
  FunctionInfoTable table(Sdk());
  if (!table.Get()) return Report(Text::MemoryAllocation);
  std::u16string function(BstrView(name));
  Trace(u"Calling RfcGetFunctionInfoAsTable...");
  rfc_char_t* exception = nullptr;
  const RFC_RC rc = Sdk().RfcGetFunctionInfoAsTableU(m_handle, function.data(), table.Address(), &exception);
  if (rc != RFC_OK) {
    const std::u16string text = SdkText(exception, 512);
    TraceRaw(u"\nEXCEPTION %u (%s)\n", static_cast<unsigned>(rc), text);
    if (text == u"FU_NOT_FOUND") return Report(Text::FunctionNotFound);
    RfcErrorRecord record(RFCERROR_PROGRAM, u"RFCERROR_PROGRAM", text);
    SetError(record);
    ErrorInfoObject()->put_ModuleName(CComBSTR(function));
    return S_OK;
  }
  TraceRaw(u"RFC_OK\n");
  Trace(u"filling function information...");
  const unsigned lines = Sdk().ItFillU(table.Get());
  TraceRaw(u"ok (rows=%i)\n", static_cast<int>(lines));

  CComPtr<IRfcParameters> importing, exporting, changing, tables;
  ThrowIfFailed(call->get_Importing(&importing));
  ThrowIfFailed(call->get_Exporting(&exporting));
  ThrowIfFailed(call->get_Changing(&changing));
  ThrowIfFailed(call->get_Tables(&tables));
  HRESULT hr = S_OK;
  for (unsigned i = 1; i <= lines; ++i) {
    RFC_U_FUNINT line{};
    if (Sdk().ItCpyLineU(table.Get(), i, &line) != 0) {
      Trace(u"Error in ltCopyRow!\n");
      std::memset(&line, 0, sizeof line);
    }
    const char16_t parameterClass = line.Paramclass[0];
    Trace(u"PARAM: ");
    TraceRaw(u"type=%c ", parameterClass);
    IRfcParameters* target = nullptr;
    switch (parameterClass) {
      case u'C': target = changing; break;
      case u'E': target = exporting; break;
      case u'I': target = importing; break;
      case u'T': target = tables; break;
      default: continue;
    }
    const std::u16string parameterName = SdkField(line.Parameter, 30);
    const std::u16string typeName = SdkField(line.Tabname, 30);
    const std::u16string description = SdkField(line.Paramtext, 79);
    TraceRaw(u"pname=%s ", parameterName);
    TraceRaw(u"tabname=%s ", typeName);
    TraceRaw(u"description=%s ", description);
    const bool optional = IsOptionalFlag(line.Optional[0]);
    TraceRaw(u"optional=%s ", optional ? u"true" : u"false");
    const std::u16string defaultValue = SdkField(line.Default, 21);
    TraceRaw(u"default=%s ", defaultValue);
    TraceRaw(u"typekind=");
    CComPtr<IRfcType> type;
    ThrowIfFailed(CreateRfcType(&type));
    const char16_t letter = line.Exid[0];
    bool unsupported = false;
    switch (RfcKindFromLetter(letter)) {
      case RFCTYPEKIND_SCALAR: {
        TraceRaw(u"scalar\n");
        RfcFieldInfo info;
        RfcTypeFromFieldInfo(letter, line.Length_b1, line.Decimals, info);
        type->DefineScalar(CComBSTR(typeName), static_cast<ABAPTYPE>(info.type), static_cast<SHORT>(info.length),
                           static_cast<SHORT>(info.decimals), -1);
        break;
      }
      case RFCTYPEKIND_STRUCT: {
        TraceRaw(u"struct\n");
        CComPtr<IRfcType> structure;
        if (FAILED(hr = Self()->ImportType(CComBSTR(typeName), &structure))) return hr;
        if (parameterClass == u'T') {
          type->DefineTable(CComBSTR(u""), structure);
        } else {
          type = structure;
        }
        break;
      }
      case RFCTYPEKIND_TABLE:
        TraceRaw(u"table\n");
        if (parameterClass == u'T') {
          type.Release();
          if (FAILED(hr = Self()->ImportType(CComBSTR(typeName), &type))) return hr;
        } else {
          unsupported = true;
        }
        break;
      default: unsupported = true; break;
    }
    if (unsupported) {
      if (!ignoreUnsupportedParams) {
        Trace(u"unsupported complex parameter %s (but not configured to ignore)\n", parameterName);
        return Report(Text::ComplexTypeNotSupported);
      }
      Trace(u"ignoring unsupported complex parameter: %s\n", parameterName);
      continue;
    }
    const CComBSTR key(parameterName);
    hr = target->AddParameter(key, type);
    Trace(u"AddParameter: hr=0x%x\n", static_cast<unsigned>(hr));
    if (FAILED(hr)) return hr;
    CComPtr<IRfcParameter> parameter;
    if (FAILED(hr = target->get_Item(CComVariant(key), &parameter))) return hr;
    if (!parameter) return E_POINTER;
    if (FAILED(hr = parameter->put_Optional(optional ? VARIANT_TRUE : VARIANT_FALSE))) return hr;
    if (FAILED(hr = parameter->put_Description(CComBSTR(description)))) return hr;
    if (FAILED(hr = parameter->put_DefaultValue(CComBSTR(defaultValue)))) return hr;
  }
  Trace(u"ImportCallFromBackend: hr=0x%x\n", static_cast<unsigned>(hr));
  return hr;
}

HRESULT CRfcSession::ImportTypeFromBackend(BSTR name, IRfcType* type) {
  if (m_handle == 0) return Report(Text::NotConnected);
  std::u16string typeName(BstrView(name));
  Trace(u"ImportType('%s')...", typeName);
  unsigned headCount = 0, fieldCount = 0, b1 = 0, b2 = 0, b4 = 0;
  RFC_TYPE_HEAD* heads = nullptr;
  RFC_UNICODE_TYPE_ELEMENT* fields = nullptr;
  RFCTYPE kind = RFCTYPE_STRUCTURE;
  RFC_STRUCT_TYPE_ID typeId{};
  RFC_TYPEHANDLE handle = 0;
  rfc_char_t* exception = nullptr;
  const RFC_RC rc = Sdk().RfcGetStructureInfoFlatU(m_handle, typeName.data(), 0, &headCount, &heads, &fieldCount,
                                                   &fields, &kind, &b1, &b2, &b4, typeId, &handle, &exception);
  auto release = [&] { Sdk().RfcReleaseStructInfoU(heads, fields); };
  if (rc == RFC_CALL_NOT_SUPPORTED) {
    TraceRaw(u"RFC_CALL_NOT_SUPPORTED\n");
    release();
    return Report(Text::ComplexTypeNotSupported);
  }
  if (rc == RFC_FAILURE || rc == RFC_EXCEPTION || rc == RFC_INVALID_PARAMETER) {
    const std::u16string text = SdkText(exception, 512);
    TraceRaw(u"rc=%i\n", static_cast<int>(rc));
    Trace(u"Session->ImportType('%s') caused exception %i (%s)\n", typeName, static_cast<int>(rc), text);
    release();
    return Report(text == u"TABLE_NOT_ACTIVE" ? Text::TypeDoesNotExist : Text::Unexpected);
  }
  if (rc == RFC_OK)
    TraceRaw(u"RFC_OK\n");
  else
    fieldCount = 0;  // as if no fields had come
  if (fieldCount == 0 || !fields) {
    Trace(u"import failed (CntFields==0)\n");
    release();
    return Report(Text::TypeImportNotPossible);
  }
  CComPtr<IRfcType> row = type;
  if (kind == RFCTYPE_ITAB) {
    row.Release();
    ThrowIfFailed(CreateRfcType(&row));
  }
  HRESULT hr = row->DefineStruct(name);
  if (SUCCEEDED(hr)) hr = row->put_structLengthC1(static_cast<LONG>(b1));
  if (SUCCEEDED(hr)) hr = row->put_StructLength(static_cast<LONG>(b2));
  if (FAILED(hr)) {
    release();
    return hr;
  }
  Trace(u"importing struct: |");
  for (unsigned i = 0; i < fieldCount; ++i) {
    const RFC_UNICODE_TYPE_ELEMENT& element = fields[i];
    const int32_t code = RfcScalarType(static_cast<int32_t>(element.type));
    uint32_t length = element.c2_length;
    if (code == TYPE_BCD) length = element.c2_length * 4 - 2;
    const std::u16string fieldName = SdkText(element.name, 256);
    TraceRaw(u"%s(t=%u l=%u d=%u ofs=%u)|", fieldName, static_cast<unsigned>(code), length, element.decimals,
             element.c2_offset);
    if (code == TYPE_CHAR || code == TYPE_DATE || code == TYPE_BCD || code == TYPE_TIME || code == TYPE_NUM)
      length /= 2;
    hr = row->AddScalarStructField(CComBSTR(fieldName), static_cast<ABAPTYPE>(code), static_cast<SHORT>(length),
                                   static_cast<SHORT>(element.decimals), static_cast<LONG>(element.c2_offset),
                                   static_cast<LONG>(element.c1_offset), static_cast<LONG>(element.c2_length),
                                   static_cast<LONG>(element.c1_length));
    if (FAILED(hr)) {
      release();
      return hr;
    }
  }
  if (kind == RFCTYPE_ITAB) hr = type->DefineTable(name, row);
  TraceRaw(u"\n");
  release();
  return FAILED(hr) ? hr : S_OK;
}

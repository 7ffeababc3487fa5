#include "model/model.h"

#include <vector>

#include "model/function_call.h"
#include "model/function_calls.h"
#include "model/rfc_field.h"
#include "model/rfc_parameter.h"
#include "model/rfc_parameters.h"
#include "model/rfc_fields.h"
#include "model/rfc_rows.h"
#include "model/rfc_type.h"
#include "model/type_access.h"
#include "model/type_cache.h"
#include "runtime/trace.h"

HRESULT CreateRfcType(IRfcType** type) { return CRfcType::CreateInstance(type); }
HRESULT CreateFunctionCall(IFunctionCall** call) { return CFunctionCall::CreateInstance(call); }
HRESULT CreateFunctionCalls(IFunctionCalls** calls) { return CFunctionCalls::CreateInstance(calls); }
HRESULT CreateTypeCache(ITypeCache** cache) { return CTypeCache::CreateInstance(cache); }

namespace {

using SetGetter = HRESULT (STDMETHODCALLTYPE IFunctionCall::*)(IRfcParameters**);
constexpr SetGetter kSets[CFunctionCall::kSetCount] = {&IFunctionCall::get_Importing, &IFunctionCall::get_Exporting,
                                                       &IFunctionCall::get_Changing, &IFunctionCall::get_Tables};

// Appends to `to` one parameter like `from`: same name and shared type, the
// interface attributes, no value.
HRESULT CopyParameter(IRfcParameter* from, CRfcParameters& to) {
  CComBSTR name, description, defaultValue;
  CComPtr<IRfcType> type;
  VARIANT_BOOL optional = VARIANT_FALSE;
  HRESULT hr;
  if (FAILED(hr = from->get_name(&name)) || FAILED(hr = from->get_RfcType(&type)) ||
      FAILED(hr = from->get_Description(&description)) || FAILED(hr = from->get_DefaultValue(&defaultValue)) ||
      FAILED(hr = from->get_Optional(&optional)))
    return hr;
  hr = to.AddParameter(name, type);
  if (FAILED(hr)) return hr;
  // The parameter just added; by position, so that a numeric name cannot
  // be taken for one.
  CRfcParameter* added = to.LastParameter();
  if (!added) return E_UNEXPECTED;
  added->put_Description(description);
  added->put_DefaultValue(defaultValue);
  added->put_Optional(optional);
  return S_OK;
}

HRESULT CopySet(IRfcParameters* from, CRfcParameters& to) {
  if (!from) return E_POINTER;
  if (CRfcParameters* direct = ModelImpl<CRfcParameters>(from)) {
    const LONG count = direct->CollCount();
    to.CollReserve(static_cast<size_t>(count));
    for (LONG i = 0; i < count; ++i) {
      HRESULT hr = CopyParameter(direct->CollAt(static_cast<size_t>(i)), to);
      if (FAILED(hr)) return hr;
    }
    return S_OK;
  }
  LONG count = 0;
  HRESULT hr = from->get_Count(&count);
  if (FAILED(hr)) return hr;
  for (LONG i = 1; i <= count; ++i) {
    CComPtr<IRfcParameter> parameter;
    hr = from->get_Item(CComVariant(i), &parameter);
    if (FAILED(hr)) return hr;
    if (!parameter) return E_POINTER;
    hr = CopyParameter(parameter, to);
    if (FAILED(hr)) return hr;
  }
  return S_OK;
}

CRfcRows* RowsOf(IRfcRows* rows) { return ModelImpl<CRfcRows>(rows); }

}  // namespace

HRESULT DeepCopyCall(IFunctionCall* src, IFunctionCall** copy) {
  if (!src || !copy) return E_POINTER;
  *copy = nullptr;
  CComPtr<CFunctionCall> call;
  HRESULT hr = CFunctionCall::CreateInstance(&call.p);
  if (FAILED(hr)) return hr;
  CComBSTR text;
  if (FAILED(hr = src->get_Function(&text))) return hr;
  call->put_Function(text);
  text.Empty();
  if (FAILED(hr = src->get_Documentation(&text))) return hr;
  call->put_Documentation(text);
  for (int i = 0; i < CFunctionCall::kSetCount; ++i) {
    CComPtr<IRfcParameters> from;
    if (FAILED(hr = (src->*kSets[i])(&from))) return hr;
    if (FAILED(hr = CopySet(from, call->Set(i)))) return hr;
  }
  *copy = call.Detach();
  return S_OK;
}

HRESULT PruneOptionalParameters(IFunctionCall* call) {
  if (!call) return E_POINTER;
  CComPtr<IRfcParameters> importing;
  HRESULT hr = call->get_Importing(&importing);
  if (FAILED(hr)) return hr;
  if (!importing) return E_POINTER;
  LONG count = 0;
  if (FAILED(hr = importing->get_Count(&count))) return hr;
  std::vector<CComBSTR> dropped;
  for (LONG i = 1; i <= count; ++i) {
    CComPtr<IRfcParameter> parameter;
    if (FAILED(hr = importing->get_Item(CComVariant(i), &parameter))) return hr;
    CComPtr<IRfcType> type;
    if (FAILED(hr = parameter->get_RfcType(&type))) return hr;
    if (!type) continue;
    RFCTYPEKIND kind = RFCTYPEKIND_UNDEFINED;
    if (FAILED(hr = TypeKind(type, &kind))) return hr;
    if (kind != RFCTYPEKIND_SCALAR) continue;
    CComVariant value;
    if (FAILED(hr = parameter->get_value(&value))) return hr;
    if (value.vt != VT_EMPTY) continue;
    VARIANT_BOOL optional = VARIANT_FALSE;
    CComBSTR defaultValue;
    if (FAILED(hr = parameter->get_Optional(&optional)) || FAILED(hr = parameter->get_DefaultValue(&defaultValue)))
      return hr;
    if (!optional && defaultValue.Length() == 0) continue;
    CComBSTR name;
    if (FAILED(hr = parameter->get_name(&name))) return hr;
    Trace(u"ignoring optional parameter: %s\n", name.View());
    dropped.push_back(std::move(name));
  }
  for (const CComBSTR& name : dropped)
    if (FAILED(hr = importing->RemoveParameter(name))) return hr;
  return S_OK;
}

HRESULT RfcRowsAdd(IRfcRows* rows, IRfcFields* row) {
  CRfcRows* impl = RowsOf(rows);
  return impl ? impl->Add(row) : E_NOINTERFACE;
}

HRESULT RfcRowsRemove(IRfcRows* rows, LONG position) {
  CRfcRows* impl = RowsOf(rows);
  return impl ? impl->Remove(position) : E_NOINTERFACE;
}

HRESULT RfcRowsSetFileModeRaw(IRfcRows* rows, VARIANT_BOOL fileMode, SHORT dataCol, SHORT indexCol) {
  CRfcRows* impl = RowsOf(rows);
  if (!impl) return E_NOINTERFACE;
  impl->SetFileModeRaw(fileMode);
  impl->SetDataColRaw(dataCol);
  impl->SetIndexColRaw(indexCol);
  return S_OK;
}

HRESULT RfcRowsAddRows(IRfcRows* rows, LONG count, std::vector<CRfcField*>* cells) {
  if (!cells) return E_POINTER;
  if (count < 1) return E_INVALIDARG;
  CRfcRows* impl = RowsOf(rows);
  if (!impl) return E_NOINTERFACE;
  bool planned = false;
  HRESULT hr = impl->AppendPlannedRows(count, cells, &planned);
  if (FAILED(hr)) return hr;
  return planned ? S_OK : E_NOINTERFACE;
}

HRESULT RfcRowsAppendStored(IRfcRows* rows, LONG count, RowStore** store, size_t* first) {
  if (!store || !first) return E_POINTER;
  if (count < 1) return E_INVALIDARG;
  CRfcRows* impl = RowsOf(rows);
  if (!impl) return E_NOINTERFACE;
  bool stored = false;
  HRESULT hr = impl->AppendStoredRows(count, store, first, &stored);
  if (FAILED(hr)) return hr;
  return stored ? S_OK : E_NOINTERFACE;
}

const RowStore* RfcRowsStoredRow(IRfcRows* rows, size_t row, size_t* storeRow) {
  CRfcRows* impl = RowsOf(rows);
  if (!impl || row >= static_cast<size_t>(impl->CollCount())) return nullptr;
  return impl->StoredRow(row, storeRow);
}

bool RfcRowsTextAt(IRfcRows* rows, size_t row, size_t column, std::u16string_view* text) {
  CRfcRows* impl = RowsOf(rows);
  if (!impl || row >= static_cast<size_t>(impl->CollCount())) return false;
  size_t storeRow = 0;
  if (const RowStore* store = impl->StoredRow(row, &storeRow))
    return column < store->Width() && store->TextAt(storeRow, column, text);
  CRfcFields* fields = ModelImpl<CRfcFields>(impl->CollAt(row));
  if (!fields || column >= static_cast<size_t>(fields->CollCount())) return false;
  CRfcField* field = ModelImpl<CRfcField>(fields->CollAt(column));
  if (!field || field->Value().vt != VT_BSTR) return false;
  *text = BstrView(field->Value().bstrVal);
  return true;
}

IRfcField* RfcFieldInterface(CRfcField* field) { return field; }

HRESULT RfcFieldAttachValue(IRfcField* field, VARIANT* value) {
  if (!field || !value) return E_POINTER;
  if (CRfcField* impl = ModelImpl<CRfcField>(field)) return impl->AttachValue(value);
  HRESULT hr = field->put_value(*value);
  if (FAILED(hr)) return hr;
  return VariantClear(value);
}

HRESULT RfcFieldAttachValue(CRfcField* field, VARIANT* value) {
  if (!field || !value) return E_POINTER;
  return field->AttachValue(value);
}

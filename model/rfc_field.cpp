#include "model/rfc_field.h"
#include "platform/property.h"

#include <algorithm>
#include <new>

#include "model/collection.h"
#include "model/model_errors.h"
#include "model/rfc_fields.h"
#include "model/rfc_rows.h"
#include "model/rfc_type.h"
#include "model/rfc_types.h"
#include "model/type_access.h"

CRfcField::CRfcField() {
  m_value.vt = VT_BSTR;
  m_value.bstrVal = SysAllocStringLen(u"", 0);
}

CRfcField::CRfcField(NoValue) {}

CRfcField::~CRfcField() = default;

HRESULT CRfcField::CreateForShaping(CRfcField** out) {
  auto* field = new (std::nothrow) CRfcField(NoValue{});
  if (!field) return E_OUTOFMEMORY;
  field->AddRef();
  *out = field;
  return S_OK;
}

HRESULT CRfcField::get_name(BSTR* pVal) {
  if (!pVal) return E_POINTER;
  *pVal = SysAllocStringLen(m_name.data(), static_cast<UINT>(m_name.size()));
  return *pVal ? S_OK : E_OUTOFMEMORY;
}

HRESULT CRfcField::put_name(BSTR newVal) {
  m_name.assign(BstrView(newVal));
  return S_OK;
}

HRESULT CRfcField::get_RfcType(IRfcType** pVal) { return GetProperty(m_type, pVal); }

HRESULT CRfcField::put_RfcType(IRfcType* newVal) {
  ShapePath path;
  return Shape(newVal, path);
}

HRESULT CRfcField::Shape(IRfcType* type, ShapePath& path) {
  if (!type) return E_POINTER;
  RFCTYPEKIND kind = RFCTYPEKIND_UNDEFINED;
  HRESULT hr = TypeKind(type, &kind);
  if (FAILED(hr)) return hr;
  switch (kind) {
    case RFCTYPEKIND_SCALAR:
      m_type = type;
      m_value.Clear();
      m_shape = FIELDSHAPE_SCALAR;
      return S_OK;
    case RFCTYPEKIND_STRUCT: {
      CComPtr<CRfcFields> fields;
      hr = BuildStructFields(type, path, fields);
      if (FAILED(hr)) return hr;
      m_fields = std::move(fields);
      m_type = type;
      m_shape = FIELDSHAPE_STRUCT;
      return S_OK;
    }
    case RFCTYPEKIND_TABLE: {
      m_type = type;
      m_shape = FIELDSHAPE_TABLE;
      CComPtr<CRfcRows> rows;
      hr = CRfcRows::CreateInstance(&rows.p);
      if (FAILED(hr)) return hr;
      hr = rows->put_RfcType(type);
      m_rows = std::move(rows);
      return hr;
    }
    case RFCTYPEKIND_UNDEFINED: return ModelError(CLSID_RfcField, Text::NotInitialized);
    default: return E_UNEXPECTED;
  }
}

HRESULT CRfcField::BuildStructFields(IRfcType* type, ShapePath& path, CComPtr<CRfcFields>& out,
                                     RowIndexCache* rowCache) {
  TypeMembers members;
  HRESULT hr = members.Open(type);
  if (FAILED(hr)) return hr;
  const LONG count = members.Count();
  if (count == 0) return ModelError(CLSID_RfcField, Text::NotInitialized);
  if (path.size() >= static_cast<size_t>(kMaxTypeDepth) || std::find(path.begin(), path.end(), type) != path.end())
    return ModelErrorText(CLSID_RfcField, u"The structure contains itself or is nested too deeply", E_INVALIDARG);

  CComPtr<CRfcFields> fields;
  hr = CRfcFields::CreateInstance(&fields.p);
  if (FAILED(hr)) return hr;
  fields->CollReserve(static_cast<size_t>(count));

  // With a row cache the map is built once per distinct key list.
  bool sameKeys = rowCache && rowCache->index && rowCache->keys.size() == static_cast<size_t>(count);
  std::vector<std::u16string> keys;

  path.push_back(type);
  CComPtr<IRfcType> holder;
  CComBSTR nameHolder;
  for (LONG i = 0; i < count && SUCCEEDED(hr); ++i) {
    IRfcType* member = nullptr;
    hr = members.At(i, holder, &member);
    if (FAILED(hr)) break;
    std::u16string_view name;
    hr = TypeName(member, nameHolder, &name);
    if (FAILED(hr)) break;
    CComPtr<CRfcField> field;
    hr = CreateForShaping(&field.p);
    if (FAILED(hr)) break;
    field->m_name.assign(name);
    hr = field->Shape(member, path);
    if (FAILED(hr)) break;
    if (!rowCache) {
      fields->CollAddKeyed(field, std::u16string(name));
      continue;
    }
    fields->CollAppendTyped(field);
    if (sameKeys && rowCache->keys[static_cast<size_t>(i)] != name) {
      sameKeys = false;
      keys.assign(rowCache->keys.begin(), rowCache->keys.begin() + i);
    }
    if (!sameKeys) keys.emplace_back(name);
  }
  path.pop_back();
  if (FAILED(hr)) return hr;
  if (rowCache) {
    if (sameKeys) {
      fields->CollAdoptIndex(rowCache->index);
    } else {
      fields->CollIndexKeys(keys);
      rowCache->keys = std::move(keys);
      rowCache->index = fields->CollShareIndex();
    }
  }
  out = std::move(fields);
  return S_OK;
}

HRESULT CRfcField::BuildRowPlan(IRfcType* type, RowPlan& plan, bool* planned) {
  *planned = false;
  plan.type = type;
  plan.members.clear();
  CRfcType* direct = ModelImpl<CRfcType>(type);
  if (!direct) return S_OK;
  const CRfcTypes& members = direct->Members();
  const LONG count = members.CollCount();
  if (count == 0) return ModelError(CLSID_RfcField, Text::NotInitialized);
  plan.members.reserve(static_cast<size_t>(count));
  for (LONG i = 0; i < count; ++i) {
    IRfcType* member = members.CollAt(static_cast<size_t>(i));
    CRfcType* own = ModelImpl<CRfcType>(member);
    if (!own) return S_OK;
    plan.members.push_back({BstrView(own->NameBstr()), member, own->KindValue()});
  }
  *planned = true;
  return S_OK;
}

HRESULT CRfcField::BuildRow(const RowPlan& plan, const std::shared_ptr<const CollectionIndex>& index,
                            CComPtr<CRfcFields>& out, std::vector<CRfcField*>* cells) {
  CComPtr<CRfcFields> fields;
  HRESULT hr = CRfcFields::CreateInstance(&fields.p);
  if (FAILED(hr)) return hr;
  fields->CollReserve(plan.members.size());
  const size_t handedOut = cells ? cells->size() : 0;
  ShapePath path;
  for (const RowPlan::Member& member : plan.members) {
    CRfcField* field = nullptr;
    hr = CreateForShaping(&field);
    if (FAILED(hr)) break;
    fields->CollAppendOwned(field);
    field->m_name.assign(member.name);
    if (cells) cells->push_back(field);
    if (member.kind == RFCTYPEKIND_SCALAR) {
      // What Shape does to a new field of a scalar type.
      field->m_type = member.type;
      field->m_shape = FIELDSHAPE_SCALAR;
      continue;
    }
    if (path.empty()) path.push_back(plan.type);
    hr = field->Shape(member.type, path);
    if (FAILED(hr)) break;
  }
  if (FAILED(hr)) {
    if (cells) cells->resize(handedOut);
    return hr;
  }
  fields->CollAdoptIndex(index);
  out = std::move(fields);
  return S_OK;
}

HRESULT CRfcField::get_value(VARIANT* pVal) {
  if (!pVal) return E_POINTER;
  VariantInit(pVal);
  return VariantCopy(pVal, &m_value);
}

HRESULT CRfcField::put_value(VARIANT newVal) {
  CComVariant copy;
  HRESULT hr = VariantCopyInd(&copy, &newVal);
  if (FAILED(hr)) return hr;
  m_value = std::move(copy);
  return S_OK;
}

HRESULT CRfcField::AttachValue(VARIANT* value) {
  if (!value) return E_POINTER;
  if (value->vt & VT_BYREF) {
    HRESULT hr = put_value(*value);
    if (FAILED(hr)) return hr;
    return VariantClear(value);
  }
  return m_value.Attach(value);
}

HRESULT CRfcField::get_Fields(IRfcFields** pVal) {
  if (!pVal) return E_POINTER;
  *pVal = nullptr;
  if (!m_type) return ModelError(CLSID_RfcField, Text::NotInitialized);
  RFCTYPEKIND kind = RFCTYPEKIND_UNDEFINED;
  HRESULT hr = TypeKind(m_type, &kind);
  if (FAILED(hr)) return hr;
  if (kind != RFCTYPEKIND_STRUCT) return ModelError(CLSID_RfcField, Text::NotAStructure);
  // The type became a structure after the field was shaped otherwise.
  if (!m_fields) return ModelError(CLSID_RfcField, Text::NotInitialized);
  *pVal = m_fields;
  (*pVal)->AddRef();
  return S_OK;
}

HRESULT CRfcField::get_Rows(IRfcRows** pVal) {
  if (!pVal) return E_POINTER;
  *pVal = nullptr;
  if (!m_type) return ModelError(CLSID_RfcField, Text::NotInitialized);
  RFCTYPEKIND kind = RFCTYPEKIND_UNDEFINED;
  HRESULT hr = TypeKind(m_type, &kind);
  if (FAILED(hr)) return hr;
  if (kind != RFCTYPEKIND_TABLE) return ModelError(CLSID_RfcField, Text::NotATable);
  if (!m_rows) return ModelError(CLSID_RfcField, Text::NotInitialized);
  *pVal = m_rows;
  (*pVal)->AddRef();
  return S_OK;
}

HRESULT CRfcField::get_InternalType(LONG* pVal) {
  if (!pVal) return E_POINTER;
  if (m_shape != FIELDSHAPE_STRUCT) {
    *pVal = static_cast<LONG>(m_shape);
    return S_OK;
  }
  // A flat structure of fixed length passes as 2, anything deeper as 3.
  TypeMembers members;
  HRESULT hr = members.Open(m_type);
  if (FAILED(hr)) return hr;
  LONG result = 2;
  CComPtr<IRfcType> holder;
  for (LONG i = 0; i < members.Count(); ++i) {
    IRfcType* member = nullptr;
    hr = members.At(i, holder, &member);
    if (FAILED(hr)) return hr;
    RFCTYPEKIND kind = RFCTYPEKIND_UNDEFINED;
    hr = TypeKind(member, &kind);
    if (FAILED(hr)) return hr;
    ABAPTYPE scalar = static_cast<ABAPTYPE>(-1);
    if (kind == RFCTYPEKIND_SCALAR) {
      if (CRfcType* direct = ModelImpl<CRfcType>(member))
        scalar = static_cast<ABAPTYPE>(direct->ScalarTypeValue());
      else if (FAILED(hr = member->get_ScalarType(&scalar)))
        return hr;
    }
    if (kind != RFCTYPEKIND_SCALAR || scalar == TYPE_STRING || scalar == TYPE_XSTRING) {
      result = 3;
      break;
    }
  }
  *pVal = result;
  return S_OK;
}

HRESULT CRfcField::get_IsEmpty(VARIANT_BOOL* pVal) {
  if (!pVal) return E_POINTER;
  return IsEmptyAt(0, pVal);
}

HRESULT CRfcField::IsEmptyAt(int depth, VARIANT_BOOL* pVal) {
  switch (m_shape) {
    case FIELDSHAPE_SCALAR:
      *pVal = (m_value.vt == VT_EMPTY || m_value.vt == VT_NULL) ? VARIANT_TRUE : VARIANT_FALSE;
      return S_OK;
    case FIELDSHAPE_STRUCT: {
      if (depth >= kMaxTypeDepth)
        return ModelErrorText(CLSID_RfcField, u"The structure contains itself or is nested too deeply", E_INVALIDARG);
      const LONG count = m_fields ? m_fields->CollCount() : 0;
      VARIANT_BOOL empty = VARIANT_TRUE;
      for (LONG i = 0; i < count && empty; ++i) {
        IRfcField* member = m_fields->CollAt(static_cast<size_t>(i));
        // A member without a type leaves the answer as it was: empty.
        VARIANT_BOOL memberEmpty = VARIANT_TRUE;
        HRESULT hr;
        if (CRfcField* direct = ModelImpl<CRfcField>(member))
          hr = direct->IsEmptyAt(depth + 1, &memberEmpty);
        else
          hr = member->get_IsEmpty(&memberEmpty);
        if (FAILED(hr)) return hr;
        if (!memberEmpty) empty = VARIANT_FALSE;
      }
      *pVal = empty;
      return S_OK;
    }
    case FIELDSHAPE_TABLE: *pVal = (!m_rows || m_rows->CollCount() == 0) ? VARIANT_TRUE : VARIANT_FALSE; return S_OK;
    default:
      // No type: success, and the caller's variable keeps what it held.
      return S_OK;
  }
}

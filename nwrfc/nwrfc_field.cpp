#include "nwrfc/nwrfc_field.h"

#include <algorithm>
#include <cstring>

#include <boost/format.hpp>

#include "model/model.h"
#include "nwrfc/sdk_error.h"
#include "nwrfc/sdk_text.h"
#include "platform/comdef.h"
#include "platform/unicode.h"
#include "runtime/trace.h"

namespace veltrane::nwrfc {

namespace {

struct TypePair {
  int32_t abap;
  RFCTYPE sdk;
};

constexpr TypePair kTypes[] = {
    {TYPE_CHAR, RFCTYPE_CHAR},     {TYPE_DATE, RFCTYPE_DATE},       {TYPE_BCD, RFCTYPE_BCD},
    {TYPE_TIME, RFCTYPE_TIME},     {TYPE_BYTE, RFCTYPE_BYTE},       {TYPE_ITAB, RFCTYPE_TABLE},
    {TYPE_NUM, RFCTYPE_NUM},       {TYPE_FLOAT, RFCTYPE_FLOAT},     {TYPE_INT, RFCTYPE_INT},
    {TYPE_INT2, RFCTYPE_INT2},     {TYPE_INT1, RFCTYPE_INT1},       {TYPE_STRUCTURE, RFCTYPE_STRUCTURE},
    {TYPE_STRING, RFCTYPE_STRING}, {TYPE_XSTRING, RFCTYPE_XSTRING},
};

std::string Narrow(std::u16string_view text) { return WideToUtf8Lossy(text); }

void Log(int level, const boost::format& text) { TraceLog(level, text, "CNWRFCField", __FILE__, __LINE__); }

int32_t AlignUp(int32_t n, int32_t a) { return (n + a - 1) / a * a; }

// The model must hand out an object where it holds one.
template <class T>
T* Required(T* p) {
  if (!p) throw _com_error(E_POINTER);
  return p;
}

}  // namespace

int32_t AbapTypeOf(RFCTYPE type) {
  for (const TypePair& pair : kTypes)
    if (pair.sdk == type) return pair.abap;
  return -1;
}

RFCTYPE SdkTypeOf(int32_t type) {
  for (const TypePair& pair : kTypes)
    if (pair.abap == type) return pair.sdk;
  return RFCTYPE_NULL;
}

}  // namespace veltrane::nwrfc

using namespace veltrane::nwrfc;

HRESULT CNWRFCField::SdkFailure(RFC_RC rc) {
  lastResult = rc;
  return BridgeFailure(rc, errorInfo ? *errorInfo : RFC_ERROR_INFO{}, m_clsid);
}

const char16_t* CNWRFCField::SdkTypeText() const {
  const SAP_UC* text = m_sdk.RfcGetTypeAsString(SdkTypeOf(type));
  return text ? text : u"";
}

void CNWRFCField::TraceField() const {
  if (TraceLevel() < TRACE_INFORMATION) return;
  Log(TRACE_INFORMATION, boost::format("Field(name=%1% type=%2% ucl=%3% ucofs=%4% nucl=%5% nucofs=%6%)") %
                             Narrow(name) % Narrow(SdkTypeText()) % ucLength % ucOffset % nucLength % nucOffset);
}

// The four layout values on rfcType; their results are not looked at.
HRESULT CNWRFCField::SetLayout() {
  IRfcType* t = Required(rfcType.p);
  t->put_StructLength(ucLength);
  t->put_structLengthC1(nucLength);
  t->put_StructOffset(ucOffset);
  t->put_structOffsetC1(nucOffset);
  return S_OK;
}

HRESULT CNWRFCField::Define(const RFC_FIELD_DESC& fieldDesc) {
  name = SapText(fieldDesc.name);
  type = AbapTypeOf(fieldDesc.type);
  length = static_cast<int16_t>(fieldDesc.type == RFCTYPE_BCD ? fieldDesc.nucLength * 2 - 1 : fieldDesc.nucLength);
  decimals = static_cast<int16_t>(fieldDesc.decimals);
  ucLength = static_cast<int32_t>(fieldDesc.ucLength);
  ucOffset = static_cast<int32_t>(fieldDesc.ucOffset);
  nucLength = static_cast<int32_t>(fieldDesc.nucLength);
  nucOffset = static_cast<int32_t>(fieldDesc.nucOffset);
  TraceField();
  if (fieldDesc.typeDescHandle) {
    RFC_ABAP_NAME buffer{};
    const RFC_RC rc = m_sdk.RfcGetTypeName(fieldDesc.typeDescHandle, buffer, errorInfo);
    if (rc != RFC_OK) return SdkFailure(rc);
    typeName = SapText(buffer);
  }
  HRESULT hr = S_OK;
  if (type == TYPE_STRUCTURE) {
    hr = Define(std::u16string(name), fieldDesc.typeDescHandle);
  } else if (type == TYPE_ITAB) {
    CNWRFCField row(m_sdk, errorInfo, m_clsid);
    if (FAILED(hr = row.Define(typeName, fieldDesc.typeDescHandle))) return hr;
    if (FAILED(hr = CreateRfcType(&rfcType))) return hr;
    hr = rfcType->DefineTable(CComBSTR(name), Required(row.rfcType.p));
  } else {
    if (FAILED(hr = CreateRfcType(&rfcType))) return hr;
    hr = rfcType->DefineScalar(CComBSTR(name), static_cast<ABAPTYPE>(type), length, decimals, ucOffset);
  }
  if (FAILED(hr)) return hr;
  return SetLayout();
}

HRESULT CNWRFCField::Define(const RFC_PARAMETER_DESC& parameterDesc) {
  RFC_FIELD_DESC field{};
  std::memcpy(field.name, parameterDesc.name, sizeof field.name);
  field.type = parameterDesc.type;
  field.nucLength = parameterDesc.nucLength;
  field.ucLength = parameterDesc.ucLength;
  field.decimals = parameterDesc.decimals;
  field.typeDescHandle = parameterDesc.typeDescHandle;
  return Define(field);
}

HRESULT CNWRFCField::Define(std::u16string_view fieldName, RFC_TYPE_DESC_HANDLE typeDesc) {
  // A type handed in (ImportType's) is defined in place.
  HRESULT hr = rfcType ? S_OK : CreateRfcType(&rfcType);
  if (FAILED(hr)) return hr;
  name = fieldName;
  unsigned count = 0;
  RFC_RC rc = m_sdk.RfcGetFieldCount(typeDesc, &count, errorInfo);
  if (rc != RFC_OK) return SdkFailure(rc);
  RFC_ABAP_NAME buffer{};
  if ((rc = m_sdk.RfcGetTypeName(typeDesc, buffer, errorInfo)) != RFC_OK) return SdkFailure(rc);
  typeName = SapText(buffer);
  type = TYPE_STRUCTURE;
  kind = RFCTYPEKIND_STRUCT;
  unsigned nuc = 0, uc = 0;
  if ((rc = m_sdk.RfcGetTypeLength(typeDesc, &nuc, &uc, errorInfo)) != RFC_OK) return SdkFailure(rc);
  nucLength = static_cast<int32_t>(nuc);
  ucLength = static_cast<int32_t>(uc);
  ucOffset = nucOffset = 0;
  if (FAILED(hr = rfcType->DefineStruct(CComBSTR(name)))) return hr;
  SetLayout();
  for (unsigned i = 0; i < count; ++i) {
    RFC_FIELD_DESC fieldDesc{};
    if ((rc = m_sdk.RfcGetFieldDescByIndex(typeDesc, i, &fieldDesc, errorInfo)) != RFC_OK) return SdkFailure(rc);
    CNWRFCField member(m_sdk, errorInfo, m_clsid);
    if (FAILED(hr = member.Define(fieldDesc))) return hr;
    if (FAILED(hr = rfcType->AddComplexStructField(Required(member.rfcType.p)))) return hr;
  }
  return S_OK;
}

HRESULT CNWRFCField::Define(std::u16string_view fieldName, IRfcType* t) {
  name = fieldName;
  rfcType = Required(t);
  CComBSTR text;
  ABAPTYPE scalarType = TYPE_CHAR;
  RFCTYPEKIND typeKind = RFCTYPEKIND_UNDEFINED;
  SHORT scalarDecimals = 0, scalarLength = 0;
  LONG uc = 0, nuc = 0, ucOfs = 0, nucOfs = 0;
  HRESULT hr;
  if (FAILED(hr = t->get_name(&text)) || FAILED(hr = t->get_ScalarType(&scalarType)) ||
      FAILED(hr = t->get_Kind(&typeKind)) || FAILED(hr = t->get_ScalarDecimals(&scalarDecimals)) ||
      FAILED(hr = t->get_ScalarLength(&scalarLength)) || FAILED(hr = t->get_StructLength(&uc)) ||
      FAILED(hr = t->get_structLengthC1(&nuc)) || FAILED(hr = t->get_StructOffset(&ucOfs)) ||
      FAILED(hr = t->get_structOffsetC1(&nucOfs)))
    return hr;
  typeName = text.View();
  kind = typeKind;
  // A structure or table is one by its kind; its type code may be -1, as
  // for a structure read from the XML form.
  type = kind == RFCTYPEKIND_STRUCT ? TYPE_STRUCTURE : kind == RFCTYPEKIND_TABLE ? TYPE_ITAB : scalarType;
  decimals = scalarDecimals == -1 ? 0 : scalarDecimals;
  length = scalarLength;
  ucLength = uc;
  nucLength = nuc;
  ucOffset = ucOfs;
  nucOffset = nucOfs;
  if (kind == RFCTYPEKIND_SCALAR) {
    const int32_t units = type == TYPE_BCD ? (length + 1) / 2 : length;
    if (ucLength == -1) ucLength = units * 2;
    if (nucLength == -1) nucLength = units;
  } else if (kind == RFCTYPEKIND_STRUCT) {
    length = decimals = 0;
    if (scalarType == -1) return LayOut(t);
  } else if (kind == RFCTYPEKIND_TABLE) {
    length = decimals = 0;
    ucLength = ucOffset = nucLength = nucOffset = 0;
  }
  return S_OK;
}

CNWRFCField::Offsets CNWRFCField::Alignment() const {
  if (kind == RFCTYPEKIND_STRUCT) return m_laidOut ? m_align : Offsets{8, 8};
  if (kind == RFCTYPEKIND_TABLE) return {8, 8};
  switch (type) {
    case TYPE_CHAR:
    case TYPE_NUM:
    case TYPE_DATE:
    case TYPE_TIME: return {2, 1};
    case TYPE_INT: return {4, 4};
    case TYPE_INT2: return {2, 2};
    case TYPE_FLOAT:
    case TYPE_STRING:
    case TYPE_XSTRING: return {8, 8};
    default: return {1, 1};
  }
}

// A table, string or xstring is held by reference: 8 bytes in a structure.
CNWRFCField::Offsets CNWRFCField::Extent() const {
  const bool reference = kind == RFCTYPEKIND_TABLE || type == TYPE_STRING || type == TYPE_XSTRING;
  const int32_t least = reference ? 8 : 0;
  return {std::max(ucLength, least), std::max(nucLength, least)};
}

HRESULT CNWRFCField::LayOut(IRfcType* structure) {
  CComPtr<IRfcTypes> members;
  LONG count = 0;
  HRESULT hr;
  if (FAILED(hr = structure->get_StructFields(&members)) || FAILED(hr = Required(members.p)->get_Count(&count)))
    return hr;
  Offsets end{0, 0};
  m_laidOut = true;
  m_places.clear();
  m_align = {1, 1};
  for (LONG i = 1; i <= count; ++i) {
    CComPtr<IRfcType> memberType;
    CComBSTR memberName;
    if (FAILED(hr = members->get_Item(CComVariant(i), &memberType)) ||
        FAILED(hr = Required(memberType.p)->get_name(&memberName)))
      return hr;
    CNWRFCField member(m_sdk, errorInfo, m_clsid);
    if (FAILED(hr = member.Define(memberName.View(), memberType))) return hr;
    const Offsets size = member.Extent(), align = member.Alignment();
    // A table member keeps no offsets: Define sets them to 0.
    const bool placed = member.kind != RFCTYPEKIND_TABLE;
    const Offsets at{placed && member.ucOffset != -1 ? member.ucOffset : AlignUp(end.uc, align.uc),
                     placed && member.nucOffset != -1 ? member.nucOffset : AlignUp(end.nuc, align.nuc)};
    m_places.push_back(at);
    end = {std::max(end.uc, at.uc + size.uc), std::max(end.nuc, at.nuc + size.nuc)};
    m_align = {std::max(m_align.uc, align.uc), std::max(m_align.nuc, align.nuc)};
  }
  if (ucLength == -1) ucLength = AlignUp(end.uc, m_align.uc);
  if (nucLength == -1) nucLength = AlignUp(end.nuc, m_align.nuc);
  return S_OK;
}

HRESULT CNWRFCField::createTypeDesc(RFC_TYPE_DESC_HANDLE* typeDesc) {
  *typeDesc = nullptr;
  if (kind == RFCTYPEKIND_SCALAR) return S_OK;
  RFC_TYPE_DESC_HANDLE desc = m_sdk.RfcCreateTypeDesc(typeName.c_str(), errorInfo);
  if (!desc) {
    Log(TRACE_ERROR, boost::format("RfcCreateTypeDesc(%1%):") % Narrow(typeName));
    return SdkFailure(errorInfo ? errorInfo->code : RFC_UNKNOWN_ERROR);
  }
  CComPtr<IRfcTypes> members;
  unsigned nuc = static_cast<unsigned>(nucLength), uc = static_cast<unsigned>(ucLength);
  HRESULT hr;
  if (kind == RFCTYPEKIND_TABLE) {
    CComPtr<IRfcType> rowType;
    CComBSTR rowName;
    if (FAILED(hr = rfcType->get_RowType(&rowType)) || FAILED(hr = Required(rowType.p)->get_name(&rowName)) ||
        FAILED(hr = rowType->get_StructFields(&members)))
      return hr;
    CNWRFCField row(m_sdk, errorInfo, m_clsid);
    if (FAILED(hr = row.Define(rowName.View(), rowType))) return hr;
    uc = static_cast<unsigned>(row.ucLength);
    nuc = static_cast<unsigned>(row.nucLength);
    hr = AddFields(desc, members, row.m_places);
  } else if (SUCCEEDED(hr = rfcType->get_StructFields(&members))) {
    hr = AddFields(desc, members, m_places);
  }
  if (FAILED(hr)) return hr;
  const RFC_RC rc = m_sdk.RfcSetTypeLength(desc, nuc, uc, errorInfo);
  if (rc != RFC_OK) {
    Log(TRACE_ERROR, boost::format("RfcSetTypeLength(%1%, %2%, %3%):") % Narrow(typeName) % nuc % uc);
    return SdkFailure(rc);
  }
  *typeDesc = desc;
  return S_OK;
}

HRESULT CNWRFCField::AddFields(RFC_TYPE_DESC_HANDLE desc, IRfcTypes* members, const std::vector<Offsets>& places) {
  LONG count = 0;
  HRESULT hr;
  if (FAILED(hr = Required(members)->get_Count(&count))) return hr;
  for (LONG i = 1; i <= count; ++i) {
    CComPtr<IRfcType> memberType;
    CComBSTR memberName;
    if (FAILED(hr = members->get_Item(CComVariant(i), &memberType))) return hr;
    if (FAILED(hr = Required(memberType.p)->get_name(&memberName))) return hr;
    CNWRFCField member(m_sdk, errorInfo, m_clsid);
    if (FAILED(hr = member.Define(memberName.View(), memberType))) return hr;
    if (static_cast<size_t>(i) <= places.size()) {
      member.ucOffset = places[i - 1].uc;
      member.nucOffset = places[i - 1].nuc;
    }
    RFC_FIELD_DESC fieldDesc{};
    if (FAILED(hr = fillFieldDesc(member, fieldDesc))) return hr;
    if (TraceLevel() >= TRACE_INFORMATION)
      Log(TRACE_INFORMATION,
          boost::format("RfcAddTypeField(name=%1% type=%2% ucl=%3% ucofs=%4% nucl=%5% nucofs=%6%):") %
              Narrow(member.name) % Narrow(member.SdkTypeText()) % member.ucLength % member.ucOffset %
              member.nucLength % member.nucOffset);
    const RFC_RC rc = m_sdk.RfcAddTypeField(desc, &fieldDesc, errorInfo);
    if (rc != RFC_OK) return SdkFailure(rc);
  }
  return S_OK;
}

HRESULT CNWRFCField::fillFieldDesc(CNWRFCField& field, RFC_FIELD_DESC& fieldDesc) {
  fieldDesc = RFC_FIELD_DESC{};
  CopySapText(fieldDesc.name, field.name);
  fieldDesc.type = SdkTypeOf(field.type);
  fieldDesc.nucLength = static_cast<unsigned>(field.nucLength);
  fieldDesc.nucOffset = static_cast<unsigned>(field.nucOffset);
  fieldDesc.ucLength = static_cast<unsigned>(field.ucLength);
  fieldDesc.ucOffset = static_cast<unsigned>(field.ucOffset);
  fieldDesc.decimals = static_cast<unsigned>(field.decimals);
  return field.createTypeDesc(&fieldDesc.typeDescHandle);
}

HRESULT CNWRFCField::fillParameterDesc(RFC_DIRECTION direction, RFC_PARAMETER_DESC& parameterDesc) {
  if (TraceLevel() >= TRACE_INFORMATION)
    Log(TRACE_INFORMATION,
        boost::format("%1% parameter %2%") % Narrow(SapText(m_sdk.RfcGetDirectionAsString(direction))) % Narrow(name));
  parameterDesc = RFC_PARAMETER_DESC{};
  CopySapText(parameterDesc.name, name);
  parameterDesc.type = SdkTypeOf(type);
  parameterDesc.direction = direction;
  parameterDesc.decimals = static_cast<unsigned>(decimals);
  parameterDesc.ucLength = static_cast<unsigned>(ucLength);
  parameterDesc.nucLength = static_cast<unsigned>(nucLength);
  CopySapText(parameterDesc.defaultValue, defaultValue);
  CopySapText(parameterDesc.parameterText, description);
  parameterDesc.optional = optional ? 1 : 0;
  return createTypeDesc(&parameterDesc.typeDescHandle);
}

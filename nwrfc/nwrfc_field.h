// The metadata bridge between the object model (RfcType, FunctionCall) and
// the NW RFC SDK's descriptions, in both directions:
//
//   SDK to model: CNWRFCField::Define from an RFC_FIELD_DESC, an
//   RFC_PARAMETER_DESC or an RFC_TYPE_DESC_HANDLE builds the RfcType; the
//   NW session's imports use it.
//   Model to SDK: CNWRFCField::Define from an IRfcType, then
//   fillParameterDesc, fillFieldDesc and createTypeDesc; the NW server hands
//   the gateway the interface of a function the client installed with them
//   (NWRFCCreateFunctionDesc, nwrfc_function_desc.h).
//
// A CNWRFCField is a short-lived working record on the stack, one for each
// field or parameter being translated. The descriptions the SDK hands out or
// that are created here belong to the SDK, which caches them; nothing here
// frees one. SDK failures write "RFC Error #<rc> <key>: <message>" to the
// trace and give text 543, with the details left in the error record.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "nwrfc/nwrfc_library.h"
#include "nwrfc/nwrfc_types.h"
#include "platform/atlbase.h"
#include "veltrane_tlb.h"

namespace veltrane::nwrfc {

// The type codes, by an explicit table in both directions: an SDK type
// outside it (decimal floats, INT8, boxes, ...) is -1 on the way in, an
// ABAPTYPE outside it RFCTYPE_NULL on the way out.
int32_t AbapTypeOf(RFCTYPE type);
RFCTYPE SdkTypeOf(int32_t type);

}  // namespace veltrane::nwrfc

class CNWRFCField {
 public:
  // sdk: the loaded SDK; errorInfo: the caller's record, which SDK calls
  // report into; clsid: the class the error records of failures name.
  CNWRFCField(const veltrane::nwrfc::EntryPoints& sdk, RFC_ERROR_INFO* errorInfo, const CLSID& clsid)
      : errorInfo(errorInfo), m_sdk(sdk), m_clsid(clsid) {}
  CNWRFCField(const CNWRFCField&) = delete;
  CNWRFCField& operator=(const CNWRFCField&) = delete;

  // From a field of an SDK type description: a scalar, a structure (through
  // its type description) or a table (whose row type bears the dictionary
  // name). The four layout values go on rfcType at the end.
  HRESULT Define(const RFC_FIELD_DESC& fieldDesc);
  // From a parameter: as a field of the parameter's name, type, lengths,
  // decimals and type description, at offset 0.
  HRESULT Define(const RFC_PARAMETER_DESC& parameterDesc);
  // A structure named fieldName from an SDK type description, recursing over
  // its fields; every member goes in by AddComplexStructField. rfcType, when
  // already set, is the type defined; otherwise a new one.
  HRESULT Define(std::u16string_view fieldName, RFC_TYPE_DESC_HANDLE typeDesc);
  // From an object-model type, for the way towards the SDK: lengths left at
  // -1 by a hand-built scalar are computed (two bytes a character, BCD as
  // (digits + 1) / 2 bytes). A structure or table is one by its kind, whatever
  // its type code. A structure that was never declared one (type code -1, as
  // the XML form reads it back, which carries no layout of a structure) is
  // laid out from its members: a member without offsets follows the one
  // before at its alignment, and the structure's length, when it has none,
  // ends after its last member.
  HRESULT Define(std::u16string_view fieldName, IRfcType* type);

  // A parameter description of this record (Define from an IRfcType first),
  // with its type description; texts too long are cut.
  HRESULT fillParameterDesc(RFC_DIRECTION direction, RFC_PARAMETER_DESC& parameterDesc);
  // A field description of `field` (defined from an IRfcType), with its type
  // description created depth first.
  HRESULT fillFieldDesc(CNWRFCField& field, RFC_FIELD_DESC& fieldDesc);
  // The SDK type description of this structure or table (null for a scalar).
  HRESULT createTypeDesc(RFC_TYPE_DESC_HANDLE* typeDesc);

  std::u16string name;
  std::u16string typeName;  // the dictionary's name, or the RfcType's
  CComPtr<IRfcType> rfcType;
  int32_t type = -1;  // ABAPTYPE, -1 for a code the component does not know
  int32_t kind = RFCTYPEKIND_UNDEFINED;
  int16_t length = 0;
  int16_t decimals = 0;
  int32_t ucLength = 0;
  int32_t ucOffset = 0;
  int32_t nucLength = 0;
  int32_t nucOffset = 0;
  std::u16string defaultValue;
  std::u16string description;
  bool optional = false;
  int32_t lastResult = RFC_OK;
  RFC_ERROR_INFO* errorInfo;

 private:
  struct Offsets {
    int32_t uc, nuc;
  };
  HRESULT LayOut(IRfcType* structure);
  // Bytes and alignment this field takes in a structure, in both layouts.
  Offsets Extent() const;
  Offsets Alignment() const;
  // Adds the members to desc; a member without offsets takes its place from
  // places, when the structure was laid out here.
  HRESULT AddFields(RFC_TYPE_DESC_HANDLE desc, IRfcTypes* members, const std::vector<Offsets>& places);
  HRESULT SdkFailure(RFC_RC rc);
  void TraceField() const;
  HRESULT SetLayout();
  const char16_t* SdkTypeText() const;

  const veltrane::nwrfc::EntryPoints& m_sdk;
  const CLSID& m_clsid;
  // Of a structure laid out here: its members' offsets, and its alignment.
  bool m_laidOut = false;
  std::vector<Offsets> m_places;
  Offsets m_align{1, 1};
};

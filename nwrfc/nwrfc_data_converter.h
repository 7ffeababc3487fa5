// CNWRFCDataConverter: values between the object model (a FunctionCall, its
// RfcParameters, RfcField, RfcRows) and the NW RFC SDK's data containers
// (function, structure, table row), every value through the SDK's typed
// getter or setter by field name. The NW session uses it before and after
// RfcInvoke; the NW server in the other direction (what the client writes,
// the server reads).
//
// A converter is a short-lived value on the caller's stack: it borrows the
// connection's error record, keeps no state between calls and takes no
// lock. Every operation stops at the first failure and hands it upwards:
//   - a failed model call or VariantChangeType: its result, traced with the
//     place;
//   - a failed SDK call whose record has a code: text 543 (the record keeps
//     the details for the caller); a failed call with a clear record counts
//     as success;
//   - a date or time read that does not convert: text 533; one written that
//     does not convert raises CXVeltrane, which passes through.
//
// Some rules are as the SDK's older clients have always had them, and
// callers rely on them:
//   - getRfcArgs stops at the first parameter whose IsRequested is false:
//     later ones of the same group are not read, though requested;
//   - INT reads into a VT_I8 as the unsigned 32 bits (-1 reads 4294967295)
//     and writes the low 32 bits back, so a value survives the round trip;
//   - INT1 goes through VT_I1 (200 reads -56; above 127 does not write);
//   - packed numbers (BCD) read as text, trailing blanks trimmed; an all-blank
//     text writes "0";
//   - CHAR, NUM and BCD lose trailing whitespace when read, STRING keeps all.
// Rows of a table are never traced value by value.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "nwrfc/nwrfc_library.h"
#include "nwrfc/nwrfc_types.h"
#include "platform/atlbase.h"
#include "platform/oaidl.h"
#include "veltrane_tlb.h"

class RowStore;

class CNWRFCDataConverter {
 public:
  // sdk: the loaded SDK; errorInfo: the connection's record, which every SDK
  // call reports into; clsid: the class the error records name.
  CNWRFCDataConverter(const veltrane::nwrfc::EntryPoints& sdk, RFC_ERROR_INFO* errorInfo, const CLSID& clsid)
      : m_sdk(sdk), m_errorInfo(errorInfo), m_clsid(clsid) {}
  CNWRFCDataConverter(const CNWRFCDataConverter&) = delete;
  CNWRFCDataConverter& operator=(const CNWRFCDataConverter&) = delete;

  // Before the invoke: Importing (empty ones switched off), Changing and
  // Tables (empty ones left as they are) written; Exporting switched on or
  // off by IsRequested.
  HRESULT FillOutgoingArgs(IFunctionCall* call, RFC_FUNCTION_HANDLE function);
  // After the invoke with result rfcResult: RFC_OK reads Exporting, Changing
  // and Tables; RFC_ABAP_EXCEPTION only Tables; anything else nothing.
  HRESULT FillIncomingArgs(RFC_RC rfcResult, RFC_FUNCTION_HANDLE function, IFunctionCall* call);

  // One group of parameters between the SDK and the objects; groupName
  // ("IMPORTING", "EXPORTING", "CHANGING", "TABLES") labels the trace.
  HRESULT getRfcArgs(DATA_CONTAINER_HANDLE container, IRfcParameters* parameters, std::u16string_view groupName);
  HRESULT putRfcArgs(IRfcParameters* parameters, DATA_CONTAINER_HANDLE container, std::u16string_view groupName,
                     bool deactivateEmpty);

  // One field of any kind; parentName is the enclosing structure's name.
  HRESULT getRfcField(DATA_CONTAINER_HANDLE container, IRfcField* field, bool traceValues,
                      std::u16string_view parentName);
  HRESULT putRfcField(IRfcField* field, DATA_CONTAINER_HANDLE container, bool traceValues,
                      std::u16string_view parentName);
  // All fields of a structure or row, by position.
  HRESULT getStructFields(DATA_CONTAINER_HANDLE container, IRfcFields* fields, bool traceValues,
                          std::u16string_view parentName);
  HRESULT putStructFields(IRfcFields* fields, DATA_CONTAINER_HANDLE container, bool traceValues,
                          std::u16string_view parentName);
  // One scalar. A value of VT_EMPTY or VT_NULL is not written.
  HRESULT getScalarVal(DATA_CONTAINER_HANDLE container, IRfcField* field, bool traceValues,
                       std::u16string_view parentName);
  HRESULT putScalarVal(IRfcField* field, DATA_CONTAINER_HANDLE container, bool traceValues,
                       std::u16string_view parentName);

 private:
  struct RowPlan;

  HRESULT GetTable(DATA_CONTAINER_HANDLE container, IRfcField* field, const std::u16string& name);
  HRESULT PutTable(IRfcField* field, DATA_CONTAINER_HANDLE container, const std::u16string& name);
  HRESULT GetPlannedRows(RFC_TABLE_HANDLE table, IRfcRows* rows, const RowPlan& plan, unsigned count,
                         const std::u16string& name);
  HRESULT GetStoredRows(RFC_TABLE_HANDLE table, IRfcRows* rows, const RowPlan& plan, unsigned count,
                        const std::u16string& name, RowStore& store, size_t first);
  HRESULT PutRow(IRfcFields* row, const RowPlan* plan, DATA_CONTAINER_HANDLE handle);

  // The value of a scalar of type and length named name, read into value.
  HRESULT ReadScalar(DATA_CONTAINER_HANDLE container, const std::u16string& name, int32_t type, int32_t length,
                     VARIANT& value);
  // Writes value, changed into a copy where the setter takes another type.
  HRESULT WriteScalar(DATA_CONTAINER_HANDLE container, const std::u16string& name, int32_t type, const VARIANT& value);
  HRESULT ReadBytes(DATA_CONTAINER_HANDLE container, const std::u16string& name, unsigned count, VARIANT& value);
  // count units through RfcGetChars; keeps keep of them, or the text
  // without its trailing whitespace.
  HRESULT ReadChars(DATA_CONTAINER_HANDLE container, const std::u16string& name, unsigned count, size_t keep,
                    VARIANT& value);

  HRESULT SdkFailure(std::u16string_view context);
  // A field's name and kind; a failure traced with place.
  HRESULT FieldHead(IRfcField* field, const char* place, std::u16string* name, RFCTYPEKIND* kind);
  // A structure's fields and its container; a failed RfcGetStructure is
  // reported with the context `failure`.
  HRESULT SubStructure(DATA_CONTAINER_HANDLE container, IRfcField* field, const std::u16string& name,
                       std::u16string_view failure, IRfcFields** fields, RFC_STRUCTURE_HANDLE* structure);
  // The table's current row; null, with *hr, when there is none. row names
  // the row being read in the failure's context; -1 for a row being written.
  RFC_STRUCTURE_HANDLE CurrentRow(RFC_TABLE_HANDLE table, const std::u16string& name, long row, HRESULT* hr);
  HRESULT NextRow(RFC_TABLE_HANDLE table, const std::u16string& name, long row);

  const veltrane::nwrfc::EntryPoints& m_sdk;
  RFC_ERROR_INFO* m_errorInfo;
  const CLSID& m_clsid;
  std::vector<SAP_UC> m_chars;  // the one buffer of the CHAR family's reads
};

// The classic SDK's form of a call, built from the object model: arrays of
// RFC_PARAMETER and RFC_TABLE records, value buffers, installed structures
// and internal tables. A marshalling object builds everything in its
// constructor, owns every buffer, name and table while the call lives, and
// writes what came back into the model (getValues). The client call, the
// transactional call and the classic server each build a fresh set.
//
//   CIntRfcParams importing(sdk, Importing, nullptr);
//   CIntRfcTables tables(sdk, Tables, true);
//   sdk.RfcCallExU(handle, name, importing.Entries(), nullptr, tables.Entries());
//   ... receive ...
//   tables.getValues();
//
// Failures raise CXVeltrane (allocation, a value that does not convert, a
// complex parameter, a structure the SDK does not install, a file that
// cannot be opened) or _com_error (a missing object of the model).
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "platform/atlbase.h"
#include "rfc/rfc_entry_points.h"
#include "veltrane_tlb.h"

namespace veltrane::rfc {

using veltrane::sdk::rfc::EntryPoints;
using veltrane::sdk::rfc::ITAB_H;
using veltrane::sdk::rfc::RFC_PARAMETER;
using veltrane::sdk::rfc::RFC_TABLE;
using veltrane::sdk::rfc::RFC_UNICODE_TYPE_ELEMENT;

// One parameter of a scalar collection.
class CIntRfcParam {
 public:
  virtual ~CIntRfcParam() = default;
  CIntRfcParam(const CIntRfcParam&) = delete;
  CIntRfcParam& operator=(const CIntRfcParam&) = delete;

  // By get_InternalType: 1 a scalar, 2 a flat structure; anything else
  // raises ERROR_COMPLEX_TYPE.
  static std::unique_ptr<CIntRfcParam> Create(const EntryPoints& sdk, IRfcParameter* parameter, RFC_PARAMETER* entry);

  // Writes the buffer's value back into the parameter.
  virtual void getValue() = 0;

 protected:
  CIntRfcParam(const EntryPoints& sdk, IRfcParameter* parameter, RFC_PARAMETER* entry);

  const EntryPoints& m_sdk;
  CComPtr<IRfcParameter> m_parameter;
  RFC_PARAMETER* m_entry;
  std::u16string m_name;  // entry->name points here
};

// The layout of a flat structure in the two-byte and the one-byte form, its
// installed handle and a fresh line of it.
class CIntRfcT1StructDef {
 public:
  // Lays out and installs the structure type (its name, StructFields).
  CIntRfcT1StructDef(const EntryPoints& sdk, IRfcType* type);

  struct Column {
    int32_t type;
    uint16_t length;  // ScalarLength
    int16_t decimals;
    char16_t pad;
  };

  veltrane::sdk::rfc::RFC_TYPEHANDLE Handle() const { return m_handle; }
  uint32_t RowLength() const { return m_rowLength; }
  size_t FieldCount() const { return m_elements.size(); }
  const RFC_UNICODE_TYPE_ELEMENT& Element(size_t i) const { return m_elements[i]; }
  const Column& ColumnAt(size_t i) const { return m_columns[i]; }
  const std::u16string& Name() const { return m_name; }

  // Zero, then each field with a pad character filled with it.
  void InitLine(void* line) const;
  // Each field of fields (1-based, by position) that holds a value into
  // line; unset ones are left as they stand.
  void PutFields(IRfcFields* fields, void* line, bool trace) const;
  // Every field of line into fields.
  void GetFields(const void* line, IRfcFields* fields, bool trace) const;

 private:
  void Layout(IRfcTypes* fields, LONG structLength);
  void Install();

  const EntryPoints& m_sdk;
  std::u16string m_name;
  std::vector<std::u16string> m_fieldNames;  // the elements' names point here
  std::vector<RFC_UNICODE_TYPE_ELEMENT> m_elements;
  std::vector<Column> m_columns;
  uint32_t m_rowLength = 0;
  veltrane::sdk::rfc::RFC_TYPEHANDLE m_handle = 0;
};

class CIntRfcScalarParam final : public CIntRfcParam {
 public:
  CIntRfcScalarParam(const EntryPoints& sdk, IRfcParameter* parameter, RFC_PARAMETER* entry);
  ~CIntRfcScalarParam() override;
  void getValue() override;

 private:
  int32_t m_type = 0;
  uint16_t m_length = 0;
  int16_t m_decimals = 0;
  std::vector<unsigned char> m_buffer;
};

class CIntRfcStructParam final : public CIntRfcParam {
 public:
  CIntRfcStructParam(const EntryPoints& sdk, IRfcParameter* parameter, RFC_PARAMETER* entry);
  void getValue() override;

 private:
  std::unique_ptr<CIntRfcT1StructDef> m_def;
  std::vector<unsigned char> m_buffer;
};

// Scalar and structure parameters of one or two collections.
class CIntRfcParams {
 public:
  // Nothing is built when first is null.
  CIntRfcParams(const EntryPoints& sdk, IRfcParameters* first, IRfcParameters* second);
  CIntRfcParams(const CIntRfcParams&) = delete;
  CIntRfcParams& operator=(const CIntRfcParams&) = delete;

  // The entries, ended by an all-zero one; null when nothing was built.
  RFC_PARAMETER* Entries() { return m_entries.empty() ? nullptr : m_entries.data(); }
  // Every parameter's value back into the model, in name order.
  void getValues();

 private:
  std::vector<RFC_PARAMETER> m_entries;
  std::vector<std::unique_ptr<CIntRfcParam>> m_owned;
  std::map<std::u16string, CIntRfcParam*> m_params;  // a name twice: the last
};

// One source file of a table in file mode, open while the call lives.
class CIntRfcFile {
 public:
  explicit CIntRfcFile(const std::u16string& path);
  ~CIntRfcFile();
  CIntRfcFile(const CIntRfcFile&) = delete;
  CIntRfcFile& operator=(const CIntRfcFile&) = delete;

  uint32_t Size() const { return m_size; }
  // Up to count bytes into target; the number read.
  long Read(void* target, uint32_t count);

 private:
  int m_fd = -1;
  uint32_t m_size = 0;
};

// One table parameter with its internal table.
class CIntRfcTable {
 public:
  CIntRfcTable(const EntryPoints& sdk, IRfcParameter* parameter, RFC_TABLE* entry, bool createTable);
  ~CIntRfcTable();
  CIntRfcTable(const CIntRfcTable&) = delete;
  CIntRfcTable& operator=(const CIntRfcTable&) = delete;

  // The internal table's lines back into the rows (not in file mode).
  void getValue();

 private:
  void FillRows();
  void FillFromFiles();

  const EntryPoints& m_sdk;
  CComPtr<IRfcParameter> m_parameter;
  CComPtr<IRfcRows> m_rows;
  std::unique_ptr<CIntRfcT1StructDef> m_def;
  RFC_TABLE* m_entry;
  std::u16string m_name;
  uint32_t m_rowCount = 0;
  uint32_t m_sourceRows = 0;
  uint32_t m_chunk = 0;
  SHORT m_dataCol = 0;
  SHORT m_indexCol = 0;
  std::vector<std::unique_ptr<CIntRfcFile>> m_files;
};

class CIntRfcTables {
 public:
  // createTables: the internal tables are created (ItCreateU) and filled
  // from the rows; otherwise the handles stay null.
  CIntRfcTables(const EntryPoints& sdk, IRfcParameters* tables, bool createTables);
  CIntRfcTables(const CIntRfcTables&) = delete;
  CIntRfcTables& operator=(const CIntRfcTables&) = delete;

  RFC_TABLE* Entries() { return m_entries.empty() ? nullptr : m_entries.data(); }
  void getValues();

 private:
  std::vector<RFC_TABLE> m_entries;
  std::vector<std::unique_ptr<CIntRfcTable>> m_owned;
  std::map<std::u16string, CIntRfcTable*> m_tables;  // a name twice: the last
};

}  // namespace veltrane::rfc

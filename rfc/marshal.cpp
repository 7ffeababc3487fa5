#include "rfc/marshal.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>

#include "abap/model_values.h"
#include "abap/scalar_conversion.h"
#include "model/model.h"
#include "model/row_store.h"
#include "platform/comdef.h"
#include "platform/unicode.h"
#include "rfc/scalar_data.h"
#include "runtime/exceptions.h"
#include "runtime/trace.h"

namespace veltrane::rfc {

using veltrane::abap::FieldValue;
using veltrane::abap::RowFields;
using veltrane::abap::StoredRows;
using veltrane::sdk::rfc::RFC_ITMODE;

namespace {

std::u16string Read(IRfcType* type, HRESULT (STDMETHODCALLTYPE IRfcType::*get)(BSTR*)) {
  CComBSTR text;
  ThrowIfFailed((type->*get)(&text));
  return std::u16string(text.View());
}

std::u16string NameOf(IRfcParameter* parameter) {
  CComBSTR name;
  ThrowIfFailed(parameter->get_name(&name));
  return std::u16string(name.View());
}

template <class T>
T* Required(T* p) {
  if (!p) throw _com_error(E_POINTER);
  return p;
}

// An unset value: VT_EMPTY, VT_ERROR or the empty text.
bool IsUnset(const VARIANT& value) {
  return value.vt == VT_EMPTY || value.vt == VT_ERROR || (value.vt == VT_BSTR && SysStringLen(value.bstrVal) == 0);
}

uint32_t AlignUp(uint32_t value, uint32_t to) { return (value + to - 1) / to * to; }

[[noreturn]] void OutOfMemory() { throw CXVeltrane(CXVeltrane::MEMORY_ALLOC_EXCEPTION, u""); }

void CopyName(std::u16string& storage, const std::u16string& name, RFC_PARAMETER* entry) {
  storage = name;
  entry->name = storage.data();
  entry->nlen = static_cast<unsigned>(storage.size());
}

}  // namespace

// ------------------------------------------------------------- parameters

CIntRfcParam::CIntRfcParam(const EntryPoints& sdk, IRfcParameter* parameter, RFC_PARAMETER* entry)
    : m_sdk(sdk), m_parameter(parameter), m_entry(entry) {
  CopyName(m_name, NameOf(parameter), entry);
}

std::unique_ptr<CIntRfcParam> CIntRfcParam::Create(const EntryPoints& sdk, IRfcParameter* parameter,
                                                   RFC_PARAMETER* entry) {
  LONG kind = 0;
  ThrowIfFailed(Required(parameter)->get_InternalType(&kind));
  if (kind == 1) return std::make_unique<CIntRfcScalarParam>(sdk, parameter, entry);
  if (kind == 2) return std::make_unique<CIntRfcStructParam>(sdk, parameter, entry);
  throw CXVeltrane(CXVeltrane::ERROR_COMPLEX_TYPE, u"", u"CIntRfcParam::Create()");
}

CIntRfcScalarParam::CIntRfcScalarParam(const EntryPoints& sdk, IRfcParameter* parameter, RFC_PARAMETER* entry)
    : CIntRfcParam(sdk, parameter, entry) {
  CComPtr<IRfcType> type;
  ThrowIfFailed(parameter->get_RfcType(&type));
  ABAPTYPE code{};
  SHORT length = 0, decimals = 0;
  ThrowIfFailed(Required(type.p)->get_ScalarType(&code));
  ThrowIfFailed(type->get_ScalarLength(&length));
  ThrowIfFailed(type->get_ScalarDecimals(&decimals));
  m_type = code;
  m_length = static_cast<uint16_t>(length);
  m_decimals = decimals;
  const bool trace = TraceIsOpen();
  if (trace) {
    Trace(u"scalar param '%s' (", m_name);
    TraceRaw(u"type=%u len=%u dec=%u", static_cast<unsigned>(m_type), static_cast<unsigned>(m_length),
             static_cast<unsigned>(m_decimals));
  }
  entry->type = static_cast<unsigned>(RfcScalarType(m_type));
  entry->leng = RfcFieldLengthC2(m_type, m_length);
  if (trace) TraceRaw(u" blen=%u", entry->leng);
  try {
    m_buffer.assign(entry->leng, 0);
  } catch (const std::bad_alloc&) {
    OutOfMemory();
  }
  entry->addr = m_buffer.data();
  if (const char16_t pad = RfcPadChar(m_type))
    for (size_t i = 0; i < m_buffer.size() / 2; ++i) std::memcpy(&m_buffer[i * 2], &pad, sizeof pad);
  CComVariant value;
  ThrowIfFailed(parameter->get_value(&value));
  if (IsUnset(value)) {
    if (trace) TraceRaw(u")\n");
    return;
  }
  RfcVariantToData(m_buffer.data(), m_type, m_length, m_decimals, &value, sdk);
  if (trace) TraceRaw(u" val=%s)\n", VariantTraceText(value));
}

CIntRfcScalarParam::~CIntRfcScalarParam() {
  if (m_type == TYPE_STRING && m_buffer.size() >= sizeof(void*)) {
    unsigned char* text = nullptr;
    std::memcpy(&text, m_buffer.data(), sizeof text);
    if (text) m_sdk.RfcFreeStringU(text);
  } else if (m_type == TYPE_XSTRING && m_buffer.size() >= sizeof(veltrane::sdk::rfc::RFC_XSTRING)) {
    m_sdk.RfcResizeXStringU(reinterpret_cast<veltrane::sdk::rfc::RFC_XSTRING*>(m_buffer.data()), 0);
  }
}

void CIntRfcScalarParam::getValue() {
  CComVariant value;
  RfcDataToVariant(&value, m_buffer.data(), m_type, static_cast<uint16_t>(m_entry->leng), m_decimals, m_sdk);
  ThrowIfFailed(m_parameter->put_value(value));
  if (TraceIsOpen()) Trace(u"received scalar '%s' val=%s\n", m_name, VariantTraceText(value));
}

CIntRfcStructParam::CIntRfcStructParam(const EntryPoints& sdk, IRfcParameter* parameter, RFC_PARAMETER* entry)
    : CIntRfcParam(sdk, parameter, entry) {
  const bool trace = TraceIsOpen();
  if (trace) Trace(u"struct param '%s'\t(", m_name);
  CComPtr<IRfcType> type;
  ThrowIfFailed(parameter->get_RfcType(&type));
  m_def = std::make_unique<CIntRfcT1StructDef>(sdk, Required(type.p));
  entry->type = m_def->Handle();
  entry->leng = m_def->RowLength();
  try {
    m_buffer.assign(m_def->RowLength(), 0);
  } catch (const std::bad_alloc&) {
    OutOfMemory();
  }
  entry->addr = m_buffer.data();
  m_def->InitLine(m_buffer.data());
  CComPtr<IRfcFields> fields;
  ThrowIfFailed(parameter->get_Fields(&fields));
  if (trace) TraceRaw(u" val=|");
  m_def->PutFields(Required(fields.p), m_buffer.data(), trace);
  if (trace) TraceRaw(u")\n");
}

void CIntRfcStructParam::getValue() {
  const bool trace = TraceIsOpen();
  if (trace) Trace(u"received struct '%s' val=|", m_name);
  CComPtr<IRfcFields> fields;
  ThrowIfFailed(m_parameter->get_Fields(&fields));
  m_def->GetFields(m_buffer.data(), Required(fields.p), trace);
  if (trace) TraceRaw(u"\n");
}

CIntRfcParams::CIntRfcParams(const EntryPoints& sdk, IRfcParameters* first, IRfcParameters* second) {
  if (!first) return;
  LONG firstCount = 0, secondCount = 0;
  ThrowIfFailed(first->get_Count(&firstCount));
  if (second) ThrowIfFailed(second->get_Count(&secondCount));
  try {
    m_entries.assign(static_cast<size_t>(firstCount + secondCount) + 1, RFC_PARAMETER{});
  } catch (const std::bad_alloc&) {
    OutOfMemory();
  }
  size_t next = 0;
  for (IRfcParameters* collection : {first, second}) {
    if (!collection) continue;
    const LONG count = collection == first ? firstCount : secondCount;
    for (LONG i = 1; i <= count; ++i) {
      CComPtr<IRfcParameter> parameter;
      collection->get_Item(CComVariant(static_cast<int32_t>(i)), &parameter);
      if (!parameter) throw _com_error(E_POINTER);
      m_owned.push_back(CIntRfcParam::Create(sdk, parameter, &m_entries[next++]));
      m_params[NameOf(parameter)] = m_owned.back().get();
    }
  }
}

void CIntRfcParams::getValues() {
  for (auto& [name, param] : m_params) param->getValue();
}

// ------------------------------------------------------------- structures

CIntRfcT1StructDef::CIntRfcT1StructDef(const EntryPoints& sdk, IRfcType* type) : m_sdk(sdk) {
  m_name = Read(type, &IRfcType::get_name);
  CComPtr<IRfcTypes> fields;
  ThrowIfFailed(type->get_StructFields(&fields));
  LONG structLength = -1;
  ThrowIfFailed(type->get_StructLength(&structLength));
  Layout(Required(fields.p), structLength);
  if (TraceIsOpen()) TraceRaw(u"%s(fc=%u,leng=%u)", m_name, static_cast<unsigned>(m_elements.size()), m_rowLength);
  Install();
}

void CIntRfcT1StructDef::Layout(IRfcTypes* fields, LONG structLength) {
  LONG count = 0;
  ThrowIfFailed(fields->get_Count(&count));
  m_fieldNames.resize(static_cast<size_t>(count));
  m_elements.assign(static_cast<size_t>(count), RFC_UNICODE_TYPE_ELEMENT{});
  m_columns.resize(static_cast<size_t>(count));
  uint32_t offset2 = 0, offset1 = 0;
  for (LONG i = 0; i < count; ++i) {
    CComPtr<IRfcType> field;
    ThrowIfFailed(fields->get_Item(CComVariant(static_cast<int32_t>(i + 1)), &field));
    Required(field.p);
    ABAPTYPE code{};
    SHORT length = 0, decimals = 0;
    LONG givenOffset2 = -1, givenOffset1 = -1, length2 = -1, length1 = -1;
    m_fieldNames[i] = Read(field, &IRfcType::get_name);
    ThrowIfFailed(field->get_ScalarType(&code));
    ThrowIfFailed(field->get_ScalarLength(&length));
    ThrowIfFailed(field->get_ScalarDecimals(&decimals));
    ThrowIfFailed(field->get_StructOffset(&givenOffset2));
    ThrowIfFailed(field->get_structOffsetC1(&givenOffset1));
    ThrowIfFailed(field->get_StructLength(&length2));
    ThrowIfFailed(field->get_structLengthC1(&length1));
    const uint32_t scalarLength = static_cast<uint16_t>(length);
    if (length2 == -1) length2 = static_cast<LONG>(RfcFieldLengthC2(code, scalarLength));
    if (length1 == -1) length1 = static_cast<LONG>(RfcFieldLengthC1(code, scalarLength));
    if (givenOffset2 == -1) {
      if (code == TYPE_FLOAT || code == TYPE_INT) offset2 = AlignUp(offset2, 4);
      if (code == TYPE_INT2) offset2 = AlignUp(offset2, 2);
    } else {
      offset2 = static_cast<uint32_t>(givenOffset2);
    }
    if (givenOffset1 == -1) {
      if (code == TYPE_FLOAT || code == TYPE_INT) offset1 = AlignUp(offset1, 4);
      // By the parity of the two-byte counter, as the SDK has been given it.
      if (code == TYPE_INT2 && offset2 % 2 == 1) offset1 = (offset1 & ~1u) + 2;
    } else {
      offset1 = static_cast<uint32_t>(givenOffset1);
    }
    RFC_UNICODE_TYPE_ELEMENT& element = m_elements[i];
    element.name = m_fieldNames[i].data();
    element.type = static_cast<unsigned>(RfcScalarType(code));
    element.decimals = static_cast<unsigned>(decimals);
    element.c1_length = static_cast<unsigned>(length1);
    element.c1_offset = offset1;
    element.c2_length = static_cast<unsigned>(length2);
    element.c2_offset = offset2;
    m_columns[i] = Column{code, static_cast<uint16_t>(length), decimals, RfcPadChar(code)};
    offset2 += static_cast<uint32_t>(length2);
    offset1 += static_cast<uint32_t>(length1);
  }
  offset2 = AlignUp(offset2, 4);
  m_rowLength = structLength == -1 ? offset2 : static_cast<uint32_t>(structLength);
}

void CIntRfcT1StructDef::Install() {
  if (!m_sdk.RfcInstallUnicodeStructureU ||
      m_sdk.RfcInstallUnicodeStructureU(m_name.data(), m_elements.data(), static_cast<unsigned>(m_elements.size()), 0,
                                        nullptr, &m_handle) != veltrane::sdk::rfc::RFC_OK)
    throw CXVeltrane(CXVeltrane::ERROR_INSTALL_STRUCT, u"", u"CIntRfcT1StructDef::install()");
}

void CIntRfcT1StructDef::InitLine(void* line) const {
  auto* bytes = static_cast<unsigned char*>(line);
  std::memset(bytes, 0, m_rowLength);
  for (size_t i = 0; i < m_elements.size(); ++i) {
    const char16_t pad = m_columns[i].pad;
    if (!pad) continue;
    const RFC_UNICODE_TYPE_ELEMENT& element = m_elements[i];
    const unsigned units = element.c2_length / 2;
    if (element.c2_offset + units * 2 > m_rowLength) continue;
    for (unsigned u = 0; u < units; ++u) std::memcpy(bytes + element.c2_offset + u * 2, &pad, sizeof pad);
  }
}

void CIntRfcT1StructDef::PutFields(IRfcFields* fields, void* line, bool trace) const {
  auto* bytes = static_cast<unsigned char*>(line);
  RowFields row(fields);
  FieldValue value;
  const LONG count = std::min<LONG>(row.Count(), static_cast<LONG>(m_elements.size()));
  for (LONG i = 0; i < count; ++i) {
    HRESULT hr = S_OK;
    IRfcField* field = row.At(i + 1, &hr);
    ThrowIfFailed(hr);
    ThrowIfFailed(value.Read(Required(field)));
    const VARIANT& v = value.Get();
    if (IsUnset(v)) {
      if (trace) TraceRaw(u" |");
      continue;
    }
    const Column& column = m_columns[i];
    RfcValueToData(bytes + m_elements[i].c2_offset, column.type, column.length, column.decimals, v, m_sdk);
    if (trace) TraceRaw(u"%s|", VariantTraceText(v));
  }
}

void CIntRfcT1StructDef::GetFields(const void* line, IRfcFields* fields, bool trace) const {
  const auto* bytes = static_cast<const unsigned char*>(line);
  RowFields row(fields);
  CComVariant value;
  for (size_t i = 0; i < m_elements.size(); ++i) {
    const RFC_UNICODE_TYPE_ELEMENT& element = m_elements[i];
    RfcDataToVariant(&value, bytes + element.c2_offset, static_cast<int32_t>(element.type),
                     static_cast<uint16_t>(element.c2_length), m_columns[i].decimals, m_sdk);
    if (trace) TraceRaw(u"%s|", VariantTraceText(value));
    HRESULT hr = S_OK;
    IRfcField* field = row.At(static_cast<LONG>(i + 1), &hr);
    if (FAILED(hr) || !field) {
      // This field alone is skipped.
      if (trace) TraceRaw(u"(field %u: 0x%x)", static_cast<unsigned>(i + 1), static_cast<unsigned>(hr));
      continue;
    }
    ThrowIfFailed(RfcFieldAttachValue(field, &value));
  }
}

// ----------------------------------------------------------------- files

CIntRfcFile::CIntRfcFile(const std::u16string& path) {
  const std::string file = WideToUtf8Lossy(path);
  m_fd = ::open(file.c_str(), O_RDONLY | O_CLOEXEC);
  struct stat st {};
  if (m_fd < 0 || ::fstat(m_fd, &st) != 0 || !S_ISREG(st.st_mode)) {
    if (m_fd >= 0) ::close(m_fd);
    m_fd = -1;
    throw CXVeltrane(CXVeltrane::ERROR_FILE_ACCESS, path, u"CIntRfcFile()");
  }
  m_size = static_cast<uint32_t>(st.st_size);
}

CIntRfcFile::~CIntRfcFile() {
  if (m_fd >= 0) ::close(m_fd);
}

long CIntRfcFile::Read(void* target, uint32_t count) {
  auto* bytes = static_cast<unsigned char*>(target);
  long total = 0;
  while (total < static_cast<long>(count)) {
    const ssize_t got = ::read(m_fd, bytes + total, count - static_cast<uint32_t>(total));
    if (got <= 0) break;
    total += got;
  }
  return total;
}

// ----------------------------------------------------------------- tables

CIntRfcTable::CIntRfcTable(const EntryPoints& sdk, IRfcParameter* parameter, RFC_TABLE* entry, bool createTable)
    : m_sdk(sdk), m_parameter(parameter), m_entry(entry) {
  Trace(u"CIntRfcTable::CIntRfcTable(): entering\n");
  ThrowIfFailed(parameter->get_Rows(&m_rows));
  Required(m_rows.p);
  CComPtr<IRfcType> type, rowType;
  ThrowIfFailed(parameter->get_RfcType(&type));
  ThrowIfFailed(Required(type.p)->get_RowType(&rowType));
  m_def = std::make_unique<CIntRfcT1StructDef>(sdk, Required(rowType.p));
  Trace(u"got %i columns\n", static_cast<int>(m_def->FieldCount()));
  Trace(u"table name:%s\n", m_def->Name());
  m_name = NameOf(parameter);
  entry->name = m_name.data();
  entry->nlen = static_cast<unsigned>(m_name.size());
  entry->newitab = 0;
  entry->type = m_def->Handle();
  entry->leng = m_def->RowLength();
  Trace(u"internal struct installed ok, leng=%i\n", static_cast<int>(entry->leng));
  VARIANT_BOOL fileMode = VARIANT_FALSE;
  ThrowIfFailed(m_rows->get_FileMode(&fileMode));
  LONG count = 0;
  ThrowIfFailed(m_rows->get_Count(&count));
  if (!fileMode) {
    entry->itmode = veltrane::sdk::rfc::RFC_ITMODE_BYREFERENCE;
    m_rowCount = static_cast<uint32_t>(count);
  } else {
    m_sourceRows = static_cast<uint32_t>(count);
    ThrowIfFailed(m_rows->get_IndexCol(&m_indexCol));
    ThrowIfFailed(m_rows->get_DataCol(&m_dataCol));
    if (m_dataCol >= 1 && static_cast<size_t>(m_dataCol) <= m_def->FieldCount())
      m_chunk = m_def->Element(static_cast<size_t>(m_dataCol - 1)).c2_length;
    for (uint32_t i = 1; i <= m_sourceRows; ++i) {
      CComPtr<IRfcFields> row;
      ThrowIfFailed(m_rows->get_Item(static_cast<LONG>(i), &row));
      CComPtr<IRfcField> pathField;
      ThrowIfFailed(Required(row.p)->get_Item(CComVariant(m_dataCol), &pathField));
      CComVariant path;
      ThrowIfFailed(Required(pathField.p)->get_value(&path));
      ThrowIfFailed(path.ChangeType(VT_BSTR));
      const std::u16string file(path.bstrVal ? path.bstrVal : u"", SysStringLen(path.bstrVal));
      m_files.push_back(std::make_unique<CIntRfcFile>(file));
      Trace(u"table param '%s': retrieving content from '%s' (%u bytes) (indexcol=%i datacol=%i)\n", m_name, file,
            m_files.back()->Size(), static_cast<int>(m_indexCol), static_cast<int>(m_dataCol));
      // A chunk size of 0 would read nothing: each file then gives one line.
      m_rowCount += (m_chunk ? m_files.back()->Size() / m_chunk : 0) + 1;
    }
    entry->itmode = static_cast<RFC_ITMODE>(1);
  }
  if (createTable) {
    entry->ithandle = sdk.ItCreateU(const_cast<char16_t*>(m_def->Name().c_str()), m_def->RowLength(), m_rowCount, 0);
    if (!entry->ithandle) OutOfMemory();
    try {
      if (fileMode)
        FillFromFiles();
      else
        FillRows();
    } catch (...) {
      sdk.ItDeleteU(entry->ithandle);
      entry->ithandle = nullptr;
      throw;
    }
  }
  Trace(u"CIntRfcTable::CIntRfcTable(): leaving\n");
}

CIntRfcTable::~CIntRfcTable() {
  if (m_entry->ithandle) m_sdk.ItDeleteU(m_entry->ithandle);
  m_entry->ithandle = nullptr;
}

void CIntRfcTable::FillRows() {
  // A row no client has reached goes from the rows' store as it stands.
  StoredRows stored(m_rows);
  for (uint32_t i = 1; i <= m_rowCount; ++i) {
    auto* line = static_cast<unsigned char*>(m_sdk.ItAppLineU(m_entry->ithandle));
    if (!line) OutOfMemory();
    m_def->InitLine(line);
    if (stored.Find(static_cast<LONG>(i)) && stored.Width() == m_def->FieldCount()) {
      for (size_t c = 0; c < m_def->FieldCount(); ++c) {
        const VARIANT& value = stored.Cell(c);
        if (IsUnset(value)) continue;
        const CIntRfcT1StructDef::Column& column = m_def->ColumnAt(c);
        RfcValueToData(line + m_def->Element(c).c2_offset, column.type, column.length, column.decimals, value, m_sdk);
      }
      continue;
    }
    CComPtr<IRfcFields> row;
    ThrowIfFailed(m_rows->get_Item(static_cast<LONG>(i), &row));
    m_def->PutFields(Required(row.p), line, false);
  }
}

void CIntRfcTable::FillFromFiles() {
  const size_t dataColumn = static_cast<size_t>(m_dataCol - 1);
  const uint32_t dataOffset = m_dataCol >= 1 ? m_def->Element(dataColumn).c2_offset : 0;
  for (uint32_t source = 1; source <= m_sourceRows; ++source) {
    CComPtr<IRfcFields> row;
    ThrowIfFailed(m_rows->get_Item(static_cast<LONG>(source), &row));
    Required(row.p);
    CIntRfcFile& file = *m_files[source - 1];
    for (;;) {
      auto* line = static_cast<unsigned char*>(m_sdk.ItAppLineU(m_entry->ithandle));
      if (!line) OutOfMemory();
      m_def->InitLine(line);
      for (size_t c = 0; c < m_def->FieldCount(); ++c) {
        const LONG column = static_cast<LONG>(c + 1);
        if (column == m_dataCol || column == m_indexCol) continue;
        CComPtr<IRfcField> field;
        ThrowIfFailed(row->get_Item(CComVariant(static_cast<int32_t>(column)), &field));
        CComVariant value;
        ThrowIfFailed(Required(field.p)->get_value(&value));
        if (IsUnset(value)) continue;
        const CIntRfcT1StructDef::Column& col = m_def->ColumnAt(c);
        RfcVariantToData(line + m_def->Element(c).c2_offset, col.type, col.length, col.decimals, &value, m_sdk);
      }
      if (m_indexCol > 0) {
        CComVariant index(static_cast<int32_t>(source));
        const size_t c = static_cast<size_t>(m_indexCol - 1);
        const CIntRfcT1StructDef::Column& col = m_def->ColumnAt(c);
        RfcVariantToData(line + m_def->Element(c).c2_offset, col.type, col.length, col.decimals, &index, m_sdk);
      }
      // Straight from the file into the line; a short read ends the file.
      const long read = m_chunk ? file.Read(line + dataOffset, m_chunk) : 0;
      if (read < static_cast<long>(m_chunk) || m_chunk == 0) break;
    }
  }
}

void CIntRfcTable::getValue() {
  if (m_entry->itmode != veltrane::sdk::rfc::RFC_ITMODE_BYREFERENCE) return;
  const bool trace = TraceIsOpen();
  if (trace) Trace(u"received table '%s' val=[", m_name);
  const unsigned count = m_entry->ithandle ? m_sdk.ItFillU(m_entry->ithandle) : 0;
  ThrowIfFailed(m_rows->RemoveAll());
  if (count == 0) {
    if (trace) TraceRaw(u"]\n");
    return;
  }
  const size_t width = m_def->FieldCount();
  // Rows of scalars go into the rows' store; their objects are made when a
  // client reaches them.
  RowStore* store = nullptr;
  size_t first = 0;
  const HRESULT stored = RfcRowsAppendStored(m_rows, static_cast<LONG>(count), &store, &first);
  if (SUCCEEDED(stored)) {
    if (store->Width() != width) throw _com_error(E_UNEXPECTED);
    for (unsigned i = 0; i < count; ++i) {
      const auto* line = static_cast<const unsigned char*>(m_sdk.ItGetLineU(m_entry->ithandle, i + 1));
      if (!line) throw _com_error(E_POINTER);
      for (size_t c = 0; c < width; ++c) {
        const RFC_UNICODE_TYPE_ELEMENT& element = m_def->Element(c);
        RfcDataToStore(*store, first + i, c, line + element.c2_offset, static_cast<int32_t>(element.type),
                       static_cast<uint16_t>(element.c2_length), m_def->ColumnAt(c).decimals, m_sdk);
      }
    }
    if (trace) TraceRaw(u"]\n");
    return;
  }
  if (stored != E_NOINTERFACE) ThrowIfFailed(stored);
  // Rows of another implementation, or of a row type the store does not
  // serve: as objects.
  ThrowIfFailed(m_rows->AddRows(static_cast<LONG>(count)));
  for (unsigned i = 1; i <= count; ++i) {
    const auto* line = static_cast<const unsigned char*>(m_sdk.ItGetLineU(m_entry->ithandle, i));
    if (!line) throw _com_error(E_POINTER);
    CComPtr<IRfcFields> row;
    ThrowIfFailed(m_rows->get_Item(static_cast<LONG>(i), &row));
    m_def->GetFields(line, Required(row.p), false);
  }
  if (trace) TraceRaw(u"]\n");
}

CIntRfcTables::CIntRfcTables(const EntryPoints& sdk, IRfcParameters* tables, bool createTables) {
  Trace(u"CIntRfcTables::CIntRfcTables(...)\n");
  if (!tables) return;
  LONG count = 0;
  ThrowIfFailed(tables->get_Count(&count));
  try {
    m_entries.assign(static_cast<size_t>(count) + 1, RFC_TABLE{});
  } catch (const std::bad_alloc&) {
    OutOfMemory();
  }
  for (LONG i = 1; i <= count; ++i) {
    CComPtr<IRfcParameter> parameter;
    tables->get_Item(CComVariant(static_cast<int32_t>(i)), &parameter);
    if (!parameter) throw _com_error(E_POINTER);
    const std::u16string name = NameOf(parameter);
    Trace(u"Table: %s\n", name);
    m_owned.push_back(
        std::make_unique<CIntRfcTable>(sdk, parameter, &m_entries[static_cast<size_t>(i - 1)], createTables));
    m_tables[name] = m_owned.back().get();
  }
  Trace(u"CIntRfcTables::CIntRfcTables(): leaving\n");
}

void CIntRfcTables::getValues() {
  for (auto& [name, table] : m_tables) table->getValue();
}

}  // namespace veltrane::rfc

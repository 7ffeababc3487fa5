#include "session/table_reader.h"

#include <locale.h>

#include <algorithm>
#include <cstdlib>
#include <new>

#include "model/rfc_rows.h"
#include "platform/property.h"
#include "model/model.h"
#include "model/row_store.h"
#include "abap/scalar_conversion.h"
#include "runtime/report_error.h"
#include "session/rfc_error.h"
#include "runtime/trace.h"

namespace {

// A BSTR variant that refers to text without owning it, for lookups and
// puts (the receivers copy what they keep).
VARIANT BorrowedText(BSTR text) {
  VARIANT v;
  V_VT(&v) = VT_BSTR;
  V_BSTR(&v) = text;
  return v;
}

VARIANT Int4(LONG value) {
  VARIANT v;
  V_VT(&v) = VT_I4;
  V_I4(&v) = value;
  return v;
}

HRESULT SetScalar(IRfcParameters* params, const CComBSTR& name, const VARIANT& value) {
  CComPtr<IRfcParameter> param;
  HRESULT hr = params->get_Item(BorrowedText(name), &param);
  if (FAILED(hr)) return hr;
  if (!param) return E_POINTER;
  return param->put_value(value);
}

HRESULT TableRows(IRfcParameters* tables, const CComBSTR& name, CComPtr<IRfcRows>& rows) {
  CComPtr<IRfcParameter> param;
  HRESULT hr = tables->get_Item(BorrowedText(name), &param);
  if (FAILED(hr)) return hr;
  if (!param) return E_POINTER;
  if (FAILED(hr = param->get_Rows(&rows))) return hr;
  return rows ? S_OK : E_POINTER;
}

// Replaces the rows of a table by one row per entry, the entry in column.
HRESULT FillRows(IRfcRows* rows, const std::vector<std::u16string>& entries, const CComBSTR& column) {
  HRESULT hr = rows->RemoveAll();
  if (FAILED(hr)) return hr;
  for (const std::u16string& entry : entries) {
    CComPtr<IRfcFields> row;
    if (FAILED(hr = rows->AddRow(&row))) return hr;
    if (!row) return E_POINTER;
    CComPtr<IRfcField> field;
    if (FAILED(hr = row->get_Item(BorrowedText(column), &field))) return hr;
    if (!field) return E_POINTER;
    CComBSTR text{std::u16string_view(entry)};
    if (!text) return E_OUTOFMEMORY;
    if (FAILED(hr = field->put_value(BorrowedText(text)))) return hr;
  }
  return S_OK;
}

HRESULT FieldValue(IRfcFields* row, const VARIANT& key, CComVariant& value) {
  CComPtr<IRfcField> field;
  HRESULT hr = row->get_Item(key, &field);
  if (FAILED(hr)) return hr;
  if (!field) return E_POINTER;
  value.Clear();
  return field->get_value(&value);
}

// The text of a value: a string as it stands, anything else converted.
HRESULT ValueText(const CComVariant& value, std::u16string& text) {
  if (V_VT(&value) == VT_BSTR) {
    text.assign(BstrView(V_BSTR(&value)));
    return S_OK;
  }
  CComVariant copy;
  HRESULT hr = VariantChangeType(&copy, &value, 0, VT_BSTR);
  if (FAILED(hr)) return hr;
  text.assign(BstrView(V_BSTR(&copy)));
  return S_OK;
}

bool IsBlank(char16_t c) { return c == u' ' || c == u'\t' || c == u'\n' || c == u'\v' || c == u'\f' || c == u'\r'; }

std::u16string_view Trim(std::u16string_view s) {
  while (!s.empty() && IsBlank(s.front())) s.remove_prefix(1);
  while (!s.empty() && IsBlank(s.back())) s.remove_suffix(1);
  return s;
}

// The characters [offset, offset + length) of the row that it holds.
std::u16string_view Slice(std::u16string_view row, LONG offset, LONG length) {
  if (offset < 0 || length <= 0 || static_cast<size_t>(offset) >= row.size()) return {};
  return row.substr(static_cast<size_t>(offset), static_cast<size_t>(length));
}

// A fixed-width piece for the date and time readers, blank-padded where the
// row ends early.
template <size_t N>
void FixedPiece(std::u16string_view row, LONG offset, char16_t (&out)[N]) {
  std::fill(std::begin(out), std::end(out), u' ');
  const std::u16string_view piece = Slice(row, offset, static_cast<LONG>(N));
  std::copy(piece.begin(), piece.end(), out);
}

double TextToDouble(std::u16string_view text) {
  char small[64];
  std::string large;
  char* narrow = small;
  if (text.size() >= sizeof small) {
    large.resize(text.size());
    narrow = large.data();
  }
  for (size_t i = 0; i < text.size(); ++i) narrow[i] = text[i] < 0x80 ? static_cast<char>(text[i]) : '?';
  narrow[text.size()] = '\0';
  // Numbers of the ABAP side always use the point, whatever the host's locale.
  static const locale_t c_locale = newlocale(LC_NUMERIC_MASK, "C", static_cast<locale_t>(0));
  return c_locale ? strtod_l(narrow, nullptr, c_locale) : std::strtod(narrow, nullptr);
}

}  // namespace

CTableReader::CTableReader() {
  if (FAILED(CRfcStringList::CreateInstance(&m_query.p))) throw std::bad_alloc();
  if (FAILED(CRfcStringList::CreateInstance(&m_fields.p))) throw std::bad_alloc();
  CRfcError* errorInfo = nullptr;
  if (FAILED(CRfcError::CreateInstance(&errorInfo))) throw std::bad_alloc();
  m_errorInfo.Attach(errorInfo);
}

void CTableReader::Bind(ISession* session, BSTR table) {
  m_session = session;
  m_table.Attach(SysAllocStringLen(table, SysStringLen(table)));
  if (!table) m_table.Empty();
}

HRESULT CreateTableReader(ISession* session, BSTR table, ITableReader** reader) {
  if (!reader) return E_POINTER;
  *reader = nullptr;
  if (!session) return E_POINTER;
  CTableReader* obj = nullptr;
  HRESULT hr;
  try {
    hr = CTableReader::CreateInstance(&obj);
  } catch (const std::bad_alloc&) {
    return E_OUTOFMEMORY;
  }
  if (FAILED(hr)) return hr;
  obj->Bind(session, table);
  *reader = obj;
  return S_OK;
}

HRESULT CTableReader::get_Session(ISession** pVal) {
  if (!pVal) return E_POINTER;
  return m_session.CopyTo(pVal);
}

HRESULT CTableReader::get_Table(BSTR* pVal) { return m_table.CopyTo(pVal); }

HRESULT CTableReader::put_Table(BSTR newVal) { return PutProperty(m_table, newVal); }

HRESULT CTableReader::get_Query(IStringList** pVal) {
  if (!pVal) return E_POINTER;
  *pVal = m_query;
  (*pVal)->AddRef();
  return S_OK;
}

HRESULT CTableReader::get_Fields(IStringList** pVal) {
  if (!pVal) return E_POINTER;
  *pVal = m_fields;
  (*pVal)->AddRef();
  return S_OK;
}

HRESULT CTableReader::get_Rows(IRfcRows** pVal) {
  if (!pVal) return E_POINTER;
  return m_rows.CopyTo(pVal);
}

HRESULT CTableReader::get_Error(VARIANT_BOOL* pVal) {
  if (!pVal) return E_POINTER;
  *pVal = m_error;
  return S_OK;
}

HRESULT CTableReader::get_ErrorInfo(IRfcError** pVal) {
  if (!pVal) return E_POINTER;
  return m_errorInfo.CopyTo(pVal);
}

HRESULT CTableReader::get_Option(BSTR name, BSTR* pVal) { return m_options.Get(name, pVal, true); }

HRESULT CTableReader::put_Option(BSTR name, BSTR newVal) { return m_options.Put(name, newVal); }

HRESULT CTableReader::Read(LONG Count, LONG startAt) {
  try {
    return ReadRows(Count, startAt);
  } catch (...) {
    Trace(u"unexpected error - terminating\n");
    return ReportError(CLSID_TableReader, Text::Unexpected);
  }
}

HRESULT CTableReader::CopySessionError() {
  m_error = VARIANT_TRUE;
  CComPtr<IRfcError> source;
  HRESULT hr = m_session->get_ErrorInfo(&source);
  if (FAILED(hr)) return hr;
  if (!source) return E_POINTER;
  ERRORGROUP group = RFCERROR_NO_ERROR;
  CComBSTR groupText, message, moduleName;
  if (FAILED(hr = source->get_ERRORGROUP(&group))) return hr;
  if (FAILED(hr = source->get_ErrorGroupTxt(&groupText))) return hr;
  if (FAILED(hr = source->get_Message(&message))) return hr;
  if (FAILED(hr = source->get_ModuleName(&moduleName))) return hr;
  if (FAILED(hr = m_errorInfo->put_ERRORGROUP(group))) return hr;
  if (FAILED(hr = m_errorInfo->put_ErrorGroupTxt(groupText))) return hr;
  if (FAILED(hr = m_errorInfo->put_Message(message))) return hr;
  return m_errorInfo->put_ModuleName(moduleName);
}

HRESULT CTableReader::MakeValue(std::u16string_view row, const FieldRecord& field, bool raw, VARIANT* value) {
  VariantInit(value);
  switch (field.letter) {
    case u'D': {
      char16_t date[8];
      FixedPiece(row, field.offset, date);
      RfcDateToVariant(value, date);
      return S_OK;
    }
    case u'T': {
      char16_t time[6];
      FixedPiece(row, field.offset, time);
      RfcTimeToVariant(value, time);
      return S_OK;
    }
    case u'F':
      V_VT(value) = VT_R8;
      V_R8(value) = TextToDouble(Slice(row, field.offset, field.length));
      return S_OK;
    case u'I':
    case u'b':
    case u's': {
      const std::u16string_view digits = Slice(row, field.offset, field.length);
      V_VT(value) = VT_I4;
      V_I4(value) = static_cast<LONG>(RfcParseDigits(digits.data(), digits.size(), true));
      return S_OK;
    }
    case u'X':
    case u'y': {
      const std::u16string_view bytes = Slice(row, field.offset, field.length);
      BSTR text = SysAllocStringLen(bytes.data(), static_cast<UINT>(bytes.size()));
      if (!text) return E_OUTOFMEMORY;
      V_VT(value) = VT_BSTR;
      V_BSTR(value) = text;
      return S_OK;
    }
    default: {
      std::u16string_view piece = Slice(row, field.offset, field.length);
      if (!raw) piece = Trim(piece);
      BSTR text = SysAllocStringLen(piece.data(), static_cast<UINT>(piece.size()));
      if (!text) return E_OUTOFMEMORY;
      V_VT(value) = VT_BSTR;
      V_BSTR(value) = text;
      return S_OK;
    }
  }
}

HRESULT CTableReader::StoreValue(std::u16string_view row, const FieldRecord& field, bool raw, RowStore& store,
                                 size_t storeRow, size_t column) {
  try {
    switch (field.letter) {
      case u'D':
      case u'T':
      case u'F':
      case u'I':
      case u'b':
      case u's': {
        VARIANT value;
        HRESULT hr = MakeValue(row, field, raw, &value);
        if (FAILED(hr)) return hr;
        return store.Take(storeRow, column, &value);
      }
      case u'X':
      case u'y': store.PutText(storeRow, column, Slice(row, field.offset, field.length)); return S_OK;
      default: {
        std::u16string_view piece = Slice(row, field.offset, field.length);
        store.PutText(storeRow, column, raw ? piece : Trim(piece));
        return S_OK;
      }
    }
  } catch (const std::bad_alloc&) {
    return E_OUTOFMEMORY;
  }
}

HRESULT CTableReader::SplitRows(IRfcRows* data, IRfcRows* rows, LONG dataCount, bool raw) {
  // Columns go by position when every name is distinct; with a repeated name
  // the value goes to the newest member of the name, as a lookup by name in
  // the keyed collection finds it.
  std::vector<size_t> target(m_records.size());
  for (size_t f = 0; f < m_records.size(); ++f) {
    target[f] = f;
    for (size_t g = m_records.size(); g-- > f + 1;)
      if (m_records[g].name == m_records[f].name) {
        target[f] = g;
        break;
      }
  }

  RowStore* store = nullptr;
  size_t first = 0;
  HRESULT hr = RfcRowsAppendStored(rows, dataCount, &store, &first);
  if (FAILED(hr)) return hr;

  // The data lines are read in place where the model holds them; otherwise
  // through the field WA.
  size_t waColumn = 0;
  bool inPlace = false;
  {
    CComPtr<IRfcFields> firstRow;
    if (FAILED(hr = data->get_Item(1, &firstRow))) return hr;
    if (!firstRow) return E_POINTER;
    LONG width = 0;
    if (FAILED(hr = firstRow->get_Count(&width))) return hr;
    for (LONG c = 1; c <= width && !inPlace; ++c) {
      CComPtr<IRfcField> field;
      if (FAILED(hr = firstRow->get_Item(Int4(c), &field))) return hr;
      CComBSTR name;
      if (field && SUCCEEDED(field->get_name(&name)) && name.View() == u"WA") {
        waColumn = static_cast<size_t>(c - 1);
        inPlace = true;
      }
    }
  }

  CComBSTR waKey(u"WA");
  CComVariant wa;
  std::u16string copy;
  for (LONG i = 0; i < dataCount; ++i) {
    std::u16string_view text;
    if (!inPlace || !RfcRowsTextAt(data, static_cast<size_t>(i), waColumn, &text)) {
      CComPtr<IRfcFields> dataRow;
      if (FAILED(hr = data->get_Item(i + 1, &dataRow))) return hr;
      if (!dataRow) return E_POINTER;
      if (FAILED(hr = FieldValue(dataRow, BorrowedText(waKey), wa))) return hr;
      if (FAILED(hr = ValueText(wa, copy))) return hr;
      text = copy;
    }
    const size_t storeRow = first + static_cast<size_t>(i);
    for (size_t f = 0; f < m_records.size(); ++f)
      if (FAILED(hr = StoreValue(text, m_records[f], raw, *store, storeRow, target[f]))) return hr;
  }
  return S_OK;
}

HRESULT CTableReader::ReadRows(LONG count, LONG startAt) {
  Trace(u"CTableReader::Read()\n");
  HRESULT hr;
  if (!m_transportCall) {
    std::u16string module = m_options.Value(u"tablereader.transportcall");
    if (module.empty()) module = u"RFC_READ_TABLE";
    CComPtr<IFunctionCall> call;
    if (FAILED(hr = m_session->ImportCall(CComBSTR(std::u16string_view(module)), VARIANT_TRUE, &call))) return hr;
    if (!call) return E_POINTER;
    m_transportCall = call;
    VARIANT_BOOL error = VARIANT_FALSE;
    if (FAILED(hr = m_session->get_Error(&error))) return hr;
    if (error) {
      if (FAILED(hr = CopySessionError())) return hr;
      return E_FAIL;
    }
  }

  CComPtr<IRfcParameters> importing, tables;
  if (FAILED(hr = m_transportCall->get_Importing(&importing))) return hr;
  if (FAILED(hr = m_transportCall->get_Tables(&tables))) return hr;
  if (!importing || !tables) return E_POINTER;

  Trace(u"\tQUERY_TABLE=%s\n", m_table.View());
  CComBSTR blank(u" ");
  CComBSTR table(m_table);
  if (m_table && !table) return E_OUTOFMEMORY;
  if (FAILED(hr = SetScalar(importing, CComBSTR(u"QUERY_TABLE"), BorrowedText(table)))) return hr;
  if (FAILED(hr = SetScalar(importing, CComBSTR(u"DELIMITER"), BorrowedText(blank)))) return hr;
  if (FAILED(hr = SetScalar(importing, CComBSTR(u"NO_DATA"), BorrowedText(blank)))) return hr;
  Trace(u"\tROWCOUNT=%i\n", count);
  if (FAILED(hr = SetScalar(importing, CComBSTR(u"ROWCOUNT"), Int4(count)))) return hr;
  Trace(u"\tROWSKIPS=%i\n", startAt);
  if (FAILED(hr = SetScalar(importing, CComBSTR(u"ROWSKIPS"), Int4(startAt)))) return hr;

  Trace(u"set OPTIONS\n");
  CComPtr<IRfcRows> options, fields, data;
  if (FAILED(hr = TableRows(tables, CComBSTR(u"OPTIONS"), options))) return hr;
  if (FAILED(hr = FillRows(options, m_query->Items(), CComBSTR(u"TEXT")))) return hr;
  Trace(u"set FIELDS\n");
  if (FAILED(hr = TableRows(tables, CComBSTR(u"FIELDS"), fields))) return hr;
  if (FAILED(hr = FillRows(fields, m_fields->Items(), CComBSTR(u"FIELDNAME")))) return hr;
  if (FAILED(hr = TableRows(tables, CComBSTR(u"DATA"), data))) return hr;
  if (FAILED(hr = data->RemoveAll())) return hr;

  Trace(u"executing call...\n");
  if (FAILED(hr = m_session->CallFunction(m_transportCall, VARIANT_TRUE))) return hr;
  VARIANT_BOOL error = VARIANT_FALSE;
  if (FAILED(hr = m_session->get_Error(&error))) return hr;
  if (error) return CopySessionError();

  Trace(u"done\n");
  // The rows the call delivered; a back end may have replaced the objects.
  data.Release();
  fields.Release();
  if (FAILED(hr = TableRows(tables, CComBSTR(u"DATA"), data))) return hr;
  if (FAILED(hr = TableRows(tables, CComBSTR(u"FIELDS"), fields))) return hr;
  LONG dataCount = 0, fieldCount = 0;
  if (FAILED(hr = data->get_Count(&dataCount))) return hr;
  if (FAILED(hr = fields->get_Count(&fieldCount))) return hr;

  const std::u16string rawOption = m_options.Value(u"tablereader.rawstrings");
  const bool raw = rawOption == u"X" || rawOption == u"x" || rawOption == u"1";

  CComPtr<IRfcType> rowType;
  if (FAILED(hr = CreateRfcType(&rowType))) return hr;
  if (FAILED(hr = rowType->DefineStruct(table))) return hr;
  m_rowType = rowType;
  m_fields->Clear();
  m_records.clear();

  CComBSTR fieldNameKey(u"FIELDNAME"), lengthKey(u"LENGTH"), offsetKey(u"OFFSET"), typeKey(u"TYPE");
  for (LONG i = 1; i <= fieldCount; ++i) {
    CComPtr<IRfcFields> row;
    if (FAILED(hr = fields->get_Item(i, &row))) return hr;
    if (!row) return E_POINTER;
    FieldRecord record;
    CComVariant value;
    if (FAILED(hr = FieldValue(row, BorrowedText(fieldNameKey), value))) return hr;
    if (FAILED(hr = ValueText(value, record.name))) return hr;
    if (FAILED(hr = FieldValue(row, BorrowedText(lengthKey), value))) return hr;
    if (FAILED(hr = value.ChangeType(VT_INT))) return hr;
    record.length = V_INT(&value);
    if (FAILED(hr = FieldValue(row, BorrowedText(offsetKey), value))) return hr;
    if (FAILED(hr = value.ChangeType(VT_INT))) return hr;
    record.offset = V_INT(&value);
    if (raw) {
      record.letter = u'C';
    } else {
      if (FAILED(hr = FieldValue(row, BorrowedText(typeKey), value))) return hr;
      std::u16string type;
      if (FAILED(hr = ValueText(value, type))) return hr;
      record.letter = type.empty() ? u'\0' : type[0];
    }
    m_fields->Append(record.name);
    CComBSTR name{std::u16string_view(record.name)};
    if (!name) return E_OUTOFMEMORY;
    if (FAILED(hr = rowType->AddScalarStructField(name, static_cast<ABAPTYPE>(RfcTypeFromLetter(record.letter)),
                                                  static_cast<SHORT>(record.length), 0, -1, -1, -1, -1)))
      return hr;
    m_records.push_back(std::move(record));
  }

  m_rows.Release();
  CComPtr<IRfcType> tableType;
  if (FAILED(hr = CreateRfcType(&tableType))) return hr;
  if (FAILED(hr = tableType->DefineTable(table, rowType))) return hr;
  CComPtr<CRfcRows> rows;
  if (FAILED(hr = CRfcRows::CreateInstance(&rows.p))) return hr;
  if (FAILED(hr = rows->put_RfcType(tableType))) return hr;
  m_rows = rows;

  Trace(u"got %i rows with %i fields, parsing...\n", dataCount, fieldCount);
  if (dataCount > 0 && FAILED(hr = SplitRows(data, rows, dataCount, raw))) return hr;
  // The data lines are the reader's own; they go once they are split.
  if (FAILED(hr = data->RemoveAll())) return hr;

  Trace(u"CTableReader::Read(): leaving\n");
  return S_OK;
}

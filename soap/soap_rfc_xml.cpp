#include "soap/soap_rfc_xml.h"

#include <algorithm>
#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <locale.h>
#include <memory>
#include <vector>

#include <boost/format.hpp>
#include <rapidxml/rapidxml.hpp>
#include <rapidxml/rapidxml_print.hpp>

#include "model/model.h"
#include "model/row_store.h"
#include "platform/comdef.h"
#include "platform/oleauto.h"
#include "abap/error_record.h"
#include "abap/field_path.h"
#include "abap/scalar_conversion.h"
#include "runtime/base64.h"
#include "runtime/exceptions.h"
#include "runtime/trace.h"
#include "runtime/xml_depth.h"
#include "platform/unicode.h"
#include "soap/xml_ns.h"

namespace SoapRfcXML {

namespace {

// Deeper answers are refused before parsing: the parser recurses per level.
constexpr size_t kMaxResponseDepth = 256;

bool TracesInformation() { return TraceIsOpen() && TraceLevel() >= TRACE_INFORMATION; }

void Check(HRESULT hr, const char* function) {
  if (FAILED(hr)) {
    TraceResult(hr, function, __FILE__, __LINE__);
    throw CXCOMError(hr);
  }
}

template <class T>
void Require(const T* p) {
  if (!p) throw _com_error(E_POINTER);
}

[[noreturn]] void SoapError(const std::string& text) { throw CXVeltrane(CXVeltrane::SOAP_ERROR, Utf8ToWide(text)); }

// ---------------------------------------------------------------- values

std::string DateText(const VARIANT& value) {
  if (value.vt == VT_NULL) return {};
  CComVariant copy(value);
  char16_t chars[8];
  RfcVariantToDate(chars, &copy, kSoapDateSpelling);
  return std::string(chars, chars + 8);
}

std::string TimeText(const VARIANT& value) {
  if (value.vt == VT_NULL) return {};
  CComVariant copy(value);
  char16_t chars[6];
  RfcVariantToTime(chars, &copy);
  std::string text(6, '0');
  for (int i = 0; i < 6; ++i) text[i] = static_cast<char>(chars[i]);
  return text;
}

std::string BinaryText(const VARIANT& value) {
  CComVariant copy;
  if (FAILED(VariantChangeType(&copy, &value, 0, VT_ARRAY | VT_UI1)))
    throw CXVeltrane(CXVeltrane::VARIANTARRAY_EXCEPTION, u"cannot convert to byte array",
                     u"RfcValueToString(),TYPE_BYTE", VariantTraceText(value));
  SAFEARRAY* array = copy.parray;
  if (!array) return {};
  size_t count = 1;
  UINT dims = SafeArrayGetDim(array);
  for (UINT d = 1; d <= dims; ++d) {
    LONG lower = 0, upper = -1;
    if (FAILED(SafeArrayGetLBound(array, d, &lower)) || FAILED(SafeArrayGetUBound(array, d, &upper)))
      throw CXVeltrane(CXVeltrane::VARIANTARRAY_EXCEPTION, u"invalid array bounds", u"RfcValueToString(),TYPE_BYTE");
    count *= upper >= lower ? static_cast<size_t>(upper - lower + 1) : 0;
  }
  if (dims == 0) count = 0;
  void* data = nullptr;
  if (FAILED(SafeArrayAccessData(array, &data)))
    throw CXVeltrane(CXVeltrane::VARIANTARRAY_EXCEPTION, u"cannot access byte array", u"RfcValueToString(),TYPE_BYTE");
  std::string text = Base64Encode(static_cast<const uint8_t*>(data), count);
  SafeArrayUnaccessData(array);
  return text;
}

std::string FloatText(const VARIANT& value) {
  CComVariant copy;
  if (FAILED(VariantChangeType(&copy, &value, 0, VT_R8)))
    throw CXVeltrane(CXVeltrane::NUMERIC_CONVERSION, u"cannot convert to float", u"RfcValueToString(),TYPE_FLOAT",
                     VariantTraceText(value));
  // "%f" in the C locale: a point as the separator whatever the process
  // locale says.
  static locale_t cLocale = newlocale(LC_NUMERIC_MASK, "C", static_cast<locale_t>(0));
  locale_t previous = uselocale(cLocale);
  int size = std::snprintf(nullptr, 0, "%f", copy.dblVal);
  std::string text(static_cast<size_t>(size > 0 ? size : 0), '\0');
  std::snprintf(text.data(), text.size() + 1, "%f", copy.dblVal);
  uselocale(previous);
  return text;
}

std::string IntegerText(const VARIANT& value) {
  CComVariant copy;
  if (FAILED(VariantChangeType(&copy, &value, 0, VT_I8)))
    throw CXVeltrane(CXVeltrane::NUMERIC_CONVERSION, u"cannot convert to int", u"RfcValueToString(),TYPE_INT",
                     VariantTraceText(value));
  char text[16];
  std::snprintf(text, sizeof text, "%u", static_cast<unsigned>(static_cast<uint32_t>(copy.llVal)));
  return text;
}

std::string StringText(const VARIANT& value) {
  if (value.vt == VT_BSTR) return WideToUtf8(BstrView(value.bstrVal));
  CComVariant copy;
  if (FAILED(VariantChangeType(&copy, &value, 0, VT_BSTR)))
    throw CXVeltrane(CXVeltrane::STRING_CONVERSION, u"cannot convert to string", u"RfcValueToString(),TYPE_CHAR",
                     VariantTraceText(value));
  return WideToUtf8(BstrView(copy.bstrVal));
}

bool AllDigits(std::u16string_view text) {
  for (char16_t c : text)
    if (c < u'0' || c > u'9') return false;
  return true;
}

unsigned Number(std::u16string_view digits) {
  unsigned n = 0;
  for (char16_t c : digits) n = n * 10 + static_cast<unsigned>(c - u'0');
  return n;
}

CComVariant DateValue(std::u16string_view text) {
  CComVariant result;
  if (text.size() != 10 || text[4] != u'-' || text[7] != u'-' || !AllDigits(text.substr(0, 4)) ||
      !AllDigits(text.substr(5, 2)) || !AllDigits(text.substr(8, 2)))
    return result;
  SYSTEMTIME st{};
  st.wYear = static_cast<WORD>(Number(text.substr(0, 4)));
  st.wMonth = static_cast<WORD>(Number(text.substr(5, 2)));
  st.wDay = static_cast<WORD>(Number(text.substr(8, 2)));
  // The platform's conversion rolls a month or day 0 back into the
  // previous one; the initial date 0000-00-00 must read as no date.
  if (st.wMonth == 0 || st.wDay == 0) return result;
  DOUBLE date = 0;
  if (!SystemTimeToVariantTime(&st, &date)) return result;
  result.vt = VT_DATE;
  result.date = date;
  return result;
}

CComVariant TimeValue(std::u16string_view text) {
  CComVariant result;
  if (text.size() != 8 || text[2] != u':' || text[5] != u':' || !AllDigits(text.substr(0, 2)) ||
      !AllDigits(text.substr(3, 2)) || !AllDigits(text.substr(6, 2)))
    return result;
  char clock[16];
  std::snprintf(clock, sizeof clock, "%02u:%02u:%02u", Number(text.substr(0, 2)), Number(text.substr(3, 2)),
                Number(text.substr(6, 2)));
  result = CComVariant(Utf8ToWide(clock));
  VariantChangeType(&result, &result, 0, VT_DATE);
  return result;
}

CComVariant BinaryValue(std::u16string_view text) {
  std::vector<uint8_t> bytes = Base64DecodeSkipping(text);
  SAFEARRAY* array = SafeArrayCreateVector(VT_UI1, 0, static_cast<ULONG>(bytes.size()));
  if (!array) throw _com_error(E_OUTOFMEMORY);
  if (!bytes.empty()) {
    void* data = nullptr;
    if (FAILED(SafeArrayAccessData(array, &data))) {
      SafeArrayDestroy(array);
      throw CXVeltrane(CXVeltrane::VARIANTARRAY_EXCEPTION, u"cannot access byte array",
                       u"RfcValueFromString(),TYPE_BYTE");
    }
    std::memcpy(data, bytes.data(), bytes.size());
    SafeArrayUnaccessData(array);
  }
  CComVariant result;
  result.vt = VT_ARRAY | VT_UI1;
  result.parray = array;
  return result;
}

CComVariant FloatValue(std::u16string_view text) {
  std::string narrow;
  narrow.reserve(text.size());
  for (char16_t c : text) narrow.push_back(c < 0x80 ? static_cast<char>(c) : '\x7f');
  static locale_t cLocale = newlocale(LC_NUMERIC_MASK, "C", static_cast<locale_t>(0));
  return CComVariant(strtod_l(narrow.c_str(), nullptr, cLocale));
}

CComVariant IntegerValue(std::u16string_view text) {
  CComVariant source(text);
  CComVariant result;
  if (FAILED(VariantChangeType(&result, &source, 0, VT_I8)))
    throw CXVeltrane(CXVeltrane::NUMERIC_CONVERSION, u"cannot convert to int", u"RfcValueFromString(),TYPE_INT",
                     std::u16string(text));
  return result;
}

// Types whose answer text is taken as it stands.
bool IsTextType(ABAPTYPE type) {
  switch (type) {
    case TYPE_DATE:
    case TYPE_TIME:
    case TYPE_BYTE:
    case TYPE_XSTRING:
    case TYPE_FLOAT:
    case TYPE_INT:
    case TYPE_INT2:
    case TYPE_INT1: return false;
    default: return true;
  }
}

// A BSTR of UTF-8 text, decoded in place.
BSTR BstrFromUtf8(std::string_view text) {
  BSTR s = Utf8ToBstr(text);
  if (!s) throw _com_error(E_OUTOFMEMORY);
  return s;
}

// ---------------------------------------------------------------- fields

struct FieldInfo {
  CComBSTR name;
  CComPtr<IRfcType> type;
  RFCTYPEKIND kind = RFCTYPEKIND_UNDEFINED;
  ABAPTYPE scalarType = TYPE_CHAR;
};

FieldInfo Describe(IRfcField* field, bool withScalarType) {
  Require(field);
  FieldInfo info;
  Check(field->get_name(&info.name), "IRfcField::get_name");
  Check(field->get_RfcType(&info.type), "IRfcField::get_RfcType");
  if (info.type) {
    Check(info.type->get_Kind(&info.kind), "IRfcType::get_Kind");
    if (withScalarType && info.kind == RFCTYPEKIND_SCALAR)
      Check(info.type->get_ScalarType(&info.scalarType), "IRfcType::get_ScalarType");
  }
  return info;
}

CComPtr<IRfcFields> FieldsOf(IRfcField* field, const CComBSTR& name) {
  CComPtr<IRfcFields> fields;
  HRESULT hr = field->get_Fields(&fields);
  if (FAILED(hr)) {
    TraceLog(TRACE_ERROR, boost::format("%1%: get_Fields()") % WideToUtf8Lossy(BstrView(name)), __func__, __FILE__,
             __LINE__);
    throw CXCOMError(hr);
  }
  if (!fields) throw _com_error(E_POINTER);
  return fields;
}

CComPtr<IRfcRows> RowsOf(IRfcField* field) {
  CComPtr<IRfcRows> rows;
  Check(field->get_Rows(&rows), "IRfcField::get_Rows");
  if (!rows) throw _com_error(E_POINTER);
  return rows;
}

CComPtr<IRfcField> FieldAt(IRfcFields* fields, LONG index) {
  CComPtr<IRfcField> field;
  Check(fields->get_Item(CComVariant(index), &field), "IRfcFields::get_Item");
  if (!field) throw _com_error(E_POINTER);
  return field;
}

LONG CountOf(IRfcFields* fields) {
  LONG count = 0;
  Check(fields->get_Count(&count), "IRfcFields::get_Count");
  return count;
}

XmlNode* AppendElement(XmlDocument& doc, XmlNode* parent, std::u16string_view name, std::string_view value = {}) {
  std::string utf8 = WideToUtf8(name);
  const char* n = utf8.empty() ? "" : doc.allocate_string(utf8.data(), utf8.size());
  const char* v = value.empty() ? "" : doc.allocate_string(value.data(), value.size());
  XmlNode* node = doc.allocate_node(rapidxml::node_element, n, v, utf8.size(), value.size());
  parent->append_node(node);
  return node;
}

// ---------------------------------------------------------------- reading

[[noreturn]] void MissingElement(const FieldPath& where) {
  const std::string path = WideToUtf8Lossy(where.Text());
  std::string text;
  if (where.Group()) {
    text = boost::str(boost::format("Invalid Response: element %1% of %2% parameter %3% not found") % path %
                      WideToUtf8Lossy(where.Group()) % WideToUtf8Lossy(where.ParameterName()));
  } else {
    text = boost::str(boost::format("Invalid Response: element %1% not found") % path);
  }
  TraceLog(TRACE_ERROR, text, nullptr, __FILE__, __LINE__);
  SoapError(text);
}

void ReadField(const XmlNode* parent, IRfcField* field, const FieldPath& where);

// Field is IRfcField, or CRfcField for a cell of RfcRowsAddRows.
template <class Field>
void PutText(Field* field, ABAPTYPE type, std::string_view text) {
  VARIANT value;
  VariantInit(&value);
  if (IsTextType(type)) {
    value.vt = VT_BSTR;
    value.bstrVal = BstrFromUtf8(text);
  } else {
    CComVariant converted = RfcValueFromString(type, Utf8ToWide(text));
    converted.Detach(&value);
  }
  // The field takes the value over; it is cleared here only on failure.
  HRESULT hr = RfcFieldAttachValue(field, &value);
  VariantClear(&value);
  Check(hr, "IRfcField::put_value");
}

void ReadStruct(const XmlNode* node, IRfcFields* fields, const FieldPath* parent) {
  LONG count = CountOf(fields);
  for (LONG i = 1; i <= count; ++i) {
    CComPtr<IRfcField> field = FieldAt(fields, i);
    ReadField(node, field, FieldPath::Field(parent, {}));
  }
}

// One column of a table's rows: rows built from one row type have the same
// members, so names and types are read from the first row only.
struct Column {
  std::string name;
  CComBSTR wideName;
  RFCTYPEKIND kind = RFCTYPEKIND_UNDEFINED;
  ABAPTYPE scalarType = TYPE_CHAR;
};

void DescribeColumn(IRfcField* field, Column& c) {
  FieldInfo info = Describe(field, true);
  c.name = WideToUtf8(BstrView(info.name));
  c.wideName = info.name;
  c.kind = info.kind;
  c.scalarType = info.scalarType;
}

IRfcField* AsInterface(IRfcField* field) { return field; }
IRfcField* AsInterface(CRfcField* field) { return RfcFieldInterface(field); }

template <class Field>
void ReadCell(const XmlNode* child, Field* cell, const Column& c, const FieldPath& rowWhere) {
  if (c.kind != RFCTYPEKIND_SCALAR) {
    ReadField(child, AsInterface(cell), FieldPath::Field(&rowWhere, {}));
    return;
  }
  const XmlNode* element = veltrane::xmlns::FirstChild(child, c.name);
  if (!element) {
    MissingElement(FieldPath::Field(&rowWhere, BstrView(c.wideName)));
  }
  PutText(cell, c.scalarType, veltrane::xmlns::Text(element));
}

// Rows appended and read one by one, through the interfaces.
void ReadTableRows(const XmlNode* node, IRfcRows* rows, const FieldPath& where) {
  std::vector<Column> columns;
  bool planned = false;
  LONG rowNumber = 0;
  for (const XmlNode* child = node->first_node(); child; child = child->next_sibling()) {
    if (child->type() != rapidxml::node_element) continue;
    ++rowNumber;
    CComPtr<IRfcFields> row;
    Check(rows->AddRow(&row), "IRfcRows::AddRow");
    if (!row) throw _com_error(E_POINTER);
    LONG count = CountOf(row);
    if (!planned || static_cast<size_t>(count) != columns.size()) {
      columns.assign(static_cast<size_t>(count), Column{});
      for (LONG i = 1; i <= count; ++i) DescribeColumn(FieldAt(row, i), columns[static_cast<size_t>(i - 1)]);
      planned = true;
    }
    const FieldPath rowWhere = FieldPath::Row(&where, rowNumber);
    for (LONG i = 1; i <= count; ++i) ReadCell(child, FieldAt(row, i).p, columns[static_cast<size_t>(i - 1)], rowWhere);
  }
}

// Rows of scalars go straight into the rows' store: texts decoded into its
// arena, other values converted without a string of their own. Rows are
// appended a lot at a time, so that the row elements are still in the cache
// when they are read. False, with nothing added, when the rows have no store
// for their type.
bool ReadStoredTable(const XmlNode* node, IRfcRows* rows, const FieldPath& where) {
  constexpr size_t kLotRows = 256;
  struct StoredColumn {
    std::string name;
    std::u16string_view wideName;
    ABAPTYPE type;
    bool text;
  };
  std::vector<StoredColumn> columns;
  bool distinct = true;
  std::vector<const XmlNode*> lot;
  lot.reserve(kLotRows);
  const XmlNode* next = node->first_node();
  LONG rowNumber = 0;  // rows read, the one being read included
  char16_t small[64];
  for (;;) {
    lot.clear();
    for (; next && lot.size() < kLotRows; next = next->next_sibling())
      if (next->type() == rapidxml::node_element) lot.push_back(next);
    if (lot.empty()) return true;
    RowStore* store = nullptr;
    size_t first = 0;
    HRESULT hr = RfcRowsAppendStored(rows, static_cast<LONG>(lot.size()), &store, &first);
    if (hr == E_NOINTERFACE && rowNumber == 0) return false;
    Check(hr, "IRfcRows::AddRow");
    if (columns.empty()) {
      columns.resize(store->Width());
      for (size_t c = 0; c < columns.size(); ++c) {
        const RowStore::Column& column = store->ColumnAt(c);
        columns[c] = {WideToUtf8(column.name), column.name, column.scalarType, IsTextType(column.scalarType)};
        for (size_t d = 0; d < c && distinct; ++d) distinct = columns[d].name != columns[c].name;
      }
    }
    size_t done = 0;
    try {
      for (; done < lot.size(); ++done) {
        const XmlNode* row = lot[done];
        ++rowNumber;
        const size_t storeRow = first + done;
        // Members usually stand in the order of the columns: while each one
        // was the next element, the next column is looked for there first.
        const XmlNode* member = row->first_node();
        for (size_t c = 0; c < columns.size(); ++c) {
          const StoredColumn& column = columns[c];
          while (member && member->type() != rapidxml::node_element) member = member->next_sibling();
          const XmlNode* element = nullptr;
          if (distinct && member && veltrane::xmlns::Name(member) == column.name) {
            element = member;
            member = member->next_sibling();
          } else {
            element = veltrane::xmlns::FirstChild(row, column.name);
            member = nullptr;
          }
          if (!element) {
            const FieldPath rowWhere = FieldPath::Row(&where, rowNumber);
            MissingElement(FieldPath::Field(&rowWhere, column.wideName));
          }
          const std::string_view text = veltrane::xmlns::Text(element);
          if (column.text) {
            store->PutUtf8(storeRow, c, text);
            continue;
          }
          std::u16string large;
          std::u16string_view wide;
          if (text.size() <= std::size(small)) {
            wide = std::u16string_view(small, DecodeUtf8(text, small));
          } else {
            large = Utf8ToWide(text);
            wide = large;
          }
          CComVariant value = RfcValueFromString(column.type, wide);
          Check(store->Take(storeRow, c, &value), "IRfcField::put_value");
        }
      }
    } catch (...) {
      // The table ends as if the rows had been appended one by one: the row
      // that failed stays, the rows of its lot behind it go.
      for (LONG position = rowNumber + static_cast<LONG>(lot.size() - done - 1); position > rowNumber; --position)
        RfcRowsRemove(rows, position);
      throw;
    }
  }
}

// The model's own rows are created a lot at a time, a lot being as many rows
// as have this many cells: the row elements are still in the cache when the
// rows are filled.
constexpr size_t kLotCells = 512;

void ReadTable(const XmlNode* node, IRfcField* field, const FieldPath& where) {
  CComPtr<IRfcRows> rows = RowsOf(field);
  Check(rows->RemoveAll(), "IRfcRows::RemoveAll");
  if (ReadStoredTable(node, rows, where)) return;
  std::vector<CRfcField*> cells;
  std::vector<const XmlNode*> lot;
  cells.reserve(kLotCells);
  lot.reserve(kLotCells);
  const XmlNode* next = node->first_node();
  std::vector<Column> columns;
  size_t lotRows = 1;  // until the width of a row is known
  size_t width = 0;
  LONG rowNumber = 0;
  for (;;) {
    lot.clear();
    for (; next && lot.size() < lotRows; next = next->next_sibling())
      if (next->type() == rapidxml::node_element) lot.push_back(next);
    if (lot.empty()) return;
    cells.clear();
    HRESULT hr = RfcRowsAddRows(rows, static_cast<LONG>(lot.size()), &cells);
    if (rowNumber == 0) {
      if (hr == E_NOINTERFACE) return ReadTableRows(node, rows, where);
      Check(hr, "IRfcRows::AddRow");
      width = cells.size() / lot.size();
      columns.resize(width);
      for (size_t i = 0; i < width; ++i) DescribeColumn(RfcFieldInterface(cells[i]), columns[i]);
      lotRows = std::max<size_t>(1, kLotCells / std::max<size_t>(1, width));
    } else {
      Check(hr, "IRfcRows::AddRow");
    }
    if (cells.size() != lot.size() * width) throw _com_error(E_UNEXPECTED);
    // When a row fails, the rows of its lot behind it are removed again:
    // the table ends as if the rows had been appended one by one.
    size_t done = 0;
    try {
      for (; done < lot.size(); ++done) {
        const FieldPath rowWhere = FieldPath::Row(&where, ++rowNumber);
        CRfcField* const* row = cells.data() + done * width;
        for (size_t i = 0; i < width; ++i) ReadCell(lot[done], row[i], columns[i], rowWhere);
      }
    } catch (...) {
      for (LONG position = rowNumber + static_cast<LONG>(lot.size() - done - 1); position > rowNumber; --position)
        RfcRowsRemove(rows, position);
      throw;
    }
  }
}

// where.field is filled here from the field's name.
void ReadField(const XmlNode* parent, IRfcField* field, const FieldPath& whereIn) {
  FieldInfo info = Describe(field, true);
  if (info.kind != RFCTYPEKIND_SCALAR && info.kind != RFCTYPEKIND_STRUCT && info.kind != RFCTYPEKIND_TABLE) return;
  const FieldPath where = whereIn.Named(BstrView(info.name));
  const XmlNode* node = veltrane::xmlns::FirstChild(parent, WideToUtf8(BstrView(info.name)));
  if (!node) MissingElement(where);
  switch (info.kind) {
    case RFCTYPEKIND_SCALAR: PutText(field, info.scalarType, veltrane::xmlns::Text(node)); break;
    case RFCTYPEKIND_STRUCT: ReadStruct(node, FieldsOf(field, info.name), &where); break;
    default: ReadTable(node, field, where); break;
  }
}

void ReadParams(const XmlNode* response, IRfcParameters* params, const char16_t* groupName) {
  Require(params);
  LONG count = 0;
  Check(params->get_Count(&count), "IRfcParameters::get_Count");
  for (LONG i = 1; i <= count; ++i) {
    CComPtr<IRfcParameter> param;
    Check(params->get_Item(CComVariant(i), &param), "IRfcParameters::get_Item");
    if (!param) throw _com_error(E_POINTER);
    CComPtr<IRfcField> field;
    Check(param->get_InternalField(&field), "IRfcParameter::get_InternalField");
    if (!field) throw _com_error(E_POINTER);
    CComBSTR name;
    Check(param->get_name(&name), "IRfcParameter::get_name");
    ReadField(response, field, FieldPath::Parameter(groupName, BstrView(name)));
  }
}

CComPtr<IRfcParameters> Group(IFunctionCall* call, HRESULT (STDMETHODCALLTYPE IFunctionCall::*get)(IRfcParameters**),
                              const char* what) {
  CComPtr<IRfcParameters> params;
  Check((call->*get)(&params), what);
  if (!params) throw _com_error(E_POINTER);
  return params;
}

std::u16string TextOf(const XmlNode* node) {
  if (!node) return {};
  std::string_view text = veltrane::xmlns::Text(node);
  if (text.empty()) {
    // A CDATA section is no element value in this parser.
    for (const XmlNode* child = node->first_node(); child; child = child->next_sibling())
      if (child->type() == rapidxml::node_cdata)
        return Utf8ToWide(std::string_view(child->value(), child->value_size()));
  }
  return Utf8ToWide(text);
}

// The ABAP message of an exception element, with the variables of its
// "Attributes", for the trace.
RfcErrorRecord MessageRecord(const XmlNode* exception, const XmlNode* message) {
  RfcErrorRecord record;
  record.messageClass = TextOf(veltrane::xmlns::FirstChild(message, "ID"));
  record.messageType = TextOf(veltrane::xmlns::FirstChild(message, "Type"));
  record.messageNumber = TextOf(veltrane::xmlns::FirstChild(message, "Number"));
  if (const XmlNode* attributes = veltrane::xmlns::FirstChild(exception, "Attributes")) {
    record.messageV1 = TextOf(veltrane::xmlns::FirstChild(attributes, "V1"));
    record.messageV2 = TextOf(veltrane::xmlns::FirstChild(attributes, "V2"));
    record.messageV3 = TextOf(veltrane::xmlns::FirstChild(attributes, "V3"));
    record.messageV4 = TextOf(veltrane::xmlns::FirstChild(attributes, "V4"));
  }
  return record;
}

[[noreturn]] void ThrowFault(const XmlNode* body, const std::string& function) {
  const XmlNode* fault = veltrane::xmlns::FirstChildNs(body, kEnvelopeNamespace, "Fault");
  if (!fault) SoapError("Invalid Response: Function Result not found");
  std::u16string faultCode = TextOf(veltrane::xmlns::FirstChild(fault, "faultcode"));
  std::u16string faultString = TextOf(veltrane::xmlns::FirstChild(fault, "faultstring"));
  const XmlNode* detail = veltrane::xmlns::FirstChild(fault, "detail");
  const XmlNode* exception = veltrane::xmlns::FirstChildNs(detail, kRfcNamespace, function + ".Exception");
  if (exception) {
    std::u16string text = u" Number:000";
    if (const XmlNode* message = veltrane::xmlns::FirstChild(exception, "Message")) {
      std::string formatted = boost::str(boost::format("ID:%1% Type: %2% Number:%3% %4%") %
                                         WideToUtf8(TextOf(veltrane::xmlns::FirstChild(message, "ID"))) %
                                         WideToUtf8(TextOf(veltrane::xmlns::FirstChild(message, "Type"))) %
                                         WideToUtf8(TextOf(veltrane::xmlns::FirstChild(message, "Number"))) %
                                         WideToUtf8(TextOf(veltrane::xmlns::FirstChild(exception, "Text"))));
      text = Utf8ToWide(formatted);
      TraceAbapMessage(MessageRecord(exception, message));
    } else {
      text = TextOf(veltrane::xmlns::FirstChild(exception, "Text"));
    }
    throw CXSoapErrorResponse(RFCERROR_APPLICATION_EXCEPTION, faultCode, faultString, text);
  }
  throw CXSoapErrorResponse(RFCERROR_COMMUNICATION, faultCode, faultString, TextOf(detail));
}

}  // namespace

// ---------------------------------------------------------------- writer

std::string RfcValueToString(ABAPTYPE type, const VARIANT& value) {
  if (value.vt == VT_EMPTY || value.vt == VT_ERROR) return {};
  switch (type) {
    case TYPE_DATE: return DateText(value);
    case TYPE_TIME: return TimeText(value);
    case TYPE_BYTE:
    case TYPE_XSTRING: return BinaryText(value);
    case TYPE_FLOAT: return FloatText(value);
    case TYPE_INT:
    case TYPE_INT2:
    case TYPE_INT1: return IntegerText(value);
    default: return StringText(value);
  }
}

std::string RfcValueToString(IRfcType* type, const VARIANT& value) {
  Require(type);
  ABAPTYPE abapType = TYPE_CHAR;
  Check(type->get_ScalarType(&abapType), "IRfcType::get_ScalarType");
  return RfcValueToString(abapType, value);
}

void PutScalarValue(XmlDocument& doc, XmlNode* parent, IRfcField* field) {
  Require(field);
  CComBSTR name;
  Check(field->get_name(&name), "IRfcField::get_name");
  CComVariant value;
  Check(field->get_value(&value), "IRfcField::get_value");
  CComPtr<IRfcType> type;
  Check(field->get_RfcType(&type), "IRfcField::get_RfcType");
  std::string text = RfcValueToString(type, value);
  AppendElement(doc, parent, BstrView(name), text);
}

void PutStructValue(XmlDocument& doc, XmlNode* element, IRfcFields* fields) {
  Require(fields);
  LONG count = CountOf(fields);
  for (LONG i = 1; i <= count; ++i) PutField(doc, element, FieldAt(fields, i));
}

// The columns of stored rows as their fields would describe themselves:
// usable when every column's type is still a scalar.
struct StoredColumns {
  struct Column {
    std::u16string_view name;
    IRfcType* type;
  };
  std::vector<Column> columns;
  const RowStore* of = nullptr;
  bool scalars = false;

  bool Read(const RowStore& store) {
    if (of == &store) return scalars;
    of = &store;
    columns.clear();
    scalars = true;
    for (size_t c = 0; c < store.Width() && scalars; ++c) {
      const RowStore::Column& column = store.ColumnAt(c);
      RFCTYPEKIND kind = RFCTYPEKIND_UNDEFINED;
      scalars = SUCCEEDED(column.type->get_Kind(&kind)) && kind == RFCTYPEKIND_SCALAR;
      columns.push_back({column.name, column.type.p});
    }
    return scalars;
  }
};

void PutField(XmlDocument& doc, XmlNode* parent, IRfcField* field) {
  FieldInfo info = Describe(field, false);
  if (TracesInformation())
    TraceLog(TRACE_INFORMATION, boost::format("PutField: %1% (%2%)") % WideToUtf8Lossy(BstrView(info.name)) % info.kind,
             nullptr, __FILE__, __LINE__);
  switch (info.kind) {
    case RFCTYPEKIND_SCALAR: PutScalarValue(doc, parent, field); break;
    case RFCTYPEKIND_STRUCT: {
      CComPtr<IRfcFields> fields = FieldsOf(field, info.name);
      PutStructValue(doc, AppendElement(doc, parent, BstrView(info.name)), fields);
      break;
    }
    case RFCTYPEKIND_TABLE: {
      CComPtr<IRfcRows> rows = RowsOf(field);
      XmlNode* table = AppendElement(doc, parent, BstrView(info.name));
      LONG count = 0;
      Check(rows->get_Count(&count), "IRfcRows::get_Count");
      StoredColumns stored;
      for (LONG i = 1; i <= count; ++i) {
        // A row no client has reached is written from its cells, as its
        // fields would write it; with the trace at information level every
        // field goes its usual way, so that the trace shows each.
        size_t storeRow = 0;
        const RowStore* store =
            TracesInformation() ? nullptr : RfcRowsStoredRow(rows, static_cast<size_t>(i - 1), &storeRow);
        if (store && stored.Read(*store)) {
          XmlNode* item = doc.allocate_node(rapidxml::node_element, "item", "", 4, 0);
          table->append_node(item);
          for (size_t c = 0; c < stored.columns.size(); ++c) {
            VARIANT value;
            store->View(storeRow, c, &value);
            AppendElement(doc, item, stored.columns[c].name, RfcValueToString(stored.columns[c].type, value));
          }
          continue;
        }
        CComPtr<IRfcFields> row;
        Check(rows->get_Item(i, &row), "IRfcRows::get_Item");
        if (!row) throw _com_error(E_POINTER);
        XmlNode* item = doc.allocate_node(rapidxml::node_element, "item", "", 4, 0);
        table->append_node(item);
        PutStructValue(doc, item, row);
      }
      break;
    }
    default:
      // Deep structures and untyped fields do not travel over SOAP.
      break;
  }
}

void PutParams(XmlDocument& doc, XmlNode* function, IRfcParameters* params, const char16_t* groupName) {
  Require(params);
  LONG count = 0;
  Check(params->get_Count(&count), "IRfcParameters::get_Count");
  for (LONG i = 1; i <= count; ++i) {
    CComPtr<IRfcParameter> param;
    HRESULT hr = params->get_Item(CComVariant(i), &param);
    if (FAILED(hr)) {
      TraceLog(TRACE_ERROR, boost::format("%1% parameter %2%: get_Item()") % WideToUtf8Lossy(groupName) % i, __func__,
               __FILE__, __LINE__);
      Check(hr, "IRfcParameters::get_Item");
    }
    if (!param) throw _com_error(E_POINTER);
    VARIANT_BOOL empty = VARIANT_FALSE, requested = VARIANT_FALSE;
    Check(param->get_IsEmpty(&empty), "IRfcParameter::get_IsEmpty");
    Check(param->get_IsRequested(&requested), "IRfcParameter::get_IsRequested");
    if (empty != VARIANT_FALSE && requested != VARIANT_TRUE) continue;
    CComPtr<IRfcField> field;
    Check(param->get_InternalField(&field), "IRfcParameter::get_InternalField");
    if (!field) throw _com_error(E_POINTER);
    PutField(doc, function, field);
  }
}

std::string BuildEnvelope(IFunctionCall* call) {
  Require(call);
  XmlDocument doc;
  XmlNode* envelope = doc.allocate_node(rapidxml::node_element, "S:Envelope");
  envelope->append_attribute(doc.allocate_attribute("xmlns:S", kEnvelopeNamespace));
  envelope->append_attribute(doc.allocate_attribute("xmlns:a", kRfcNamespace));
  XmlNode* body = doc.allocate_node(rapidxml::node_element, "S:Body");
  CComBSTR name;
  Check(call->get_Function(&name), "IFunctionCall::get_Function");
  std::string functionName = "a:" + WideToUtf8(BstrView(name));
  XmlNode* function =
      doc.allocate_node(rapidxml::node_element, doc.allocate_string(functionName.data(), functionName.size()), "",
                        functionName.size(), 0);
  PutParams(doc, function, Group(call, &IFunctionCall::get_Importing, "IFunctionCall::get_Importing"), u"IMPORTING");
  PutParams(doc, function, Group(call, &IFunctionCall::get_Changing, "IFunctionCall::get_Changing"), u"CHANGING");
  PutParams(doc, function, Group(call, &IFunctionCall::get_Tables, "IFunctionCall::get_Tables"), u"TABLES");
  body->append_node(function);
  envelope->append_node(body);
  doc.append_node(envelope);
  std::string text;
  rapidxml::print(std::back_inserter(text), doc, 0);
  if (TracesInformation())
    TraceLog(TRACE_INFORMATION, boost::format("built envelope\n%1%") % text, nullptr, __FILE__, __LINE__);
  return text;
}

// ---------------------------------------------------------------- reader

CComVariant RfcValueFromString(ABAPTYPE type, std::u16string_view text) {
  switch (type) {
    case TYPE_DATE: return DateValue(text);
    case TYPE_TIME: return TimeValue(text);
    case TYPE_BYTE:
    case TYPE_XSTRING: return BinaryValue(text);
    case TYPE_FLOAT: return FloatValue(text);
    case TYPE_INT:
    case TYPE_INT2:
    case TYPE_INT1: return IntegerValue(text);
    default: return CComVariant(text);
  }
}

CComVariant RfcValueFromString(IRfcType* type, std::u16string_view text) {
  Require(type);
  ABAPTYPE abapType = TYPE_CHAR;
  Check(type->get_ScalarType(&abapType), "IRfcType::get_ScalarType");
  return RfcValueFromString(abapType, text);
}

void GetScalarValue(const XmlNode* node, IRfcField* field) {
  FieldInfo info = Describe(field, true);
  PutText(field, info.scalarType, veltrane::xmlns::Text(node));
}

void GetStructValue(const XmlNode* node, IRfcFields* fields) {
  Require(fields);
  ReadStruct(node, fields, nullptr);
}

void GetField(const XmlNode* parent, IRfcField* field) { ReadField(parent, field, FieldPath{}); }

void GetParams(const XmlNode* response, IRfcParameters* params, const char16_t* groupName) {
  ReadParams(response, params, groupName);
}

void ParseResponse(std::string_view body, IFunctionCall* call) {
  if (TracesInformation())
    TraceLog(TRACE_INFORMATION, boost::format("Parsing response:\n%1%") % std::string(body), nullptr, __FILE__,
             __LINE__);
  Require(call);
  // The parse writes into its text: a copy, measured on the way.
  const std::unique_ptr<char[]> buffer = std::make_unique_for_overwrite<char[]>(body.size() + 1);
  XmlDocument doc;
  try {
    if (CopyElementsDeeperThan(body, buffer.get(), kMaxResponseDepth))
      throw rapidxml::parse_error("document nested too deeply", buffer.get());
    // The reader takes an element's text from its value, never from data
    // nodes, so none are made; it reads names and values by their sizes,
    // so they are not terminated.
    doc.parse<rapidxml::parse_no_data_nodes | rapidxml::parse_no_string_terminators>(buffer.get());
  } catch (const rapidxml::parse_error& e) {
    std::string text = std::string("Error parsing response: ") + e.what();
    TraceLog(TRACE_ERROR, text, nullptr, __FILE__, __LINE__);
    SoapError(text);
  }
  const XmlNode* envelope = veltrane::xmlns::FirstChildNs(&doc, kEnvelopeNamespace, "Envelope");
  if (!envelope) SoapError("Invalid Response: Envelope not found");
  const XmlNode* soapBody = veltrane::xmlns::FirstChildNs(envelope, kEnvelopeNamespace, "Body");
  if (!soapBody) SoapError("Invalid Response: Body not found");
  CComBSTR name;
  Check(call->get_Function(&name), "IFunctionCall::get_Function");
  std::string function = WideToUtf8(BstrView(name));
  const XmlNode* response = veltrane::xmlns::FirstChildNs(soapBody, kRfcNamespace, function + ".Response");
  if (!response) ThrowFault(soapBody, function);
  ReadParams(response, Group(call, &IFunctionCall::get_Exporting, "IFunctionCall::get_Exporting"), u"EXPORTING");
  ReadParams(response, Group(call, &IFunctionCall::get_Changing, "IFunctionCall::get_Changing"), u"CHANGING");
  ReadParams(response, Group(call, &IFunctionCall::get_Tables, "IFunctionCall::get_Tables"), u"TABLES");
}

}  // namespace SoapRfcXML

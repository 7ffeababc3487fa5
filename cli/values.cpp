#include "values.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <limits>

#include "args.h"
#include "base64.h"
#include "failure.h"
#include "text.h"

namespace veltrane::cli {

namespace {

[[noreturn]] void bad(const std::string& path, const std::string& what) { throw UsageError(path + ": " + what); }

std::string describe(const Json& v) {
  std::string text = v.dump();
  if (text.size() > 60) text = text.substr(0, 57) + "...";
  return text;
}

bool allDigits(std::string_view s) { return !s.empty() && s.find_first_not_of("0123456789") == std::string_view::npos; }

int daysInMonth(int year, int month) {
  static const int days[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  if (month == 2 && ((year % 4 == 0 && year % 100 != 0) || year % 400 == 0)) return 29;
  return days[month - 1];
}

// "YYYY-MM-DD" or "YYYYMMDD" to the eight digits the back ends take.
std::string dateText(const std::string& text, const std::string& path) {
  std::string digits = text;
  if (text.size() == 10 && text[4] == '-' && text[7] == '-')
    digits = text.substr(0, 4) + text.substr(5, 2) + text.substr(8, 2);
  if (digits.size() != 8 || !allDigits(digits)) bad(path, "'" + text + "' is not a date (YYYY-MM-DD)");
  if (digits == "00000000") return digits;
  const int year = std::stoi(digits.substr(0, 4)), month = std::stoi(digits.substr(4, 2)),
            day = std::stoi(digits.substr(6, 2));
  if (month < 1 || month > 12 || day < 1 || day > daysInMonth(year, month))
    bad(path, "'" + text + "' is not a valid date");
  return digits;
}

// "HH:MM:SS" or "HHMMSS" to six digits.
std::string timeText(const std::string& text, const std::string& path) {
  std::string digits = text;
  if (text.size() == 8 && text[2] == ':' && text[5] == ':')
    digits = text.substr(0, 2) + text.substr(3, 2) + text.substr(6, 2);
  if (digits.size() != 6 || !allDigits(digits)) bad(path, "'" + text + "' is not a time (HH:MM:SS)");
  if (std::stoi(digits.substr(0, 2)) > 23 || std::stoi(digits.substr(2, 2)) > 59 || std::stoi(digits.substr(4, 2)) > 59)
    bad(path, "'" + text + "' is not a valid time");
  return digits;
}

bool isDecimalText(std::string_view s) {
  if (!s.empty() && (s.front() == '+' || s.front() == '-')) s.remove_prefix(1);
  bool digit = false, point = false;
  for (char c : s) {
    if (c >= '0' && c <= '9') {
      digit = true;
    } else if (c == '.' && !point) {
      point = true;
    } else {
      return false;
    }
  }
  return digit;
}

// A JSON scalar as the text of a character-like field.
std::string scalarText(const Json& v, const std::string& path) {
  if (v.is_string()) return v.get<std::string>();
  if (v.is_boolean()) return v.get<bool>() ? "X" : "";
  if (v.is_number()) return v.dump();
  bad(path, "expects a single value, not " + describe(v));
}

std::int64_t integerValue(const Json& v, const std::string& path) {
  if (v.is_number_integer()) return v.get<std::int64_t>();
  if (v.is_number_unsigned()) {
    if (v.get<std::uint64_t>() > static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max()))
      bad(path, describe(v) + " is out of range");
    return static_cast<std::int64_t>(v.get<std::uint64_t>());
  }
  if (v.is_number_float()) {
    const double d = v.get<double>();
    if (std::trunc(d) != d || std::fabs(d) > 9.0e15) bad(path, describe(v) + " is not a whole number");
    return static_cast<std::int64_t>(d);
  }
  if (v.is_string()) {
    if (auto n = parseInteger(trim(v.get<std::string>()))) return *n;
  }
  bad(path, describe(v) + " is not a whole number");
}

double floatValue(const Json& v, const std::string& path) {
  if (v.is_number()) return v.get<double>();
  if (v.is_string()) {
    const std::string text = trim(v.get<std::string>());
    char* end = nullptr;
    const double d = std::strtod(text.c_str(), &end);
    if (!text.empty() && end == text.c_str() + text.size() && std::isfinite(d)) return d;
  }
  bad(path, describe(v) + " is not a number");
}

CComVariant byteArray(const std::vector<std::uint8_t>& bytes) {
  CComVariant v;
  SAFEARRAY* array = SafeArrayCreateVector(VT_UI1, 0, static_cast<ULONG>(bytes.size()));
  if (!array) throw std::bad_alloc();
  if (!bytes.empty()) {
    void* data = nullptr;
    SafeArrayAccessData(array, &data);
    std::copy(bytes.begin(), bytes.end(), static_cast<std::uint8_t*>(data));
    SafeArrayUnaccessData(array);
  }
  v.vt = VT_ARRAY | VT_UI1;
  v.parray = array;
  return v;
}

ValueRules g_rules;

void requireLength(const std::string& path, const std::string& text, size_t length, long limit, const char* unit) {
  if (limit > 0 && static_cast<long>(length) > limit)
    bad(path, "'" + (text.size() > 40 ? text.substr(0, 37) + "..." : text) + "' is " + std::to_string(length) + " " +
                  unit + " long; the field takes " + std::to_string(limit));
}

// Digits before and after the point of a decimal text.
std::pair<size_t, size_t> decimalDigits(std::string_view s) {
  if (!s.empty() && (s.front() == '+' || s.front() == '-')) s.remove_prefix(1);
  const size_t point = s.find('.');
  std::string_view whole = s.substr(0, point);
  while (whole.size() > 1 && whole.front() == '0') whole.remove_prefix(1);
  std::string_view fraction = point == std::string_view::npos ? std::string_view() : s.substr(point + 1);
  while (!fraction.empty() && fraction.back() == '0') fraction.remove_suffix(1);
  return {whole == "0" ? 0 : whole.size(), fraction.size()};
}

CComVariant jsonToVariant(const Json& v, IRfcType* rfcType, const std::string& path) {
  if (v.is_null()) return CComVariant();
  const bool member = path.find_first_of(".[") != std::string::npos;
  const ABAPTYPE type = scalarType(rfcType);
  switch (type) {
    case TYPE_DATE: {
      if (!v.is_string()) bad(path, describe(v) + " is not a date (YYYY-MM-DD)");
      const std::string text = trim(v.get<std::string>());
      return CComVariant(toUtf16(text.empty() ? text : dateText(text, path)));
    }
    case TYPE_TIME: {
      if (!v.is_string()) bad(path, describe(v) + " is not a time (HH:MM:SS)");
      const std::string text = trim(v.get<std::string>());
      return CComVariant(toUtf16(text.empty() ? text : timeText(text, path)));
    }
    case TYPE_INT:
    case TYPE_INT2:
    case TYPE_INT1: {
      const std::int64_t n = integerValue(v, path);
      const std::int64_t lo = type == TYPE_INT ? INT32_MIN : type == TYPE_INT2 ? INT16_MIN : 0;
      const std::int64_t hi = type == TYPE_INT ? INT32_MAX : type == TYPE_INT2 ? INT16_MAX : 255;
      if (n < lo || n > hi)
        bad(path, std::to_string(n) + " is out of range (" + std::to_string(lo) + " to " + std::to_string(hi) + ")");
      if (n < 0 && g_rules.unsignedIntegers)
        bad(path, std::to_string(n) + " cannot be sent over the " + g_rules.backend +
                      " back end: it writes integers as unsigned 32-bit text (" +
                      std::to_string(static_cast<std::uint32_t>(n)) + "), which the system refuses");
      return CComVariant(static_cast<LONG>(n));
    }
    case TYPE_FLOAT: return CComVariant(floatValue(v, path));
    case TYPE_BYTE:
    case TYPE_XSTRING: {
      if (!v.is_string()) bad(path, describe(v) + " is not base64 text");
      auto bytes = base64Decode(v.get<std::string>());
      if (!bytes) bad(path, "'" + v.get<std::string>() + "' is not valid base64");
      if (type == TYPE_BYTE)
        requireLength(path, v.get<std::string>(), bytes->size(), scalarLength(rfcType, member), "bytes");
      return byteArray(*bytes);
    }
    case TYPE_NUM: {
      const std::string text = scalarText(v, path);
      if (!text.empty() && !allDigits(text)) bad(path, "'" + text + "' is not a string of digits");
      requireLength(path, text, text.size(), scalarLength(rfcType, member), "digits");
      return CComVariant(toUtf16(text));
    }
    case TYPE_BCD: {
      const std::string text = trim(scalarText(v, path));
      if (!text.empty() && !isDecimalText(text)) bad(path, "'" + text + "' is not a decimal number");
      SHORT decimals = 0;
      check(rfcType->get_ScalarDecimals(&decimals), "reading a type");
      const long digits = scalarLength(rfcType, member);
      const auto [whole, fraction] = decimalDigits(text);
      if (digits > 0 && static_cast<long>(whole) > digits - decimals)
        bad(path, "'" + text + "' has " + std::to_string(whole) + " digits before the point; the field takes " +
                      std::to_string(digits - decimals));
      if (static_cast<long>(fraction) > decimals)
        bad(path, "'" + text + "' has " + std::to_string(fraction) + " decimals; the field takes " +
                      std::to_string(decimals));
      return CComVariant(toUtf16(text));
    }
    case TYPE_CHAR: {
      const std::string text = scalarText(v, path);
      requireLength(path, text, toUtf16(text).size(), scalarLength(rfcType, member), "characters");
      return CComVariant(toUtf16(text));
    }
    default: return CComVariant(toUtf16(scalarText(v, path)));
  }
}

CComPtr<IRfcField> fieldAt(IRfcFields* fields, LONG index) {
  CComPtr<IRfcField> field;
  check(fields->get_Item(CComVariant(index), &field), "reading a field");
  return field;
}

std::string fieldName(IRfcField* field) {
  CComBSTR name;
  check(field->get_name(&name), "reading a field name");
  return utf8(name);
}

CComPtr<IRfcType> fieldType(IRfcField* field) {
  CComPtr<IRfcType> type;
  check(field->get_RfcType(&type), "reading a field type");
  return type;
}

void jsonToFields(IRfcFields* fields, const Json& object, const std::string& path) {
  if (!object.is_object()) bad(path, "expects an object of fields, not " + describe(object));
  LONG count = 0;
  check(fields->get_Count(&count), "counting fields");
  std::vector<std::pair<std::string, CComPtr<IRfcField>>> members;
  for (LONG i = 1; i <= count; ++i) {
    CComPtr<IRfcField> f = fieldAt(fields, i);
    members.emplace_back(fieldName(f), f);
  }
  for (const auto& [key, value] : object.items()) {
    IRfcField* target = nullptr;
    for (const auto& [name, f] : members)
      if (name == key) target = f;
    if (!target)
      for (const auto& [name, f] : members)
        if (name == upperAscii(key)) target = f;
    if (!target) {
      std::string known;
      for (const auto& m : members) known += (known.empty() ? "" : ", ") + m.first;
      bad(path, "no field " + key + " (fields: " + known + ")");
    }
    jsonToField(target, value, path + "." + fieldName(target));
  }
}

}  // namespace

void setValueRules(ValueRules rules) { g_rules = std::move(rules); }
const ValueRules& valueRules() { return g_rules; }

long scalarLength(IRfcType* type, bool member) {
  SHORT length = 0;
  check(type->get_ScalarLength(&length), "reading a type");
  switch (scalarType(type)) {
    case TYPE_CHAR:
    case TYPE_NUM:
    case TYPE_DATE:
    case TYPE_TIME: return member ? length : length / std::max(1, g_rules.charLengthUnit);
    case TYPE_BYTE: return length;
    case TYPE_BCD: return member && g_rules.packedMembersInBytes ? 2 * length - 1 : length;
    default: return 0;
  }
}

RFCTYPEKIND typeKind(IRfcType* type) {
  RFCTYPEKIND kind = RFCTYPEKIND_UNDEFINED;
  if (type) check(type->get_Kind(&kind), "reading a type");
  return kind;
}

ABAPTYPE scalarType(IRfcType* type) {
  ABAPTYPE t = TYPE_CHAR;
  if (type && typeKind(type) == RFCTYPEKIND_SCALAR) check(type->get_ScalarType(&t), "reading a type");
  return t;
}

bool isNumericType(ABAPTYPE type) {
  return type == TYPE_INT || type == TYPE_INT2 || type == TYPE_INT1 || type == TYPE_FLOAT || type == TYPE_BCD;
}

void jsonToField(IRfcField* field, const Json& value, const std::string& path) {
  CComPtr<IRfcType> type = fieldType(field);
  switch (typeKind(type)) {
    case RFCTYPEKIND_SCALAR: {
      CComVariant v = jsonToVariant(value, type, path);
      check(field->put_value(v), "setting " + path);
      return;
    }
    case RFCTYPEKIND_STRUCT: {
      if (value.is_null()) return;
      CComPtr<IRfcFields> fields;
      check(field->get_Fields(&fields), "reading the fields of " + path);
      jsonToFields(fields, value, path);
      return;
    }
    case RFCTYPEKIND_TABLE: {
      if (value.is_null()) return;
      if (!value.is_array()) bad(path, "expects an array of rows, not " + describe(value));
      CComPtr<IRfcRows> rows;
      check(field->get_Rows(&rows), "reading the rows of " + path);
      check(rows->RemoveAll(), "emptying " + path);
      size_t n = 0;
      for (const Json& row : value) {
        ++n;
        CComPtr<IRfcFields> fields;
        check(rows->AddRow(&fields), "adding a row to " + path);
        jsonToFields(fields, row, path + "[" + std::to_string(n) + "]");
      }
      return;
    }
    default: bad(path, "has a type that this command cannot fill");
  }
}

void textToField(IRfcField* field, const std::string& text, const std::string& path) {
  CComPtr<IRfcType> type = fieldType(field);
  if (typeKind(type) == RFCTYPEKIND_SCALAR) {
    jsonToField(field, Json(text), path);
    return;
  }
  Json value;
  try {
    value = Json::parse(text);
  } catch (const nlohmann::json::parse_error& e) {
    std::string what = e.what();
    if (const size_t p = what.find("parse error"); p != std::string::npos) what = what.substr(p);
    bad(path, "not valid JSON: " + what);
  }
  jsonToField(field, value, path);
}

Json variantToJson(const VARIANT& in, ABAPTYPE type) {
  CComVariant v;
  check(VariantCopyInd(&v, &in), "reading a value");
  switch (v.vt) {
    case VT_EMPTY:
    case VT_NULL: return nullptr;
    case VT_BSTR: return utf8(v.bstrVal);
    case VT_BOOL: return v.boolVal != VARIANT_FALSE;
    case VT_I1: return static_cast<std::int64_t>(v.cVal);
    case VT_I2: return static_cast<std::int64_t>(v.iVal);
    case VT_I4: return static_cast<std::int64_t>(v.lVal);
    case VT_INT: return static_cast<std::int64_t>(v.intVal);
    case VT_I8: return static_cast<std::int64_t>(v.llVal);
    case VT_UI1: return static_cast<std::uint64_t>(v.bVal);
    case VT_UI2: return static_cast<std::uint64_t>(v.uiVal);
    case VT_UI4: return static_cast<std::uint64_t>(v.ulVal);
    case VT_UINT: return static_cast<std::uint64_t>(v.uintVal);
    case VT_UI8: return static_cast<std::uint64_t>(v.ullVal);
    case VT_R4:
    case VT_R8: {
      const double d = v.vt == VT_R4 ? v.fltVal : v.dblVal;
      if (!std::isfinite(d)) return nullptr;
      return d;
    }
    case VT_DATE: {
      SYSTEMTIME st{};
      if (!VariantTimeToSystemTime(v.date, &st)) return nullptr;
      char buf[48];
      if (type == TYPE_TIME)
        std::snprintf(buf, sizeof buf, "%02u:%02u:%02u", st.wHour, st.wMinute, st.wSecond);
      else if (type == TYPE_DATE)
        std::snprintf(buf, sizeof buf, "%04u-%02u-%02u", st.wYear, st.wMonth, st.wDay);
      else
        std::snprintf(buf, sizeof buf, "%04u-%02u-%02uT%02u:%02u:%02u", st.wYear, st.wMonth, st.wDay, st.wHour,
                      st.wMinute, st.wSecond);
      return std::string(buf);
    }
    case VT_ARRAY | VT_UI1: {
      if (!v.parray) return "";
      LONG lo = 0, hi = -1;
      SafeArrayGetLBound(v.parray, 1, &lo);
      SafeArrayGetUBound(v.parray, 1, &hi);
      void* data = nullptr;
      check(SafeArrayAccessData(v.parray, &data), "reading a binary value");
      std::string text =
          base64Encode(static_cast<const std::uint8_t*>(data), hi >= lo ? static_cast<size_t>(hi - lo + 1) : 0);
      SafeArrayUnaccessData(v.parray);
      return text;
    }
    default: {
      CComVariant text;
      if (SUCCEEDED(VariantChangeType(&text, &v, 0, VT_BSTR))) return utf8(text.bstrVal);
      throw std::runtime_error("a value of variant type " + std::to_string(v.vt) + " cannot be shown");
    }
  }
}

Json fieldToJson(IRfcField* field) {
  CComPtr<IRfcType> type = fieldType(field);
  switch (typeKind(type)) {
    case RFCTYPEKIND_STRUCT: {
      CComPtr<IRfcFields> fields;
      check(field->get_Fields(&fields), "reading the fields of " + fieldName(field));
      Json object = Json::object();
      LONG count = 0;
      check(fields->get_Count(&count), "counting fields");
      for (LONG i = 1; i <= count; ++i) {
        CComPtr<IRfcField> f = fieldAt(fields, i);
        object[fieldName(f)] = fieldToJson(f);
      }
      return object;
    }
    case RFCTYPEKIND_TABLE: {
      CComPtr<IRfcRows> rows;
      check(field->get_Rows(&rows), "reading the rows of " + fieldName(field));
      Json array = Json::array();
      LONG count = 0;
      check(rows->get_Count(&count), "counting rows");
      for (LONG r = 1; r <= count; ++r) {
        CComPtr<IRfcFields> row;
        check(rows->get_Item(r, &row), "reading a row");
        Json object = Json::object();
        LONG n = 0;
        check(row->get_Count(&n), "counting fields");
        for (LONG i = 1; i <= n; ++i) {
          CComPtr<IRfcField> f = fieldAt(row, i);
          object[fieldName(f)] = fieldToJson(f);
        }
        array.push_back(std::move(object));
      }
      return array;
    }
    default: {
      CComVariant value;
      check(field->get_value(&value), "reading the value of " + fieldName(field));
      return variantToJson(value, scalarType(type));
    }
  }
}

}  // namespace veltrane::cli

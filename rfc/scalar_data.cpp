#include "rfc/scalar_data.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <stdexcept>
#include <string>

#include "abap/scalar_conversion.h"
#include "model/row_store.h"
#include "platform/atlbase.h"
#include "platform/comdef.h"
#include "platform/oleauto.h"
#include "platform/unicode.h"
#include "runtime/exceptions.h"
#include "runtime/trace.h"

using veltrane::sdk::rfc::RFC_XSTRING;

namespace {

constexpr int32_t kHighestCode = 30;
// Characters of a packed number as text: 31 digits, sign and mark.
constexpr int kBcdTextUnits = 32;

std::u16string_view Text(const VARIANT& value) {
  return std::u16string_view(value.bstrVal ? value.bstrVal : u"", SysStringLen(value.bstrVal));
}

// Changes value in place to vt; on failure raises kind with message and
// context and the value's text.
void ChangeOrRaise(VARIANT* value, VARTYPE vt, int32_t kind, const char16_t* message, const char16_t* context) {
  if (value->vt == vt || SUCCEEDED(VariantChangeType(value, value, 0, vt))) return;
  throw CXVeltrane(kind, message, context, VariantTraceText(*value).c_str());
}

void ToText(VARIANT* value, const char16_t* context) {
  ChangeOrRaise(value, VT_BSTR, CXVeltrane::STRING_CONVERSION, u"cannot convert to string", context);
}

template <class T>
void Store(void* target, T value) {
  std::memcpy(target, &value, sizeof value);
}

template <class T>
T Load(const void* source) {
  T value;
  std::memcpy(&value, source, sizeof value);
  return value;
}

bool Aligned(const void* p) { return reinterpret_cast<uintptr_t>(p) % alignof(char16_t) == 0; }

// Runs write on the units of a field, through an aligned copy when the
// field stands at an odd address (a structure defined by hand may put it
// there).
template <class Write>
void WithUnits(void* target, size_t units, Write&& write) {
  if (Aligned(target)) return write(static_cast<char16_t*>(target));
  std::u16string copy(units, u'\0');
  std::memcpy(copy.data(), target, units * sizeof(char16_t));
  write(copy.data());
  std::memcpy(target, copy.data(), units * sizeof(char16_t));
}

// The units of a DATE or TIME field, aligned.
template <size_t N>
std::array<char16_t, N> AlignedUnits(const void* source) {
  std::array<char16_t, N> units;
  std::memcpy(units.data(), source, sizeof units);
  return units;
}

void WriteChar(char16_t* target, uint16_t length, VARIANT* value) {
  ToText(value, u"RfcVariantToData(),TYPE_CHAR");
  const std::u16string_view text = Text(*value);
  const size_t count = text.size() < length ? text.size() : length;
  size_t i = 0;
  for (; i < count && text[i] != 0; ++i) target[i] = text[i];
  for (; i < count; ++i) target[i] = 0;
}

void WriteNum(char16_t* target, uint16_t length, VARIANT* value) {
  ToText(value, u"RfcVariantToData(),TYPE_NUM");
  for (uint16_t i = 0; i < length; ++i) target[i] = u'0';
  const std::u16string_view text = Text(*value);
  if (text.size() > length) {
    // Too long for the field: the failure is made and dropped, the field
    // stays all "0".
    CXVeltrane dropped(CXVeltrane::NUMERIC_CONVERSION, u"too large for field", u"RfcVariantToData(),TYPE_NUM",
                       VariantTraceText(*value).c_str());
    (void)dropped;
    return;
  }
  std::memcpy(target + (length - text.size()), text.data(), text.size() * sizeof(char16_t));
}

void WriteBcd(unsigned char* target, uint16_t length, int16_t decimals, VARIANT* value, const EntryPoints& sdk) {
  if (value->vt != VT_BSTR && FAILED(VariantChangeType(value, value, 0, VT_BSTR)))
    throw CXVeltrane(CXVeltrane::STRING_CONVERSION, u"");
  // The SDK takes the text as writable: a copy, on the stack when it fits.
  const std::u16string_view view = Text(*value);
  char16_t small[kBcdTextUnits * 2];
  std::u16string large;
  char16_t* text = small;
  if (view.size() <= std::size(small)) {
    std::copy(view.begin(), view.end(), small);
  } else {
    large.assign(view);
    text = large.data();
  }
  int places = decimals;
  const int rc = sdk.RfcConvertCharToBcdU(text, static_cast<int>(view.size()), &places, target, length / 2 + 1);
  if (rc == 2)
    throw CXVeltrane(CXVeltrane::BCD_CONVERSION_TOO_LARGE, u"number too large", u"RfcVariantToData(),TYPE_BCD",
                     VariantTraceText(*value).c_str());
  if (rc == 3 || rc == 4)
    throw CXVeltrane(CXVeltrane::BCD_CONVERSION_INVALID, u"invalid format", u"RfcVariantToData(),TYPE_BCD",
                     VariantTraceText(*value).c_str());
}

void WriteNumber(void* target, int32_t type, VARIANT* value) {
  switch (type) {
    case TYPE_FLOAT:
      ChangeOrRaise(value, VT_R8, CXVeltrane::NUMERIC_CONVERSION, u"cannot convert to float",
                    u"RfcVariantToData(),TYPE_FLOAT");
      Store(target, value->dblVal);
      break;
    case TYPE_INT:
      ChangeOrRaise(value, VT_I4, CXVeltrane::NUMERIC_CONVERSION, u"cannot convert to int",
                    u"RfcVariantToData(),TYPE_INT");
      Store(target, static_cast<int32_t>(value->lVal));
      break;
    case TYPE_INT2:
      ChangeOrRaise(value, VT_I2, CXVeltrane::NUMERIC_CONVERSION, u"cannot convert to int2",
                    u"RfcVariantToData(),TYPE_INT2");
      Store(target, static_cast<int16_t>(value->iVal));
      break;
    default:  // TYPE_INT1: 0 to 255
      ChangeOrRaise(value, VT_UI1, CXVeltrane::NUMERIC_CONVERSION, u"cannot convert to int1",
                    u"RfcVariantToData(),TYPE_INT1");
      Store(target, static_cast<uint8_t>(value->bVal));
      break;
  }
}

void WriteString(void* target, VARIANT* value, const EntryPoints& sdk) {
  ToText(value, u"RfcVariantToData(),TYPE_STRING");
  const std::string utf8 = WideToUtf8Lossy(Text(*value));
  unsigned char* memory = sdk.RfcAllocStringU(static_cast<unsigned>(utf8.size() + 1));
  if (!memory) throw CXVeltrane(CXVeltrane::MEMORY_ALLOC_EXCEPTION, u"");
  Store(target, memory);
  std::memcpy(memory, utf8.c_str(), utf8.size() + 1);
}

// The bytes of an array value, accessed while the object lives.
class ByteArray {
 public:
  // Changes value to an array of bytes; false when it cannot be one, by the
  // step that failed (1 the change, 2 the element size, 3 the access).
  int Open(VARIANT* value) {
    if (value->vt != (VT_ARRAY | VT_UI1) && FAILED(VariantChangeType(value, value, 0, VT_ARRAY | VT_UI1))) return 1;
    if (!value->parray) return 1;
    if (SafeArrayGetElemsize(value->parray) != 1) return 2;
    if (FAILED(SafeArrayAccessData(value->parray, &m_data))) return 3;
    m_array = value->parray;
    return 0;
  }
  ~ByteArray() {
    if (m_array) SafeArrayUnaccessData(m_array);
  }
  uint32_t Count() const {
    LONG lower = 0, upper = -1;
    SafeArrayGetLBound(m_array, 1, &lower);
    SafeArrayGetUBound(m_array, 1, &upper);
    return upper >= lower ? static_cast<uint32_t>(upper - lower + 1) : 0;
  }
  const void* Data() const { return m_data; }

 private:
  SAFEARRAY* m_array = nullptr;
  void* m_data = nullptr;
};

void WriteXString(void* target, VARIANT* value, const EntryPoints& sdk) {
  static constexpr const char16_t* kContext = u"RfcVariantToData(),TYPE_XSTRING";
  ByteArray bytes;
  if (bytes.Open(value) != 0) throw CXVeltrane(CXVeltrane::XSTRING_ARRAYDIMS_EXCEPTION, u"", kContext);
  const uint32_t count = bytes.Count();
  if (sdk.RfcResizeXStringU(static_cast<RFC_XSTRING*>(target), static_cast<int>(count)) == 1)
    throw CXVeltrane(CXVeltrane::MEMORY_ALLOC_EXCEPTION, u"", kContext);
  const RFC_XSTRING record = Load<RFC_XSTRING>(target);
  if (count) std::memcpy(record.content, bytes.Data(), count);
}

// Trailing blanks (and the NULs of a short buffer) off.
std::u16string_view TrimRight(std::u16string_view text) {
  size_t end = text.size();
  while (end > 0 && (text[end - 1] == u' ' || text[end - 1] == 0)) --end;
  return text.substr(0, end);
}

void PutText(VARIANT* result, std::u16string_view text) {
  BSTR copy = SysAllocStringLen(text.data(), static_cast<UINT>(text.size()));
  if (!copy) throw _com_error(E_OUTOFMEMORY);
  result->vt = VT_BSTR;
  result->bstrVal = copy;
}

// The units of a CHAR or NUM field up to an embedded terminator, as a
// NUL-ended copy reads, without trailing blanks.
size_t TextUnits(const unsigned char* bytes, uint16_t byteLength) {
  const size_t units = byteLength / sizeof(char16_t);
  size_t end = 0;
  for (; end < units; ++end)
    if (Load<char16_t>(bytes + end * sizeof(char16_t)) == 0) break;
  while (end > 0 && Load<char16_t>(bytes + (end - 1) * sizeof(char16_t)) == u' ') --end;
  return end;
}

void ReadText(VARIANT* result, const void* source, uint16_t byteLength) {
  // Without a copy first: the units may stand unaligned in the SDK's line.
  const auto* bytes = static_cast<const unsigned char*>(source);
  const size_t end = TextUnits(bytes, byteLength);
  BSTR copy = SysAllocStringLen(nullptr, static_cast<UINT>(end));
  if (!copy) throw _com_error(E_OUTOFMEMORY);
  if (end) std::memcpy(copy, bytes, end * sizeof(char16_t));
  result->vt = VT_BSTR;
  result->bstrVal = copy;
}

// A packed number as the SDK writes it, trimmed on both sides, in buffer.
std::u16string_view BcdText(const void* source, uint16_t byteLength, int16_t decimals, const EntryPoints& sdk,
                            char16_t (&buffer)[kBcdTextUnits + 1]) {
  std::fill(std::begin(buffer), std::end(buffer), u'\0');
  // The SDK takes the number as writable: a copy, on the stack when it fits.
  unsigned char small[kBcdTextUnits];
  std::basic_string<unsigned char> large;
  unsigned char* bcd = small;
  if (byteLength <= sizeof small) {
    std::memcpy(small, source, byteLength);
  } else {
    large.assign(static_cast<const unsigned char*>(source), byteLength);
    bcd = large.data();
  }
  if (sdk.RfcConvertBcdToCharU(bcd, byteLength, decimals, buffer, kBcdTextUnits) != 0)
    throw CXVeltrane(CXVeltrane::BCD_CONVERSION_INVALID, u"", u"RfcDataToVariant(), RFCTYPE_BCD");
  std::u16string_view text = TrimRight(std::u16string_view(buffer));
  while (!text.empty() && text.front() == u' ') text.remove_prefix(1);
  return text;
}

void ReadBcd(VARIANT* result, const void* source, uint16_t byteLength, int16_t decimals, const EntryPoints& sdk) {
  char16_t buffer[kBcdTextUnits + 1];
  PutText(result, BcdText(source, byteLength, decimals, sdk, buffer));
}

const char* Utf8Of(const void* source) { return reinterpret_cast<const char*>(Load<const unsigned char*>(source)); }

void TraceBadUtf8() {
  TraceRaw(u"error while converting UTF8 to multibyte: %i\n", 1113);  // no mapping for the character
}

void ReadString(VARIANT* result, const void* source) {
  std::u16string text;
  try {
    text = Utf8ToWide(Utf8Of(source));
  } catch (const std::range_error&) {
    TraceBadUtf8();
    text.clear();
  }
  PutText(result, text);
}

}  // namespace

void RfcVariantSafeArrayToRaw(void* target, uint32_t length, VARIANT* value) {
  ByteArray bytes;
  switch (bytes.Open(value)) {
    case 1: throw CXVeltrane(CXVeltrane::XSTRING_ARRAYDIMS_EXCEPTION, u"", u"RfcVariantSafeArrayToRaw(),1");
    case 2: throw CXVeltrane(CXVeltrane::XSTRING_ARRAYDIMS_EXCEPTION, u"", u"RfcVariantSafeArrayToRaw(),2");
    case 3: throw CXVeltrane(CXVeltrane::XSTRING_ARRAYDIMS_EXCEPTION, u"", u"RfcVariantSafeArrayToRaw(),3");
    default: break;
  }
  if (length == 0) length = bytes.Count();
  // The declared length rules: a shorter array is read as far as it goes
  // and the rest of the field is zero.
  const uint32_t available = bytes.Count();
  const uint32_t copied = available < length ? available : length;
  if (copied) std::memcpy(target, bytes.Data(), copied);
  if (copied < length) std::memset(static_cast<unsigned char*>(target) + copied, 0, length - copied);
}

void RfcRawToVariantSafeArray(VARIANT* result, const void* data, uint32_t size) {
  SAFEARRAY* array = nullptr;
  if (FAILED(SafeArrayAllocDescriptorEx(VT_UI1, 1, &array)) || !array)
    throw CXVeltrane(CXVeltrane::VARIANTARRAY_EXCEPTION, u"", u"RfcRawToVariantSafeArray(),1");
  array->cbElements = 1;
  array->rgsabound[0].lLbound = 0;
  array->rgsabound[0].cElements = size;
  if (FAILED(SafeArrayAllocData(array))) {
    SafeArrayDestroyDescriptor(array);
    throw CXVeltrane(CXVeltrane::VARIANTARRAY_EXCEPTION, u"", u"RfcRawToVariantSafeArray(),2");
  }
  void* bytes = nullptr;
  if (FAILED(SafeArrayAccessData(array, &bytes))) {
    SafeArrayDestroy(array);
    throw CXVeltrane(CXVeltrane::XSTRING_ARRAYDIMS_EXCEPTION, u"", u"RfcRawToVariantSafeArray(),3");
  }
  if (size) std::memcpy(bytes, data, size);
  SafeArrayUnaccessData(array);
  result->vt = VT_ARRAY | VT_UI1;
  result->parray = array;
}

int RfcVariantToData(void* target, int32_t type, uint16_t length, int16_t decimals, VARIANT* value,
                     const EntryPoints& sdk) {
  switch (type) {
    case TYPE_CHAR: WithUnits(target, length, [&](char16_t* units) { WriteChar(units, length, value); }); break;
    case TYPE_DATE: WithUnits(target, 8, [&](char16_t* units) { RfcVariantToDate(units, value); }); break;
    case TYPE_BCD: WriteBcd(static_cast<unsigned char*>(target), length, decimals, value, sdk); break;
    case TYPE_TIME: WithUnits(target, 6, [&](char16_t* units) { RfcVariantToTime(units, value); }); break;
    case TYPE_BYTE:
      if (value->vt == VT_EMPTY || value->vt == VT_NULL)
        std::memset(target, 0, length);
      else
        RfcVariantSafeArrayToRaw(target, length, value);
      break;
    case TYPE_NUM: WithUnits(target, length, [&](char16_t* units) { WriteNum(units, length, value); }); break;
    case TYPE_FLOAT:
    case TYPE_INT:
    case TYPE_INT2:
    case TYPE_INT1: WriteNumber(target, type, value); break;
    case TYPE_STRING: WriteString(target, value, sdk); break;
    case TYPE_XSTRING: WriteXString(target, value, sdk); break;
    default: break;
  }
  return 0;
}

namespace {

bool HoldsMemory(VARTYPE vt) {
  return (vt & (VT_ARRAY | VT_BYREF)) || vt == VT_BSTR || vt == VT_DISPATCH || vt == VT_UNKNOWN || vt == VT_RECORD;
}

bool IsInitialText(std::u16string_view text, std::u16string_view zeros) {
  return text.empty() || text == u" " || text == zeros;
}

// True when RfcVariantToData writes value of type without changing it.
bool KeepsValue(int32_t type, const VARIANT& value) {
  if (!HoldsMemory(value.vt)) return true;
  if (value.vt == (VT_ARRAY | VT_UI1)) return type == TYPE_BYTE || type == TYPE_XSTRING;
  if (value.vt != VT_BSTR) return false;
  const std::u16string_view text = Text(value);
  switch (type) {
    case TYPE_CHAR:
    case TYPE_NUM:
    case TYPE_BCD:
    case TYPE_STRING: return true;
    case TYPE_DATE: return IsInitialText(text, u"00000000") || RfcIsDateText(text);
    case TYPE_TIME: {
      if (IsInitialText(text, u"000000")) return true;
      bool digits = text.size() == 6, clock = text.size() == 8;
      for (char16_t c : text) {
        digits = digits && c >= u'0' && c <= u'9';
        clock = clock && c >= u'0' && c <= u':';
      }
      return digits || clock;
    }
    default: return false;
  }
}

}  // namespace

void RfcValueToData(void* target, int32_t type, uint16_t length, int16_t decimals, const VARIANT& value,
                    const EntryPoints& sdk) {
  VARIANT local = value;  // shares the value's memory while nothing changes it
  const bool shared = HoldsMemory(value.vt);
  if (shared && !KeepsValue(type, value)) {
    VariantInit(&local);
    if (FAILED(VariantCopy(&local, &value))) throw _com_error(E_OUTOFMEMORY);
  } else if (shared) {
    RfcVariantToData(target, type, length, decimals, &local, sdk);
    return;
  }
  try {
    RfcVariantToData(target, type, length, decimals, &local, sdk);
  } catch (...) {
    VariantClear(&local);
    throw;
  }
  VariantClear(&local);
}

int RfcDataToVariant(VARIANT* result, const void* source, int32_t type, uint16_t byteLength, int16_t decimals,
                     const EntryPoints& sdk) {
  VariantClear(result);
  if (!source || type > kHighestCode) return 0;
  switch (type) {
    case TYPE_CHAR:
    case TYPE_NUM: ReadText(result, source, byteLength); break;
    case TYPE_DATE: RfcDateToVariant(result, AlignedUnits<8>(source).data()); break;
    case TYPE_BCD: ReadBcd(result, source, byteLength, decimals, sdk); break;
    case TYPE_TIME: RfcTimeToVariant(result, AlignedUnits<6>(source).data()); break;
    case TYPE_BYTE: RfcRawToVariantSafeArray(result, source, byteLength); break;
    case TYPE_FLOAT:
      result->vt = VT_R8;
      result->dblVal = Load<double>(source);
      break;
    case TYPE_INT:
      result->vt = VT_I4;
      result->lVal = Load<int32_t>(source);
      break;
    case TYPE_INT2:
      result->vt = VT_I2;
      result->iVal = Load<int16_t>(source);
      break;
    case TYPE_INT1:
      // Signed on the way in, though written as VT_UI1: 200 reads as -56.
      result->vt = VT_I1;
      result->cVal = Load<char>(source);
      break;
    case TYPE_STRING: ReadString(result, source); break;
    case TYPE_XSTRING: {
      const RFC_XSTRING record = Load<RFC_XSTRING>(source);
      RfcRawToVariantSafeArray(result, record.content, record.length > 0 ? static_cast<uint32_t>(record.length) : 0);
      break;
    }
    default: break;
  }
  return 0;
}

void RfcDataToStore(RowStore& store, size_t row, size_t column, const void* source, int32_t type, uint16_t byteLength,
                    int16_t decimals, const EntryPoints& sdk) {
  const auto* bytes = static_cast<const unsigned char*>(source);
  try {
    switch (type) {
      case TYPE_CHAR:
      case TYPE_NUM: {
        const size_t units = TextUnits(bytes, byteLength);
        if (Aligned(bytes)) {
          store.PutText(row, column, std::u16string_view(reinterpret_cast<const char16_t*>(bytes), units));
        } else {
          std::u16string text(units, u'\0');
          if (units) std::memcpy(text.data(), bytes, units * sizeof(char16_t));
          store.PutText(row, column, text);
        }
        return;
      }
      case TYPE_BCD: {
        char16_t buffer[kBcdTextUnits + 1];
        store.PutText(row, column, BcdText(source, byteLength, decimals, sdk, buffer));
        return;
      }
      case TYPE_STRING: {
        const char* utf8 = Utf8Of(source);
        try {
          store.PutUtf8(row, column, utf8 ? std::string_view(utf8) : std::string_view());
        } catch (const std::range_error&) {
          TraceBadUtf8();
          store.PutText(row, column, u"");
        }
        return;
      }
      default: break;
    }
  } catch (const std::bad_alloc&) {
    throw _com_error(E_OUTOFMEMORY);
  }
  // Numbers, dates and times go in unboxed; byte arrays as the arrays they are.
  CComVariant value;
  RfcDataToVariant(&value, source, type, byteLength, decimals, sdk);
  ThrowIfFailed(store.Take(row, column, &value));
}

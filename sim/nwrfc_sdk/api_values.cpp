// Entry points of the getters and setters of fields and parameters.
#include "nwrfc_sdk/api.h"
#include "nwrfc_sdk/scalars.h"

using namespace nwrfc;

namespace {

template <class Body>
RFC_RC get(DATA_CONTAINER_HANDLE h, const SAP_UC* name, RFC_ERROR_INFO* info, Body&& body) {
  return guarded(info, [&] {
    Container& c = container(h);
    const unsigned slot = c.slotOf(name);
    const Record r = c.record();
    body(r, r.slot(slot));
  });
}

template <class Body>
RFC_RC set(DATA_CONTAINER_HANDLE h, const SAP_UC* name, RFC_ERROR_INFO* info, Body&& body) {
  return guarded(info, [&] {
    Container& c = container(h);
    const unsigned slot = c.slotOf(name);
    const Record r = c.record();
    c.touch(slot);
    body(r, r.slot(slot));
  });
}

std::u16string_view given(const SAP_UC* value, unsigned length) {
  if (!value && length) fail(RFC_INVALID_PARAMETER, "No value was given");
  return {value, value ? length : 0};
}

}  // namespace

RFC_RC RfcGetChars(DATA_CONTAINER_HANDLE dataHandle, const SAP_UC* name, RFC_CHAR* charBuffer, unsigned bufferLength,
                   RFC_ERROR_INFO* errorInfo) {
  return get(dataHandle, name, errorInfo,
             [&](const Record& r, const Slot& s) { getChars(r, s, charBuffer, bufferLength); });
}

RFC_RC RfcGetNum(DATA_CONTAINER_HANDLE dataHandle, const SAP_UC* name, RFC_NUM* charBuffer, unsigned bufferLength,
                 RFC_ERROR_INFO* errorInfo) {
  return get(dataHandle, name, errorInfo,
             [&](const Record& r, const Slot& s) { getNum(r, s, charBuffer, bufferLength); });
}

RFC_RC RfcGetDate(DATA_CONTAINER_HANDLE dataHandle, const SAP_UC* name, RFC_DATE emptyDate, RFC_ERROR_INFO* errorInfo) {
  return get(dataHandle, name, errorInfo, [&](const Record& r, const Slot& s) { getDate(r, s, emptyDate); });
}

RFC_RC RfcGetTime(DATA_CONTAINER_HANDLE dataHandle, const SAP_UC* name, RFC_TIME emptyTime, RFC_ERROR_INFO* errorInfo) {
  return get(dataHandle, name, errorInfo, [&](const Record& r, const Slot& s) { getTime(r, s, emptyTime); });
}

RFC_RC RfcGetString(DATA_CONTAINER_HANDLE dataHandle, const SAP_UC* name, SAP_UC* stringBuffer, unsigned bufferLength,
                    unsigned* stringLength, RFC_ERROR_INFO* errorInfo) {
  return get(dataHandle, name, errorInfo,
             [&](const Record& r, const Slot& s) { getString(r, s, stringBuffer, bufferLength, stringLength); });
}

RFC_RC RfcGetBytes(DATA_CONTAINER_HANDLE dataHandle, const SAP_UC* name, SAP_RAW* byteBuffer, unsigned bufferLength,
                   RFC_ERROR_INFO* errorInfo) {
  return get(dataHandle, name, errorInfo,
             [&](const Record& r, const Slot& s) { getBytes(r, s, byteBuffer, bufferLength); });
}

RFC_RC RfcGetXString(DATA_CONTAINER_HANDLE dataHandle, const SAP_UC* name, SAP_RAW* byteBuffer, unsigned bufferLength,
                     unsigned* xstringLength, RFC_ERROR_INFO* errorInfo) {
  return get(dataHandle, name, errorInfo,
             [&](const Record& r, const Slot& s) { getXString(r, s, byteBuffer, bufferLength, xstringLength); });
}

RFC_RC RfcGetInt(DATA_CONTAINER_HANDLE dataHandle, const SAP_UC* name, RFC_INT* value, RFC_ERROR_INFO* errorInfo) {
  return get(dataHandle, name, errorInfo, [&](const Record& r, const Slot& s) {
    requireOut(value, "value");
    *value = static_cast<RFC_INT>(getInteger(r, s, RFCTYPE_INT));
  });
}

RFC_RC RfcGetInt1(DATA_CONTAINER_HANDLE dataHandle, const SAP_UC* name, RFC_INT1* value, RFC_ERROR_INFO* errorInfo) {
  return get(dataHandle, name, errorInfo, [&](const Record& r, const Slot& s) {
    requireOut(value, "value");
    *value = static_cast<RFC_INT1>(getInteger(r, s, RFCTYPE_INT1));
  });
}

RFC_RC RfcGetInt2(DATA_CONTAINER_HANDLE dataHandle, const SAP_UC* name, RFC_INT2* value, RFC_ERROR_INFO* errorInfo) {
  return get(dataHandle, name, errorInfo, [&](const Record& r, const Slot& s) {
    requireOut(value, "value");
    *value = static_cast<RFC_INT2>(getInteger(r, s, RFCTYPE_INT2));
  });
}

RFC_RC RfcGetInt8(DATA_CONTAINER_HANDLE dataHandle, const SAP_UC* name, RFC_INT8* value, RFC_ERROR_INFO* errorInfo) {
  return get(dataHandle, name, errorInfo, [&](const Record& r, const Slot& s) {
    requireOut(value, "value");
    *value = getInteger(r, s, RFCTYPE_INT8);
  });
}

RFC_RC RfcGetFloat(DATA_CONTAINER_HANDLE dataHandle, const SAP_UC* name, RFC_FLOAT* value, RFC_ERROR_INFO* errorInfo) {
  return get(dataHandle, name, errorInfo, [&](const Record& r, const Slot& s) {
    requireOut(value, "value");
    *value = getFloat(r, s);
  });
}

RFC_RC RfcGetStringLength(DATA_CONTAINER_HANDLE dataHandle, const SAP_UC* name, unsigned* stringLength,
                          RFC_ERROR_INFO* errorInfo) {
  return get(dataHandle, name, errorInfo, [&](const Record& r, const Slot& s) {
    requireOut(stringLength, "stringLength");
    *stringLength = getStringLength(r, s);
  });
}

RFC_RC RfcSetChars(DATA_CONTAINER_HANDLE dataHandle, const SAP_UC* name, const RFC_CHAR* charValue,
                   unsigned valueLength, RFC_ERROR_INFO* errorInfo) {
  return set(dataHandle, name, errorInfo,
             [&](const Record& r, const Slot& s) { setText(r, s, given(charValue, valueLength), TextSetter::Chars); });
}

RFC_RC RfcSetNum(DATA_CONTAINER_HANDLE dataHandle, const SAP_UC* name, const RFC_NUM* charValue, unsigned valueLength,
                 RFC_ERROR_INFO* errorInfo) {
  return set(dataHandle, name, errorInfo, [&](const Record& r, const Slot& s) {
    const std::u16string_view v = given(charValue, valueLength);
    for (size_t i = 0; i < v.size(); ++i)
      if (v[i] < u'0' || v[i] > u'9')
        fail(RFC_CONVERSION_FAILURE, "Cannot convert string value " + toUtf8(v) + " at position " + std::to_string(i) +
                                         " for the field " + s.utf8Name + " to type RFCTYPE_NUM");
    setText(r, s, v, TextSetter::Num);
  });
}

RFC_RC RfcSetString(DATA_CONTAINER_HANDLE dataHandle, const SAP_UC* name, const SAP_UC* stringValue,
                    unsigned valueLength, RFC_ERROR_INFO* errorInfo) {
  return set(dataHandle, name, errorInfo, [&](const Record& r, const Slot& s) {
    setText(r, s, given(stringValue, valueLength), TextSetter::String);
  });
}

RFC_RC RfcSetDate(DATA_CONTAINER_HANDLE dataHandle, const SAP_UC* name, const RFC_DATE date,
                  RFC_ERROR_INFO* errorInfo) {
  return set(dataHandle, name, errorInfo, [&](const Record& r, const Slot& s) { setDate(r, s, date); });
}

RFC_RC RfcSetTime(DATA_CONTAINER_HANDLE dataHandle, const SAP_UC* name, const RFC_TIME time,
                  RFC_ERROR_INFO* errorInfo) {
  return set(dataHandle, name, errorInfo, [&](const Record& r, const Slot& s) { setTime(r, s, time); });
}

RFC_RC RfcSetBytes(DATA_CONTAINER_HANDLE dataHandle, const SAP_UC* name, const SAP_RAW* byteValue, unsigned valueLength,
                   RFC_ERROR_INFO* errorInfo) {
  return set(dataHandle, name, errorInfo,
             [&](const Record& r, const Slot& s) { setBytes(r, s, byteValue, valueLength); });
}

RFC_RC RfcSetXString(DATA_CONTAINER_HANDLE dataHandle, const SAP_UC* name, const SAP_RAW* byteValue,
                     unsigned valueLength, RFC_ERROR_INFO* errorInfo) {
  return set(dataHandle, name, errorInfo,
             [&](const Record& r, const Slot& s) { setBytes(r, s, byteValue, valueLength); });
}

RFC_RC RfcSetInt(DATA_CONTAINER_HANDLE dataHandle, const SAP_UC* name, const RFC_INT value, RFC_ERROR_INFO* errorInfo) {
  return set(dataHandle, name, errorInfo,
             [&](const Record& r, const Slot& s) { setInteger(r, s, value, RFCTYPE_INT); });
}

RFC_RC RfcSetInt1(DATA_CONTAINER_HANDLE dataHandle, const SAP_UC* name, const RFC_INT1 value,
                  RFC_ERROR_INFO* errorInfo) {
  return set(dataHandle, name, errorInfo,
             [&](const Record& r, const Slot& s) { setInteger(r, s, value, RFCTYPE_INT1); });
}

RFC_RC RfcSetInt2(DATA_CONTAINER_HANDLE dataHandle, const SAP_UC* name, const RFC_INT2 value,
                  RFC_ERROR_INFO* errorInfo) {
  return set(dataHandle, name, errorInfo,
             [&](const Record& r, const Slot& s) { setInteger(r, s, value, RFCTYPE_INT2); });
}

RFC_RC RfcSetInt8(DATA_CONTAINER_HANDLE dataHandle, const SAP_UC* name, const RFC_INT8 value,
                  RFC_ERROR_INFO* errorInfo) {
  return set(dataHandle, name, errorInfo,
             [&](const Record& r, const Slot& s) { setInteger(r, s, value, RFCTYPE_INT8); });
}

RFC_RC RfcSetFloat(DATA_CONTAINER_HANDLE dataHandle, const SAP_UC* name, const RFC_FLOAT value,
                   RFC_ERROR_INFO* errorInfo) {
  return set(dataHandle, name, errorInfo, [&](const Record& r, const Slot& s) { setFloat(r, s, value); });
}

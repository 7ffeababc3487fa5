#include "runtime/exceptions.h"

#include <boost/format.hpp>

#include "runtime/hresult_text.h"
#include "runtime/unicode.h"
#include "runtime/winhttp_errors.h"

namespace {

struct KindRow {
  const char16_t* name;
  UINT clientCode;
};

constexpr KindRow kKinds[] = {
    {u"MEMORY_ALLOC_EXCEPTION", 535},
    {u"XSTRING_ARRAYDIMS_EXCEPTION", 536},
    {u"VARIANTARRAY_EXCEPTION", 534},
    {u"STRING_CONVERSION", 532},
    {u"NUMERIC_CONVERSION", 531},
    {u"DATE_TIME_CONVERSION", 533},
    {u"BCD_CONVERSION_TOO_LARGE", 530},
    {u"BCD_CONVERSION_INVALID", 530},
    {u"ERROR_INSTALL_STRUCT", 537},
    {u"ERROR_COMPLEX_TYPE", 518},
    {u"ERROR_FILE_ACCESS", 519},
    {u"TIMEOUT", 519},
    {u"SOAP_ERROR", 519},
    {u"WINHTTP_ERROR", 519},
    {u"COM_ERROR", 519},
    {u"OTHER", 519},
};

const KindRow& Row(int32_t kind) {
  if (kind < 0 || kind > CXVeltrane::OTHER) return kKinds[CXVeltrane::OTHER];
  return kKinds[kind];
}

std::u16string OrEmpty(const char16_t* s) { return s ? std::u16string(s) : std::u16string(); }

std::string BuildText(const std::u16string& kindName, int32_t kind, const std::u16string& message,
                      const std::u16string& context, const std::u16string& value) {
  std::string text =
      boost::str(boost::format("%1%(%2%) : %3%") % WideToUtf8Lossy(kindName) % kind % WideToUtf8Lossy(message));
  // The value is shown only inside the context's parentheses.
  if (!context.empty()) {
    text += boost::str(boost::format("(%1%") % WideToUtf8Lossy(context));
    if (!value.empty())
      text += boost::str(boost::format(", value=%1%)") % WideToUtf8Lossy(value));
    else
      text += ")";
  }
  return text;
}

}  // namespace

UINT CXVeltrane::ClientTextCode(int32_t kind) { return Row(kind).clientCode; }
const char16_t* CXVeltrane::KindNameOf(int32_t kind) { return Row(kind).name; }

CXVeltrane::CXVeltrane(int32_t kind, const char16_t* message, const char16_t* context, const char16_t* value)
    : CXVeltrane(kind, OrEmpty(message), OrEmpty(context), OrEmpty(value)) {}

CXVeltrane::CXVeltrane(int32_t kind, const std::u16string& message, const std::u16string& context,
                       const std::u16string& value)
    : m_kind(kind), m_message(message), m_context(context), m_value(value), m_kindName(KindNameOf(kind)) {
  m_text = BuildText(m_kindName, m_kind, m_message, m_context, m_value);
}

CXSoapErrorResponse::CXSoapErrorResponse(int32_t group, std::u16string faultCode, std::u16string faultText,
                                         std::u16string detail)
    : CXVeltrane(SOAP_ERROR, faultText),
      m_group(group),
      m_faultCode(std::move(faultCode)),
      m_faultText(std::move(faultText)),
      m_detail(std::move(detail)) {
  m_text = boost::str(boost::format("CXSoapErrorResponse: %1% %2% %3%") % WideToUtf8Lossy(m_faultCode) %
                      WideToUtf8Lossy(m_faultText) % WideToUtf8Lossy(m_detail));
}

CXWinHTTPError::CXWinHTTPError(DWORD code)
    : CXVeltrane(WINHTTP_ERROR, Utf8ToWideLossy(WinHttpErrorText(code))), m_code(code) {
  m_text = WinHttpErrorText(code);
}

CXCOMError::CXCOMError(HRESULT hr) : CXVeltrane(COM_ERROR, HResultMessage(hr)), m_hr(hr) {
  m_text = WideToUtf8Lossy(Message());
}

_SEHException::_SEHException(uint32_t code) : m_code(code) {
  m_text = boost::str(boost::format("SEH Exception %1$#8x\n") % code);
}

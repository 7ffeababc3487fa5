#include "runtime/exceptions.h"

#include <boost/format.hpp>

#include "platform/result_names.h"
#include "platform/unicode.h"

namespace {

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

std::string WinHttpErrorText(DWORD code) {
  if (const char* name = WinHttpErrorName(code)) return name;
  HRESULT hr = HRESULT_FROM_WIN32(code);
  if (HResultKnown(hr)) return WideToUtf8Lossy(HResultMessage(hr));
  return boost::str(boost::format("Unknown error code %1%") % code);
}

CXVeltrane::CXVeltrane(int32_t kind, const char16_t* message, const char16_t* context, const char16_t* value)
    : CXVeltrane(kind, OrEmpty(message), OrEmpty(context), OrEmpty(value)) {}

CXVeltrane::CXVeltrane(int32_t kind, const std::u16string& message, const std::u16string& context,
                       const std::u16string& value)
    : m_kind(kind),
      m_message(message),
      m_context(context),
      m_value(value),
      m_kindName(veltrane::errors::ErrorKindOf(kind).name) {
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

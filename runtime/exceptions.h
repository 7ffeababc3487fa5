// The exception tree in which failures travel inside the component. A
// session catches them at its boundary and turns them into a result code
// and an error record.
#pragma once

#include <cstdint>
#include <exception>
#include <string>

#include "platform/wtypes.h"
#include "veltrane_errors.h"

class BaseException : public std::exception {
 public:
  explicit BaseException(std::string text) : m_text(std::move(text)) {}
  ~BaseException() override = default;
  const char* what() const noexcept override { return m_text.c_str(); }

 protected:
  BaseException() = default;
  std::string m_text;  // UTF-8
};

class CXVeltrane : public BaseException {
 public:
  // Kinds of internal errors, from errors/errors.table.
  using KIND = veltrane::errors::ErrorKind;
  using enum veltrane::errors::ErrorKind;

  // Null texts read as empty. The text is "<KIND>(<kind>) : <message>",
  // followed, when a context is given, by "(<context>" and then
  // ", value=<value>)" or ")".
  CXVeltrane(int32_t kind, const char16_t* message, const char16_t* context = nullptr, const char16_t* value = nullptr);
  CXVeltrane(int32_t kind, const std::u16string& message, const std::u16string& context = {},
             const std::u16string& value = {});
  ~CXVeltrane() override = default;

  int32_t Kind() const { return m_kind; }
  const std::u16string& Message() const { return m_message; }
  const std::u16string& Context() const { return m_context; }
  const std::u16string& Value() const { return m_value; }
  const std::u16string& KindName() const { return m_kindName; }

  // The text of the string table a client gets for this kind.
  Text ClientText() const { return veltrane::errors::ErrorKindOf(m_kind).clientText; }

 private:
  int32_t m_kind;
  std::u16string m_message;
  std::u16string m_context;
  std::u16string m_value;
  std::u16string m_kindName;
};

// A SOAP fault of the server; group is RFCERROR_COMMUNICATION (102) or
// RFCERROR_APPLICATION_EXCEPTION (105).
class CXSoapErrorResponse : public CXVeltrane {
 public:
  CXSoapErrorResponse(int32_t group, std::u16string faultCode, std::u16string faultText, std::u16string detail);
  ~CXSoapErrorResponse() override = default;

  int32_t Group() const { return m_group; }
  const std::u16string& FaultCode() const { return m_faultCode; }
  const std::u16string& FaultText() const { return m_faultText; }
  const std::u16string& Detail() const { return m_detail; }

 private:
  int32_t m_group;
  std::u16string m_faultCode;
  std::u16string m_faultText;
  std::u16string m_detail;
};

// The text of CXWinHTTPError: the number's name; for any other number the
// system's message for it; if there is none, "Unknown error code <n>".
std::string WinHttpErrorText(DWORD code);

// A failure of the HTTP transport; the text is WinHttpErrorText.
class CXWinHTTPError : public CXVeltrane {
 public:
  explicit CXWinHTTPError(DWORD code);
  ~CXWinHTTPError() override = default;

  DWORD Code() const { return m_code; }

 private:
  DWORD m_code;
};

// A failed result of an internal call; the text is the platform's text of
// the code (HResultMessage).
class CXCOMError : public CXVeltrane {
 public:
  explicit CXCOMError(HRESULT hr);
  ~CXCOMError() override = default;

  HRESULT Result() const { return m_hr; }

 private:
  HRESULT m_hr;
};

// Raises hr as CXCOMError when it is a failure; returns it otherwise.
inline HRESULT ThrowIfFailed(HRESULT hr) {
  if (FAILED(hr)) throw CXCOMError(hr);
  return hr;
}

// A fault while running foreign code: a synchronous fault signal, or a
// failure to load a library or to find an entry point. The code is the
// platform's exception code (see seh.h). Text: "SEH Exception 0x<code>\n".
class _SEHException : public BaseException {
 public:
  explicit _SEHException(uint32_t code);
  ~_SEHException() override = default;

  uint32_t Code() const { return m_code; }

 private:
  uint32_t m_code;
};

// Compiler-support style error class: _com_error carries a failed result and
// the error record that came with it.
#pragma once

#include "platform/atlbase.h"
#include "platform/result_names.h"

#include <string>

class VELTRANE_API _com_error {
 public:
  explicit _com_error(HRESULT hr, IErrorInfo* perrinfo = nullptr, bool fAddRef = false) noexcept
      : m_hr(hr), m_info(perrinfo) {
    if (m_info && fAddRef) m_info->AddRef();
  }
  _com_error(const _com_error& o) noexcept : m_hr(o.m_hr), m_info(o.m_info) {
    if (m_info) m_info->AddRef();
  }
  _com_error& operator=(const _com_error& o) noexcept {
    if (this != &o) {
      if (o.m_info) o.m_info->AddRef();
      if (m_info) m_info->Release();
      m_hr = o.m_hr;
      m_info = o.m_info;
    }
    return *this;
  }
  virtual ~_com_error() {
    if (m_info) m_info->Release();
  }

  HRESULT Error() const noexcept { return m_hr; }
  WORD WCode() const noexcept {
    return (m_hr >= static_cast<HRESULT>(0x80040200) && m_hr <= static_cast<HRESULT>(0x8004FFFF))
               ? static_cast<WORD>(m_hr - 0x80040200)
               : 0;
  }
  IErrorInfo* ErrorInfo() const noexcept {
    if (m_info) m_info->AddRef();
    return m_info;
  }
  std::u16string ErrorMessage() const { return HResultMessage(m_hr); }
  CComBSTR Description() const { return field(&IErrorInfo::GetDescription); }
  CComBSTR Source() const { return field(&IErrorInfo::GetSource); }
  CComBSTR HelpFile() const { return field(&IErrorInfo::GetHelpFile); }
  DWORD HelpContext() const {
    DWORD c = 0;
    if (m_info) m_info->GetHelpContext(&c);
    return c;
  }
  ::GUID GUID() const {
    ::GUID g = GUID_NULL;
    if (m_info) m_info->GetGUID(&g);
    return g;
  }

 private:
  CComBSTR field(HRESULT (STDMETHODCALLTYPE IErrorInfo::*get)(BSTR*)) const {
    CComBSTR s;
    if (m_info) (m_info->*get)(&s);
    return s;
  }

  HRESULT m_hr;
  IErrorInfo* m_info;
};

// Throws _com_error for hr with the thread's error record.
[[noreturn]] VELTRANE_API void _com_issue_error(HRESULT hr);
[[noreturn]] VELTRANE_API void _com_issue_errorex(HRESULT hr, IUnknown* punk, REFIID riid);

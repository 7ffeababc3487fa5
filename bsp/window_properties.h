// CWindowProperties: position, size, title, icon and close warning of the
// BSP window (IWindowProperties). Plain stored values, not checked.
#pragma once

#include "platform/atlbase.h"
#include "platform/com_object.h"
#include "platform/property.h"
#include "veltrane_decl.h"
#include "veltrane_tlb.h"

class CWindowProperties : public CComObjectBase<CWindowProperties, CoClassWindowProperties<CWindowProperties>> {
 public:
  CWindowProperties() : m_title(u"BSP Application"), m_iconPath(u""), m_closeWarning(u"") {}

  HRESULT STDMETHODCALLTYPE get_Left(LONG* pVal) override { return GetProperty(m_left, pVal); }
  HRESULT STDMETHODCALLTYPE put_Left(LONG newVal) override { return PutProperty(m_left, newVal); }
  HRESULT STDMETHODCALLTYPE get_Top(LONG* pVal) override { return GetProperty(m_top, pVal); }
  HRESULT STDMETHODCALLTYPE put_Top(LONG newVal) override { return PutProperty(m_top, newVal); }
  HRESULT STDMETHODCALLTYPE get_Height(LONG* pVal) override { return GetProperty(m_height, pVal); }
  HRESULT STDMETHODCALLTYPE put_Height(LONG newVal) override { return PutProperty(m_height, newVal); }
  HRESULT STDMETHODCALLTYPE get_Width(LONG* pVal) override { return GetProperty(m_width, pVal); }
  HRESULT STDMETHODCALLTYPE put_Width(LONG newVal) override { return PutProperty(m_width, newVal); }
  HRESULT STDMETHODCALLTYPE get_Title(BSTR* pVal) override { return GetProperty(m_title, pVal); }
  HRESULT STDMETHODCALLTYPE put_Title(BSTR newVal) override { return PutProperty(m_title, newVal); }
  HRESULT STDMETHODCALLTYPE get_IconPath(BSTR* pVal) override { return GetProperty(m_iconPath, pVal); }
  HRESULT STDMETHODCALLTYPE put_IconPath(BSTR newVal) override { return PutProperty(m_iconPath, newVal); }
  HRESULT STDMETHODCALLTYPE get_CloseWarning(BSTR* pVal) override { return GetProperty(m_closeWarning, pVal); }
  HRESULT STDMETHODCALLTYPE put_CloseWarning(BSTR newVal) override { return PutProperty(m_closeWarning, newVal); }

  LONG Left() const { return m_left; }
  LONG Top() const { return m_top; }
  LONG Height() const { return m_height; }
  LONG Width() const { return m_width; }
  std::u16string_view Title() const { return m_title.View(); }
  std::u16string_view IconPath() const { return m_iconPath.View(); }
  std::u16string_view CloseWarning() const { return m_closeWarning.View(); }

 private:
  LONG m_left = 100;
  LONG m_top = 100;
  LONG m_height = 300;
  LONG m_width = 500;
  CComBSTR m_title;
  CComBSTR m_iconPath;
  CComBSTR m_closeWarning;
};

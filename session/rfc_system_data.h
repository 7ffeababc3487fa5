// CRfcSystemData: where an RFC session connects (IRfcSystemData), shared by
// the classic and the NW session. ConnectString holds the connection
// parameters in the SDK's keyword form; VisualMode and Debug are switches
// the back ends add to them. Plain stored values, checked by nobody here.
#pragma once

#include <string_view>

#include "platform/atlbase.h"
#include "platform/com_object.h"
#include "platform/dispatch_impl.h"
#include "platform/property.h"
#include "veltrane_decl.h"
#include "veltrane_tlb.h"

class CRfcSystemData : public CComObjectBase<CRfcSystemData, CoClassRfcSystemData<CRfcSystemData>> {
 public:
  CRfcSystemData() : m_connectString(u"") {}

  HRESULT STDMETHODCALLTYPE get_ConnectString(BSTR* pVal) override { return GetProperty(m_connectString, pVal); }
  HRESULT STDMETHODCALLTYPE put_ConnectString(BSTR newVal) override { return PutProperty(m_connectString, newVal); }
  HRESULT STDMETHODCALLTYPE get_VisualMode(SHORT* pVal) override { return GetProperty(m_visualMode, pVal); }
  HRESULT STDMETHODCALLTYPE put_VisualMode(SHORT newVal) override { return PutProperty(m_visualMode, newVal); }
  HRESULT STDMETHODCALLTYPE get_Debug(VARIANT_BOOL* pVal) override { return GetProperty(m_debug, pVal); }
  HRESULT STDMETHODCALLTYPE put_Debug(VARIANT_BOOL newVal) override { return PutProperty(m_debug, newVal); }

  // The values as the back ends read them at Connect; a null string reads
  // as empty.
  std::u16string_view ConnectString() const { return m_connectString.View(); }
  SHORT VisualMode() const { return m_visualMode; }
  VARIANT_BOOL Debug() const { return m_debug; }

 private:
  CComBSTR m_connectString;
  SHORT m_visualMode = 0;
  VARIANT_BOOL m_debug = VARIANT_FALSE;
};

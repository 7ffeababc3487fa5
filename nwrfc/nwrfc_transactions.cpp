// CNWRfcSession: transactional RFC and the logon ticket. The SDK's order is
// strict: create, invoke into the transaction, submit (CallTRFCFunction),
// then confirm and destroy (ConfirmTransID).
#include <boost/format.hpp>

#include "nwrfc/nwrfc_data_converter.h"
#include "nwrfc/nwrfc_session.h"
#include "nwrfc/sdk_text.h"
#include "platform/comdef.h"
#include "platform/unicode.h"
#include "runtime/report_error.h"
#include "runtime/trace.h"

using namespace veltrane::nwrfc;

namespace {

HRESULT Report(Text text) { return ReportError(CLSID_NWRfcSession, text); }

void Leaving(const char* operation) { TraceLog(TRACE_INFORMATION, "leaving", operation, __FILE__, __LINE__); }

// A failed step of GetSSO2Ticket, traced with its name.
HRESULT Step(HRESULT hr, const char* step) {
  if (FAILED(hr)) TraceResult(hr, step, __FILE__, __LINE__);
  return hr;
}

}  // namespace

HRESULT CNWRfcSession::CreateTransID(BSTR* tid) {
  if (!m_connection) return Report(Text::NotConnected);
  if (!tid) return E_POINTER;
  return Guard("CreateTransID", [&]() -> HRESULT {
    RFC_TID id{};
    if (Sdk().RfcGetTransactionID(m_connection, id, &m_errorInfo) != RFC_OK)
      return PublishRfcResult(m_errorInfo, u"RfcGetTransactionID", Text::RfcError);
    CComBSTR text(SapText(id));
    m_transactions[text] = nullptr;
    *tid = text.Detach();
    return S_OK;
  });
}

HRESULT CNWRfcSession::CallTRFCFunction(BSTR tid, IFunctionCall* fn) {
  if (!m_connection) return Report(Text::NotConnected);
  if (!fn) return E_POINTER;
  return Guard("CallTRFCFunction", [&]() -> HRESULT {
    CComBSTR functionName;
    ThrowIfFailed(fn->get_Function(&functionName));
    const std::u16string name(functionName.View());
    const auto entry = m_transactions.find(CComBSTR(BstrView(tid)));
    if (entry == m_transactions.end()) return Report(Text::InvalidTransactionId);
    RFC_TID id{};
    CopySapText(id, BstrView(tid));
    // Success is the record's code being 0, here and below.
    RFC_TRANSACTION_HANDLE transaction = Sdk().RfcCreateTransaction(m_connection, id, nullptr, &m_errorInfo);
    if (m_errorInfo.code != RFC_OK) return PublishRfcResult(m_errorInfo, u"RfcCreateTransaction", Text::RfcError);
    // A retry under the same ID starts a new transaction.
    if (entry->second) {
      Sdk().RfcDestroyTransaction(entry->second, &m_errorInfo);
      entry->second = nullptr;
      if (m_errorInfo.code != RFC_OK) {
        Sdk().RfcDestroyTransaction(transaction, nullptr);
        return PublishRfcResult(m_errorInfo, u"RfcDestroyTransaction", Text::RfcError);
      }
    }
    entry->second = transaction;

    RFC_FUNCTION_HANDLE function = nullptr;
    HRESULT hr = CreateFunction(fn, m_errorInfo, &function);
    if (FAILED(hr)) return hr;
    struct Release {
      RFC_FUNCTION_HANDLE function;
      ~Release() { Sdk().RfcDestroyFunction(function, nullptr); }
    } release{function};
    CNWRFCDataConverter converter(Sdk(), &m_errorInfo, ClassId());
    hr = converter.FillOutgoingArgs(fn, function);
    PublishRfcResult(m_errorInfo, u"FillOutgoingArgs", Text::RfcError);
    if (FAILED(hr)) return hr;

    const RFC_RC rc = Sdk().RfcInvokeInTransaction(transaction, function, &m_errorInfo);
    if (m_errorInfo.code != RFC_OK) return PublishRfcResult(m_errorInfo, u"RfcInvokeInTransaction", Text::RfcError);
    PublishRfcResult(m_errorInfo, InvokeContext(name, rc, m_errorInfo), Text::RfcError);
    if (rc == RFC_ABAP_EXCEPTION) ShowExceptionKey(m_errorInfo);
    hr = converter.FillIncomingArgs(rc, function, fn);
    PublishRfcResult(m_errorInfo, u"FillIncomingArgs", Text::RfcError);
    if (SUCCEEDED(hr)) {
      if (rc == RFC_OK) {
        if (Sdk().RfcSubmitTransaction(transaction, &m_errorInfo) != RFC_OK || m_errorInfo.code != RFC_OK)
          hr = PublishRfcResult(m_errorInfo, u"RfcSubmitTransaction", Text::RfcError);
      } else {
        entry->second = nullptr;
        if (Sdk().RfcDestroyTransaction(transaction, &m_errorInfo) != RFC_OK)
          hr = PublishRfcResult(m_errorInfo, u"RfcDestroyTransaction", Text::RfcError);
      }
    }
    Leaving("CallTRFCFunction");
    return hr;
  });
}

HRESULT CNWRfcSession::ConfirmTransID(BSTR tid) {
  if (!m_connection) return Report(Text::NotConnected);
  return Guard("ConfirmTransID", [&]() -> HRESULT {
    const auto entry = m_transactions.find(CComBSTR(BstrView(tid)));
    if (entry == m_transactions.end()) return Report(Text::InvalidTransactionId);
    RFC_ERROR_INFO info{};
    HRESULT hr = S_OK;
    if (Sdk().RfcConfirmTransaction(entry->second, &info) != RFC_OK)
      hr = PublishRfcResult(info, u"RfcConfirmTransaction", Text::RfcError);
    const bool confirmed = SUCCEEDED(hr);
    if (Sdk().RfcDestroyTransaction(entry->second, &info) != RFC_OK) {
      const HRESULT destroyed = PublishRfcResult(info, u"RfcDestroyTransaction", Text::RfcError);
      if (SUCCEEDED(hr)) hr = destroyed;
    } else {
      entry->second = nullptr;
    }
    // The ID is forgotten only when both steps succeeded.
    if (confirmed && SUCCEEDED(hr)) m_transactions.erase(entry);
    Leaving("ConfirmTransID");
    return hr;
  });
}

HRESULT CNWRfcSession::GetSSO2Ticket(BSTR* ticket) {
  if (!m_connection) return Report(Text::NotConnected);
  if (!ticket) return E_POINTER;
  return Guard("GetSSO2Ticket", [&]() -> HRESULT {
    const std::u16string module = OptionValue(u"sso2.create_ticket_module");
    if (module.empty()) return Report(Text::TicketModuleRequired);
    CComPtr<IFunctionCall> call;
    HRESULT hr;
    if (FAILED(hr = Step(ImportCall(CComBSTR(module), VARIANT_FALSE, &call), "ImportCall"))) return hr;
    if (FAILED(hr = Step(CallFunction(call, VARIANT_TRUE), "CallFunction"))) return hr;
    if (ErrorFlag() == VARIANT_TRUE) return Report(Text::RfcError);
    CComPtr<IRfcParameters> exporting;
    CComPtr<IRfcParameter> parameter;
    CComVariant value;
    if (FAILED(hr = Step(call->get_Exporting(&exporting), "get_Exporting"))) return hr;
    if (FAILED(hr = Step(exporting->get_Item(CComVariant(u"TICKET"), &parameter), "get_Item(TICKET)"))) return hr;
    if (FAILED(hr = Step(parameter->get_value(&value), "get_Value()"))) return hr;
    if (FAILED(hr = Step(value.ChangeType(VT_BSTR), "ChangeValue(VT_BSTR)"))) return hr;
    *ticket = value.bstrVal;
    value.vt = VT_EMPTY;
    return S_OK;
  });
}

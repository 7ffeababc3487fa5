// The classic session's transactional RFC and logon ticket: on the
// connection alone, outside the call machinery.
#include "model/model.h"
#include "platform/comdef.h"
#include "rfc/marshal.h"
#include "rfc/rfc_session.h"
#include "rfc/sdk_text.h"
#include "runtime/report_error.h"
#include "runtime/trace.h"

using namespace veltrane::rfc;
using namespace veltrane::sdk::rfc;

namespace {

HRESULT Report(Text text) { return ReportError(CLSID_RfcSession, text); }

constexpr size_t kTicketUnits = 8192;

}  // namespace

HRESULT CRfcSession::CreateTransID(BSTR* tid) {
  if (m_handle == 0) return Report(Text::NotConnected);
  if (!tid) return E_POINTER;
  Trace(u"CreateTransID...");
  RFC_TID buffer{};
  const RFC_RC rc = Sdk().RfcCreateTransIDU ? Sdk().RfcCreateTransIDU(m_handle, buffer) : RFC_FAILURE;
  if (rc != RFC_OK) {
    TraceRaw(u"fail (rc=%i)\n", static_cast<int>(rc));
    return E_FAIL;
  }
  const std::u16string text = SdkText(buffer, 24);
  TraceRaw(u"ok (tid=%s)\n", text);
  *tid = SysAllocStringLen(text.data(), static_cast<UINT>(text.size()));
  return *tid ? S_OK : E_OUTOFMEMORY;
}

HRESULT CRfcSession::ConfirmTransID(BSTR tid) {
  if (m_handle == 0) return Report(Text::NotConnected);
  Trace(u"ConfirmTransID...");
  RFC_TID buffer{};
  BstrView(tid).copy(buffer, 24);
  const RFC_RC rc = Sdk().RfcConfirmTransIDU ? Sdk().RfcConfirmTransIDU(m_handle, buffer) : RFC_FAILURE;
  if (rc != RFC_OK) {
    TraceRaw(u"fail (rc=%i)\n", static_cast<int>(rc));
    return E_FAIL;
  }
  TraceRaw(u"ok\n");
  return S_OK;
}

// A failure of the marshalling is not turned into ErrorInfo: the method
// fails with the text of its kind, as a call does (nothing is sent).
HRESULT CRfcSession::CallTRFCFunction(BSTR tid, IFunctionCall* fn) {
  if (m_handle == 0) return Report(Text::NotConnected);
  if (!fn) return E_POINTER;
  return Guard("CallTRFCFunction", [&]() -> HRESULT {
    CComBSTR function;
    ThrowIfFailed(fn->get_Function(&function));
    CComPtr<IRfcParameters> importing, tables;
    ThrowIfFailed(fn->get_Importing(&importing));
    ThrowIfFailed(fn->get_Tables(&tables));
    ThrowIfFailed(PruneOptionalParameters(fn));
    std::unique_ptr<CIntRfcParams> parameters;
    std::unique_ptr<CIntRfcTables> tableEntries;
    try {
      parameters = std::make_unique<CIntRfcParams>(Sdk(), importing, nullptr);
      tableEntries = std::make_unique<CIntRfcTables>(Sdk(), tables, true);
    } catch (const CXVeltrane& e) {
      Trace(u"caught CXVeltrane(), terminating\n\t%s\n", std::string(e.what()));
      return Report(e.ClientText());
    }
    RFC_TID id{};
    BstrView(tid).copy(id, 24);
    std::u16string name(function.View());
    const RFC_RC rc = Sdk().RfcIndirectCallExU ? Sdk().RfcIndirectCallExU(m_handle, name.data(), parameters->Entries(),
                                                                          tableEntries->Entries(), id)
                                               : RFC_FAILURE;
    if (rc != RFC_OK)
      SetLastSdkError();
    else
      ClearError();
    return S_OK;
  });
}

HRESULT CRfcSession::GetSSO2Ticket(BSTR* ticket) {
  if (m_handle == 0) return Report(Text::NotConnected);
  std::u16string function(u"RFC_GET_ATTRIBUTES");
  RFC_RC rc = Sdk().RfcCallReceiveExU
                  ? Sdk().RfcCallReceiveExU(m_handle, function.data(), nullptr, nullptr, nullptr, nullptr, nullptr)
                  : RFC_FAILURE;
  std::u16string buffer(kTicketUnits, u'\0');
  if (rc == RFC_OK) rc = Sdk().RfcGetTicketU ? Sdk().RfcGetTicketU(m_handle, buffer.data()) : RFC_FAILURE;
  if (rc != RFC_OK) {
    SetLastSdkError();
    return S_OK;
  }
  const std::u16string text = SdkText(buffer.data(), kTicketUnits);
  Trace(u"GetSSO2Ticket(): received ticket (l=%i)\n", static_cast<int>(text.size()));
  Trace(u"%s\n", text);
  if (ticket) {
    *ticket = SysAllocStringLen(text.data(), static_cast<UINT>(text.size()));
    if (!*ticket) return E_OUTOFMEMORY;
  }
  return S_OK;
}

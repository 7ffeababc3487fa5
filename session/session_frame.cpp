#include "session/session_frame.h"

#include <unistd.h>

#include <cstdlib>
#include <new>
#include <stdexcept>
#include <vector>

#include <boost/format.hpp>

#include "model/model.h"
#include "platform/property.h"
#include "runtime/about_box.h"
#include "runtime/environment.h"
#include "runtime/report_error.h"
#include "runtime/string_table.h"
#include "runtime/trace.h"
#include "platform/unicode.h"
#include "session/table_reader.h"

namespace {

// The header lines name paths of the file system, whose bytes need not be
// UTF-8: what is not becomes U+FFFD, since the trace never fails its caller.
std::u16string WorkingDirectory() {
  std::vector<char> buffer(4096);
  for (;;) {
    if (getcwd(buffer.data(), buffer.size())) return Utf8ToWideLossy(std::string(buffer.data()));
    if (errno != ERANGE) return {};
    buffer.resize(buffer.size() * 2);
  }
}

std::u16string SearchPath() {
  const char* path = std::getenv("PATH");
  return path ? Utf8ToWideLossy(path) : std::u16string();
}

// A path of the environment (executable, library), or nothing where it is
// not UTF-8.
template <class Path>
std::u16string PathOrNothing(Path path) {
  try {
    return path();
  } catch (const std::range_error&) {
    return {};
  }
}

// Upper case of the ASCII letters; the level names and digits are ASCII, so
// no other letter can make a text match one of them.
std::u16string UpperCase(std::u16string_view text) {
  std::u16string upper(text);
  for (char16_t& c : upper)
    if (c >= u'a' && c <= u'z') c = static_cast<char16_t>(c - u'a' + u'A');
  return upper;
}

}  // namespace

SessionFrame::SessionFrame() {
  if (FAILED(CLogonData::CreateInstance(&m_logonData.p))) throw std::bad_alloc();
  CRfcError* errorInfo = nullptr;
  if (FAILED(CRfcError::CreateInstance(&errorInfo))) throw std::bad_alloc();
  m_errorInfo.Attach(errorInfo);
}

HRESULT SessionFrame::GetSystemID(BSTR* pVal) const { return m_systemId.CopyTo(pVal); }

HRESULT SessionFrame::PutSystemID(BSTR newVal) { return PutProperty(m_systemId, newVal); }

HRESULT SessionFrame::GetLogonData(ILogonData** pVal) const {
  if (!pVal) return E_POINTER;
  *pVal = m_logonData;
  (*pVal)->AddRef();
  return S_OK;
}

HRESULT SessionFrame::GetErrorInfo(IRfcError** pVal) {
  SetErrorFlag(VARIANT_FALSE);
  if (!pVal) return E_POINTER;
  *pVal = m_errorInfo;
  (*pVal)->AddRef();
  return S_OK;
}

HRESULT SessionFrame::GetError(VARIANT_BOOL* pVal) const {
  if (!pVal) return E_POINTER;
  *pVal = ErrorFlag();
  return S_OK;
}

HRESULT SessionFrame::GetOption(BSTR name, BSTR* pVal) const { return m_options.Get(name, pVal); }

HRESULT SessionFrame::PutOption(BSTR name, BSTR newVal) {
  HRESULT hr = m_options.Put(name, newVal);
  if (FAILED(hr)) return hr;
  const std::u16string_view key = BstrView(name);
  if (key == u"trace.file") {
    ApplyTraceFile(newVal);
  } else if (key == u"trace.level") {
    ApplyTraceLevel(newVal);
  }
  return S_OK;
}

void SessionFrame::ApplyTraceFile(BSTR value) {
  if (SysStringLen(value) > 0) TraceOpen(u"Veltrane", ExpandEnvironment(BstrView(value), kMaxPath), true);
  SetTraceLevel(TRACE_INFORMATION);
  if (!TraceIsOpen()) return;
  Trace(u"Veltrane version=%s\n", kVeltraneVersion);
  Trace(u"Executable Path: %s\n", PathOrNothing(ExecutablePath));
  Trace(u"DLL Path: %s\n", PathOrNothing(LibraryPath));
  Trace(u"Workdir: %s\n", WorkingDirectory());
  Trace(u"Search Path: %s\n", SearchPath());
}

void SessionFrame::ApplyTraceLevel(BSTR value) {
  const std::u16string level = UpperCase(BstrView(value));
  if (level == u"INFORMATION" || level == u"3") {
    SetTraceLevel(TRACE_INFORMATION);
  } else if (level == u"WARNING" || level == u"2") {
    SetTraceLevel(TRACE_WARNING);
  } else if (level == u"ERROR" || level == u"1") {
    SetTraceLevel(TRACE_ERROR);
  }
}

HRESULT SessionFrame::EnsureTypeCache(ITypeCache** pVal) {
  if (!m_typeCache) {
    CComPtr<ITypeCache> cache;
    HRESULT hr = CreateTypeCache(&cache);
    if (FAILED(hr)) return hr;
    m_typeCache = cache;
  }
  if (pVal) {
    *pVal = m_typeCache;
    (*pVal)->AddRef();
  }
  return S_OK;
}

HRESULT SessionFrame::GetTypeCache(ITypeCache** pVal) {
  if (!pVal) return E_POINTER;
  *pVal = nullptr;
  return EnsureTypeCache(pVal);
}

HRESULT SessionFrame::PutTypeCache(ITypeCache* newVal) {
  if (!newVal) return E_POINTER;
  m_typeCache = newVal;
  return S_OK;
}

HRESULT SessionFrame::DecodeInternalError(LONG errcode, BSTR* pVal) const {
  return ::DecodeInternalError(errcode, pVal);
}

HRESULT SessionFrame::ImportType(BSTR name, IRfcType** pVal, const TypeImporter& fromBackend) {
  if (pVal) *pVal = nullptr;
  CComPtr<ITypeCache> cache;
  HRESULT hr = EnsureTypeCache(&cache);
  if (FAILED(hr)) return hr;

  CComPtr<IRfcType> type;
  if (cache->GetType(name, &type) == S_OK && type) {
    if (!pVal) return E_POINTER;
    *pVal = type.Detach();
    return S_OK;
  }
  type.Release();
  if (FAILED(hr = CreateRfcType(&type))) return hr;
  if (FAILED(hr = fromBackend(name, type))) return hr;
  if (FAILED(hr = cache->AddType(name, type))) return hr;
  if (!pVal) return E_POINTER;
  *pVal = type.Detach();
  return S_OK;
}

HRESULT SessionFrame::ImportCall(BSTR moduleName, VARIANT_BOOL ignoreUnsupportedParams, IFunctionCall** pVal,
                                 const CallImporter& fromBackend) {
  if (pVal) *pVal = nullptr;
  Trace(u"ImportCall('%s')...\n", BstrView(moduleName));
  CComPtr<ITypeCache> cache;
  HRESULT hr = EnsureTypeCache(&cache);
  if (FAILED(hr)) return hr;

  CComPtr<IFunctionCall> call;
  if (cache->GetFunction(moduleName, &call) == S_OK && call) {
    Trace(u"retrieved from cache\n");
    if (!pVal) return E_POINTER;
    *pVal = call.Detach();
    return S_OK;
  }
  call.Release();
  if (FAILED(hr = CreateFunctionCall(&call))) return hr;
  if (FAILED(hr = call->put_Function(moduleName))) return hr;
  if (FAILED(hr = fromBackend(moduleName, ignoreUnsupportedParams, call))) return hr;
  // The cache keeps a copy of its own; a failure to keep one leaves the
  // imported call valid, so it is still handed out.
  cache->AddFunction(moduleName, call);
  if (!pVal) return E_POINTER;
  *pVal = call.Detach();
  return S_OK;
}

HRESULT SessionFrame::CreateCall(IFunctionCall** pVal) const {
  if (!pVal) return E_POINTER;
  return CreateFunctionCall(pVal);
}

HRESULT SessionFrame::CreateType(IRfcType** pVal) const {
  if (!pVal) return E_POINTER;
  return CreateRfcType(pVal);
}

HRESULT SessionFrame::About() const {
  veltrane::runtime::ShowAboutBox();
  return S_OK;
}

HRESULT SessionFrame::GetTableReader(ISession* self, BSTR tableName, ITableReader** pVal) const {
  return CreateTableReader(self, tableName, pVal);
}

HRESULT SessionFrame::SetError(const RfcErrorRecord& record) {
  std::lock_guard<std::mutex> lock(m_errorMutex);
  return SetSessionError(&m_error, m_errorInfo, &record);
}

HRESULT SessionFrame::ClearError() {
  std::lock_guard<std::mutex> lock(m_errorMutex);
  return SetSessionError(&m_error, m_errorInfo, nullptr);
}

VARIANT_BOOL SessionFrame::ErrorFlag() const {
  std::lock_guard<std::mutex> lock(m_errorMutex);
  return m_error;
}

void SessionFrame::SetErrorFlag(VARIANT_BOOL flag) {
  std::lock_guard<std::mutex> lock(m_errorMutex);
  m_error = flag;
}

// ----------------------------------------------------------------- calls

bool SessionFrame::CallRunning() const {
  std::lock_guard<std::mutex> lock(m_callMutex);
  return m_running != nullptr;
}

CComPtr<IFunctionCall> SessionFrame::ActiveCall() const {
  std::lock_guard<std::mutex> lock(m_callMutex);
  return m_activeCall;
}

void SessionFrame::BeginCall(IFunctionCall* call, std::unique_ptr<RunningCall> running) {
  std::lock_guard<std::mutex> lock(m_callMutex);
  m_activeCall = call;
  m_running = std::move(running);
}

void SessionFrame::EndCall() {
  std::unique_ptr<RunningCall> running;
  CComPtr<IFunctionCall> call;
  {
    std::lock_guard<std::mutex> lock(m_callMutex);
    running = std::move(m_running);
    call.Attach(m_activeCall.Detach());
  }
}

bool SessionFrame::AbortRunningCall() {
  std::unique_ptr<RunningCall> running;
  CComPtr<IFunctionCall> call;
  {
    std::lock_guard<std::mutex> lock(m_callMutex);
    if (!m_running) return false;
    running = std::move(m_running);
    call.Attach(m_activeCall.Detach());
  }
  running->Abort();
  return true;
}

void SessionFrame::Pin(IUnknown* session) {
  {
    std::lock_guard<std::mutex> lock(m_callMutex);
    ++m_pins;
  }
  session->AddRef();
}

void SessionFrame::Unpin(IUnknown* session) {
  {
    std::lock_guard<std::mutex> lock(m_callMutex);
    if (m_pins == 0) return;
    --m_pins;
  }
  session->Release();
}

void SessionFrame::TraceFailure(const char* operation, const char* format, const char* what, const char* traceName) {
  try {
    TraceLog(TRACE_ERROR, boost::format(format) % what % traceName, operation, __FILE__, __LINE__);
  } catch (...) {}
}

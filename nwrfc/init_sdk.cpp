#include <boost/filesystem.hpp>
#include <boost/format.hpp>

#include "nwrfc/nwrfc_mixin.h"
#include "platform/unicode.h"
#include "runtime/environment.h"
#include "runtime/report_error.h"
#include "runtime/seh.h"
#include "runtime/trace.h"

namespace veltrane::nwrfc {

namespace {

std::string Narrow(std::u16string_view text) { return WideToUtf8Lossy(text); }

void Log(int level, const boost::format& text) { TraceLog(level, text, "InitSDK", __FILE__, __LINE__); }
void Log(int level, const char* text) { TraceLog(level, text, "InitSDK", __FILE__, __LINE__); }

std::u16string UpperCase(std::u16string_view text) {
  std::u16string upper(text);
  for (char16_t& c : upper)
    if (c >= u'a' && c <= u'z') c = static_cast<char16_t>(c - u'a' + u'A');
  return upper;
}

// Steps of the load: the directory from the options, the library, its
// version. Faults come out as _SEHException.
void LoadLibrary(const SdkOwner& owner) {
  std::u16string directory = owner.option(u"nwrfc64.path");
  if (directory.empty()) directory = owner.option(u"nwrfc.path");
  if (!directory.empty()) Log(TRACE_INFORMATION, boost::format("adding SDK_PATH=%1%") % Narrow(directory));
  std::string reason;
  try {
    const EntryPoints& sdk = NWRfcLibrary::Load(directory, &reason);
    unsigned major = 0, minor = 0, patch = 0;
    RunTranslated([&] { sdk.RfcGetVersion(&major, &minor, &patch); });
    Log(TRACE_INFORMATION, boost::format("got NWRFC library, version %1%.%2%.%3%") % major % minor % patch);
    Log(TRACE_INFORMATION, boost::format("loaded %1%") % NWRfcLibrary::LoadedPath());
  } catch (const _SEHException&) {
    if (!reason.empty()) Log(TRACE_ERROR, boost::format("cannot load %1%: %2%") % kLibraryFile % reason);
    throw;
  }
}

void SetTrace(const SdkOwner& owner, const EntryPoints& sdk) {
  const std::u16string file = owner.option(u"trace.file");
  if (file.empty()) return;
  const std::u16string level = UpperCase(owner.option(u"trace.level"));
  const boost::filesystem::path parent = boost::filesystem::path(Narrow(file)).parent_path();
  std::u16string directory = ExpandEnvironment(Utf8ToWideLossy(parent.string()), kMaxPath);
  Log(TRACE_INFORMATION, boost::format("RfcSetTraceDir(%1%)") % Narrow(directory));
  sdk.RfcSetTraceDir(directory.data(), nullptr);
  const unsigned sdkLevel = SdkTraceLevel(level);
  Log(TRACE_INFORMATION, boost::format("RfcSetTraceLevel(%1%)") % sdkLevel);
  sdk.RfcSetTraceLevel(nullptr, nullptr, sdkLevel, nullptr);
}

HRESULT SetIniPath(const SdkOwner& owner, const EntryPoints& sdk, RFC_ERROR_INFO& errorInfo) {
  const std::u16string option = owner.option(u"nwrfc.ini_path");
  if (option.empty()) return S_OK;
  const std::u16string path = ExpandEnvironment(option, kMaxPath);
  boost::system::error_code error;
  const boost::filesystem::file_status status = boost::filesystem::status(Narrow(path), error);
  if (error || status.type() == boost::filesystem::file_not_found) {
    Log(TRACE_ERROR, boost::format("nwrfc.ini_path=%1% does not exist") % Narrow(path));
    return ReportError(*owner.clsid, Text::InvalidIniPath);
  }
  Log(TRACE_INFORMATION, boost::format("RfcSetIniPath(%1%)") % Narrow(path));
  if (sdk.RfcSetIniPath(path.c_str(), &errorInfo) != RFC_OK)
    return owner.report(errorInfo, u"RfcSetIniPath", Text::RfcError);
  Log(TRACE_INFORMATION, "RfcReloadIniFile()");
  if (sdk.RfcReloadIniFile(&errorInfo) != RFC_OK) return owner.report(errorInfo, u"RfcSetIniPath", Text::RfcError);
  return S_OK;
}

}  // namespace

unsigned SdkTraceLevel(std::u16string_view level) {
  if (level == u"ERROR" || level == u"1") return 1;
  if (level == u"INFORMATION" || level == u"3") return 3;
  return 2;
}

HRESULT InitSdk(const SdkOwner& owner, RFC_ERROR_INFO& errorInfo) {
  Log(TRACE_INFORMATION, "InitSDK(): entering");
  try {
    LoadLibrary(owner);
  } catch (const _SEHException& e) {
    if (e.Code() == kExceptionModuleNotFound || e.Code() == kExceptionProcNotFound)
      return ReportError(*owner.clsid, Text::NwRfcLibraryNotFound);
    Log(TRACE_ERROR, boost::format("InitSDK(): %1%") % e.what());
    return ReportError(*owner.clsid, Text::Unexpected);
  }
  const EntryPoints& sdk = *NWRfcLibrary::Loaded();
  SetTrace(owner, sdk);
  const HRESULT hr = SetIniPath(owner, sdk, errorInfo);
  if (FAILED(hr)) return hr;
  Log(TRACE_INFORMATION, "InitSDK(): leaving");
  return S_OK;
}

}  // namespace veltrane::nwrfc

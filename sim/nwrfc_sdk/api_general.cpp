// Entry points of the library as a whole: version, trace, configuration file, names of codes,
// character conversion.
#include <array>
#include <map>
#include <mutex>
#include <cstring>

#include "nwrfc_sdk/api.h"
#include "nwrfc_sdk/config.h"
#include "nwrfc_sdk/scalars.h"

using namespace nwrfc;

namespace {

constexpr unsigned kMajor = 7500, kMinor = 0, kPatch = 1;

const SAP_UC* staticText(const char* text) {
  static std::mutex m;
  static std::map<std::string, std::u16string>* texts = new std::map<std::string, std::u16string>();
  std::lock_guard lock(m);
  auto& t = (*texts)[text];
  if (t.empty()) t = toUtf16(text);
  return t.c_str();
}

}  // namespace

const SAP_UC* RfcGetVersion(unsigned* majorVersion, unsigned* minorVersion, unsigned* patchLevel) {
  if (majorVersion) *majorVersion = kMajor;
  if (minorVersion) *minorVersion = kMinor;
  if (patchLevel) *patchLevel = kPatch;
  return u"7500.0.1 Veltrane NW RFC library for veltrane-sim";
}

RFC_RC RfcSetTraceDir(SAP_UC* traceDir, RFC_ERROR_INFO* errorInfo) {
  return guarded(errorInfo, [&] { trace().setDirectory(toUtf8(ucView(traceDir))); });
}

RFC_RC RfcSetTraceLevel(RFC_CONNECTION_HANDLE connection, SAP_UC* destination, unsigned traceLevel,
                        RFC_ERROR_INFO* errorInfo) {
  return guarded(errorInfo, [&] {
    if (connection) openConnection(connection);
    if (traceLevel > 4) fail(RFC_INVALID_PARAMETER, "Trace level " + std::to_string(traceLevel) + " is not 0 to 4");
    (void)destination;  // one trace for the process: the level applies to every destination
    trace().setLevel(traceLevel);
  });
}

RFC_RC RfcSetIniPath(const SAP_UC* pathName, RFC_ERROR_INFO* errorInfo) {
  return guarded(errorInfo, [&] { iniFile().setPath(toUtf8(ucView(pathName))); });
}

RFC_RC RfcReloadIniFile(RFC_ERROR_INFO* errorInfo) {
  return guarded(errorInfo, [&] { iniFile().reload(); });
}

const SAP_UC* RfcGetRcAsString(RFC_RC rc) { return rcText(rc); }

const SAP_UC* RfcGetTypeAsString(RFCTYPE type) { return staticText(typeName(type)); }

const SAP_UC* RfcGetDirectionAsString(RFC_DIRECTION direction) {
  switch (direction) {
    case RFC_IMPORT: return u"RFC_IMPORT";
    case RFC_EXPORT: return u"RFC_EXPORT";
    case RFC_CHANGING: return u"RFC_CHANGING";
    case RFC_TABLES: return u"RFC_TABLES";
  }
  return u"RFC_DIRECTION_UNKNOWN";
}

RFC_RC RfcUTF8ToSAPUC(const RFC_BYTE* utf8, unsigned utf8Length, SAP_UC* sapuc, unsigned* sapucSize,
                      unsigned* resultLength, RFC_ERROR_INFO* errorInfo) {
  return guarded(errorInfo, [&] {
    requireOut(sapucSize, "sapucSize");
    const std::u16string text = toUtf16(std::string_view(reinterpret_cast<const char*>(utf8), utf8 ? utf8Length : 0));
    if (resultLength) *resultLength = static_cast<unsigned>(text.size());
    if (!sapuc || *sapucSize < text.size() + 1) {
      *sapucSize = static_cast<unsigned>(text.size() + 1);
      fail(RFC_BUFFER_TOO_SMALL, "The buffer needs " + std::to_string(text.size() + 1) + " characters");
    }
    std::copy(text.begin(), text.end(), sapuc);
    sapuc[text.size()] = 0;
  });
}

RFC_RC RfcSAPUCToUTF8(const SAP_UC* sapuc, unsigned sapucLength, RFC_BYTE* utf8, unsigned* utf8Size,
                      unsigned* resultLength, RFC_ERROR_INFO* errorInfo) {
  return guarded(errorInfo, [&] {
    requireOut(utf8Size, "utf8Size");
    const std::string text = toUtf8(std::u16string_view(sapuc, sapuc ? sapucLength : 0));
    if (resultLength) *resultLength = static_cast<unsigned>(text.size());
    if (!utf8 || *utf8Size < text.size() + 1) {
      *utf8Size = static_cast<unsigned>(text.size() + 1);
      fail(RFC_BUFFER_TOO_SMALL, "The buffer needs " + std::to_string(text.size() + 1) + " bytes");
    }
    std::memcpy(utf8, text.data(), text.size());
    utf8[text.size()] = 0;
  });
}

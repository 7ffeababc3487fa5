// CNWRfcMixin<Derived>: what the NW session and the NW server share about
// the SDK: InitSDK, run at each Connect or Serve before any other SDK call,
// loads the library on first need (NWRfcLibrary) and passes the program's
// trace and ini settings on to it. The two classes differ only in the store
// they read options from and in the operation that reports an SDK failure;
// Derived supplies both:
//
//   std::u16string SdkOption(std::u16string_view name) const;
//   HRESULT PublishRfcResult(RFC_ERROR_INFO& info, std::u16string_view context, Text code);
//   static const CLSID& ClassId();
//
// The mixin holds no data: the error record is the class's own, and the
// loaded SDK is the process's (Sdk()).
#pragma once

#include <functional>
#include <string>
#include <string_view>

#include "nwrfc/nwrfc_library.h"
#include "nwrfc/nwrfc_types.h"
#include "platform/wtypes.h"
#include "veltrane_errors.h"

namespace veltrane::nwrfc {

// What InitSDK needs of the class that runs it.
struct SdkOwner {
  // Reads an option of the session or server; unknown ones read empty.
  std::function<std::u16string(std::u16string_view name)> option;
  // The class's report of a failed SDK call with a context and a code.
  std::function<HRESULT(RFC_ERROR_INFO& info, std::u16string_view context, Text code)> report;
  // The class the component's own error records name.
  const CLSID* clsid;
};

// InitSDK's steps, compiled once for both classes:
//  1. the library: "nwrfc64.path", else "nwrfc.path", names its directory
//     (as it stands, without expansion); without either the loader's search
//     finds it. A missing library or entry point is text 547, any other
//     fault while loading or in RfcGetVersion text 519. Nothing else of the
//     process (PATH included) changes.
//  2. "trace.file" not empty: its parent directory, environment variables
//     expanded, goes to RfcSetTraceDir, and "trace.level" (ERROR or 1: 1,
//     INFORMATION or 3: 3, anything else 2; case folded) to RfcSetTraceLevel.
//  3. "nwrfc.ini_path" not empty: expanded; a path that does not exist is
//     text 548; otherwise RfcSetIniPath and RfcReloadIniFile, whose failure
//     goes to owner.report with context "RfcSetIniPath" and text 543.
// Runs again in full at each call; the last call in the process wins.
HRESULT InitSdk(const SdkOwner& owner, RFC_ERROR_INFO& errorInfo);

// The SDK level for a "trace.level" text.
unsigned SdkTraceLevel(std::u16string_view level);

}  // namespace veltrane::nwrfc

template <class Derived>
class CNWRfcMixin {
 protected:
  CNWRfcMixin() = default;
  ~CNWRfcMixin() = default;

  HRESULT InitSDK(RFC_ERROR_INFO& errorInfo) {
    Derived& self = static_cast<Derived&>(*this);
    const veltrane::nwrfc::SdkOwner owner{[&self](std::u16string_view name) { return self.SdkOption(name); },
                                          [&self](RFC_ERROR_INFO& info, std::u16string_view context, Text code) {
                                            return self.PublishRfcResult(info, context, code);
                                          },
                                          &Derived::ClassId()};
    return veltrane::nwrfc::InitSdk(owner, errorInfo);
  }

  // The SDK's entry points; valid after a successful InitSDK.
  static const veltrane::nwrfc::EntryPoints& Sdk() { return *veltrane::nwrfc::NWRfcLibrary::Loaded(); }
};

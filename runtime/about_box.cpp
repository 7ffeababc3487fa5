#include "runtime/about_box.h"

#include "runtime/trace.h"
#include "runtime/wformat.h"
#include "veltrane_version.h"

namespace veltrane::runtime {

AboutBoxSpec AboutBoxTexts() {
  AboutBoxSpec spec;
  spec.title = u"About Veltrane";
  spec.productName = u"Veltrane";
  spec.copyright = u"VER_COPYRIGHT_STR";
  spec.webAddress = FormatW(u"%s", VELTRANE_HOMEPAGE_URL);
  spec.version = FormatW(u"Version %s - %s", kVeltraneVersion, __DATE__);
  return spec;
}

void ShowAboutBox() {
  std::u16string failure;
  if (FAILED(RunAboutBox(AboutBoxTexts(), &failure))) TraceLog(TRACE_WARNING, failure, __func__, __FILE__, __LINE__);
}

}  // namespace veltrane::runtime

// FromXML on arbitrary text. Whatever it reads must write back as XML that
// reads again to the same text: ToXML(FromXML(ToXML(FromXML(x)))) equals
// ToXML(FromXML(x)).
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

#include "model/model.h"
#include "platform/atlbase.h"
#include "platform/unicode.h"

namespace {

// The call read from xml and written again; false if either step failed.
bool ReadAndWrite(std::u16string_view xml, std::u16string* written) {
  CComPtr<IFunctionCall> call;
  if (FAILED(CreateFunctionCall(&call))) std::abort();
  if (call->FromXML(CComBSTR(xml)) != S_OK) return false;
  CComBSTR out;
  if (call->ToXML(&out) != S_OK) return false;
  written->assign(out.View());
  return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::u16string text = Utf8ToWideLossy(std::string_view(reinterpret_cast<const char*>(data), size));
  std::u16string first;
  if (ReadAndWrite(text, &first) && first.find(u'\0') == std::u16string::npos) {
    // A NUL cannot travel through XML; everything else must.
    std::u16string second;
    if (!ReadAndWrite(first, &second) || second != first) {
      std::fprintf(stderr, "round trip changed the call:\n%s\n---\n%s\n", WideToUtf8Lossy(first).c_str(),
                   WideToUtf8Lossy(second).c_str());
      std::abort();
    }
  }
  SetErrorInfo(0, nullptr);
  return 0;
}

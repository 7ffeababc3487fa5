// The registry's text form and the registrar's scripts on arbitrary input:
// a text that reads must write back to the same hive, and a script is
// preprocessed and run (per machine and per user) in a transaction that is
// never committed, so nothing reaches a file.
#include <stdlib.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "platform/registrar_script.h"
#include "platform/registry_hive.h"
#include "platform/registry_store.h"

namespace {

using namespace veltrane::platform;

void FuzzHive(std::string_view text) {
  try {
    const registry::Key hive = registry::ReadHive(text);
    const std::string written = registry::WriteHive(hive, "fuzz");
    if (!(registry::ReadHive(written) == hive)) std::abort();
  } catch (const registry::HiveSyntaxError&) {}
}

void FuzzScript(const uint8_t* data, size_t size) {
  std::u16string script;
  for (size_t i = 0; i < size; ++i) script += static_cast<char16_t>(data[i]);
  static const _ATL_REGMAP_ENTRY map[] = {{u"MODULE", u"/lib/it''s.so"}, {u"Module_Raw", u"/lib/it's.so"}, {}};
  for (bool perUser : {false, true}) {
    std::u16string text;
    if (FAILED(registrar::Preprocess(script, map, perUser, &text))) continue;
    for (bool doRegister : {true, false}) {
      RegistryTransaction transaction;  // never committed
      registrar::Run(text, doRegister);
    }
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const bool scratch = [] {
    char dir[] = "/tmp/veltrane-fuzz-registry-XXXXXX";
    if (!mkdtemp(dir)) std::abort();
    setenv("VELTRANE_SYSCONFDIR", dir, 1);
    setenv("XDG_CONFIG_HOME", dir, 1);
    static const std::string remove = dir;
    std::atexit([] { std::filesystem::remove_all(remove); });
    return true;
  }();
  (void)scratch;
  FuzzHive(std::string_view(reinterpret_cast<const char*>(data), size));
  FuzzScript(data, size);
  return 0;
}

// The library exports exactly the entry points of the list, and the loader's generated table
// resolves each of them from the library file.
#include <dlfcn.h>

#include <fstream>
#include <regex>
#include <set>

#include "nwrfc/nwrfc_entry_points.h"
#include "sdk_fixture.h"

namespace {

std::set<std::string> listed() {
  std::ifstream in(VELTRANE_NWRFC_ENTRY_LIST);
  std::set<std::string> names;
  const std::regex line(R"(^(required|optional) .*\b(Rfc\w+)\()");
  std::string l;
  std::smatch m;
  while (std::getline(in, l))
    if (std::regex_search(l, m, line)) names.insert(m[2]);
  return names;
}

TEST(Exports, TheLoaderTableResolvesEveryListedEntryPoint) {
  void* lib = dlopen(VELTRANE_NWRFC_LIBRARY, RTLD_NOW | RTLD_LOCAL);
  ASSERT_NE(lib, nullptr) << dlerror();
  veltrane::sdk::nwrfc::EntryPoints table;
  const char* missing = veltrane::sdk::nwrfc::resolveEntryPoints(table, [&](const char* n) { return dlsym(lib, n); });
  EXPECT_EQ(missing, nullptr) << missing;
  EXPECT_NE(table.RfcOpenConnection, nullptr);
  EXPECT_NE(table.RfcGetInt8, nullptr) << "optional ones too, in our library";
  unsigned major = 0;
  table.RfcGetVersion(&major, nullptr, nullptr);
  EXPECT_EQ(major, 7500u);
  EXPECT_EQ(listed().size(), veltrane::sdk::nwrfc::kEntryCount);
  EXPECT_EQ(dlsym(lib, "_ZN5nwrfc5traceEv"), nullptr) << "internals stay hidden";
  dlclose(lib);
}

TEST(Exports, OnlyTheListIsExported) {
  const std::string command = std::string("nm -D --defined-only ") + VELTRANE_NWRFC_LIBRARY;
  FILE* p = popen(command.c_str(), "r");
  ASSERT_NE(p, nullptr);
  std::set<std::string> exported;
  char line[512];
  while (fgets(line, sizeof line, p)) {
    std::string s(line);
    const size_t last = s.find_last_of(' ');
    std::string name = s.substr(last + 1);
    name.erase(name.find_last_not_of("\n") + 1);
    const char kind = s.size() > 17 ? s[17] : '?';
    if (kind == 'T' || kind == 'W' || kind == 'D' || kind == 'B') exported.insert(name.substr(0, name.find('@')));
  }
  pclose(p);
  EXPECT_EQ(exported, listed());
}

}  // namespace

// The library exports exactly the entry points of the list, and the loader's generated table
// resolves each of them from the library file.
#include <dlfcn.h>

#include <cstdio>
#include <fstream>
#include <regex>
#include <set>

#include "rfc/rfc_entry_points.h"
#include "rfc_fixture.h"

namespace {

std::set<std::string> listed() {
  std::ifstream in(VELTRANE_RFC_ENTRY_LIST);
  std::set<std::string> names;
  const std::regex line(R"(^(required|optional) .*\b((Rfc|It)\w+U)\()");
  std::string l;
  std::smatch m;
  while (std::getline(in, l))
    if (std::regex_search(l, m, line)) names.insert(m[2]);
  return names;
}

TEST(Exports, TheLoaderTableResolvesEveryListedEntryPoint) {
  void* lib = dlopen(VELTRANE_RFC_LIBRARY, RTLD_NOW | RTLD_LOCAL);
  ASSERT_NE(lib, nullptr) << dlerror();
  veltrane::sdk::rfc::EntryPoints table;
  const char* missing = veltrane::sdk::rfc::resolveEntryPoints(table, [&](const char* n) { return dlsym(lib, n); });
  EXPECT_EQ(missing, nullptr) << missing;
  EXPECT_NE(table.RfcOpenExU, nullptr);
  EXPECT_NE(table.RfcGetTicketU, nullptr) << "optional ones too, in our library";
  EXPECT_EQ(table.ItFillU(nullptr), 0u);
  EXPECT_EQ(listed().size(), veltrane::sdk::rfc::kEntryCount);
  EXPECT_STREQ(veltrane::sdk::rfc::entryName(veltrane::sdk::rfc::Entry::RfcListenU), "RfcListenU");
  dlclose(lib);
}

TEST(Exports, OnlyTheListIsExported) {
  const std::string command = std::string("nm -D --defined-only ") + VELTRANE_RFC_LIBRARY;
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

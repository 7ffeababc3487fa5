// Thread, user and system locales, and VELTRANE_LCID.
#include "conversion_table.h"

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

extern char** environ;

namespace {

// Started by Locale.EnvironmentSetsTheUserLocale, this program only reports,
// through its exit code, whether it began with the expected locale.
const int kChildReport = [] {
  const char* expected = std::getenv("VELTRANE_TEST_EXPECTED_LCID");
  if (!expected) return 0;
  const LCID lcid = static_cast<LCID>(std::strtoul(expected, nullptr, 10));
  const bool ok = GetUserDefaultLCID() == lcid && GetSystemDefaultLCID() == lcid && GetThreadLocale() == lcid;
  _exit(ok ? 0 : 1);
}();

TEST(Locale, ThreadLocaleDefaultsToTheUserLocale) {
  std::thread([] { EXPECT_EQ(GetThreadLocale(), GetUserDefaultLCID()); }).join();
  EXPECT_EQ(GetSystemDefaultLCID(), GetUserDefaultLCID());
}

TEST(Locale, SetThreadLocaleIsPerThread) {
  std::thread([] {
    ASSERT_TRUE(SetThreadLocale(0x0407));
    EXPECT_EQ(GetThreadLocale(), 0x0407u);
    std::thread([] { EXPECT_EQ(GetThreadLocale(), GetUserDefaultLCID()); }).join();
    EXPECT_EQ(GetThreadLocale(), 0x0407u);
  }).join();
  std::thread([] { EXPECT_EQ(GetThreadLocale(), GetUserDefaultLCID()); }).join();
}

TEST(Locale, SetThreadLocaleAcceptsKnownLocalesOnly) {
  std::thread([] {
    EXPECT_TRUE(SetThreadLocale(0x0809));
    EXPECT_EQ(GetThreadLocale(), 0x0809u);
    EXPECT_FALSE(SetThreadLocale(0x040C));  // not one of ours: the locale stays
    EXPECT_EQ(GetThreadLocale(), 0x0809u);
    EXPECT_FALSE(SetThreadLocale(0x00300409));
    EXPECT_TRUE(SetThreadLocale(0x0007));  // the language alone means its main locale
    EXPECT_EQ(GetThreadLocale(), 0x0407u);
    EXPECT_TRUE(SetThreadLocale(0x10407));  // a sort order is kept
    EXPECT_EQ(GetThreadLocale(), 0x10407u);
    EXPECT_TRUE(SetThreadLocale(LOCALE_INVARIANT));
    EXPECT_EQ(GetThreadLocale(), 0x007Fu);
    EXPECT_TRUE(SetThreadLocale(LOCALE_USER_DEFAULT));
    EXPECT_EQ(GetThreadLocale(), GetUserDefaultLCID());
    EXPECT_TRUE(SetThreadLocale(LOCALE_SYSTEM_DEFAULT));
    EXPECT_EQ(GetThreadLocale(), GetSystemDefaultLCID());
  }).join();
}

TEST(Locale, UserDefaultIsNotTheThreadLocale) {
  std::thread([] {
    const LCID user = GetUserDefaultLCID();
    ASSERT_TRUE(SetThreadLocale(user == 0x0407 ? 0x0409 : 0x0407));
    Var v = R8(0.5);
    Var out;
    ASSERT_EQ(VariantChangeTypeEx(out.get(), v.get(), LOCALE_USER_DEFAULT, 0, VT_BSTR), S_OK);
    Var expected;
    ASSERT_EQ(VariantChangeTypeEx(expected.get(), v.get(), user, 0, VT_BSTR), S_OK);
    EXPECT_EQ(Printable(out->bstrVal), Printable(expected->bstrVal));
  }).join();
}

// Runs this test program again with VELTRANE_LCID set; the child checks
// the locale it starts with (kChildReport).
int RunChild(const char* value, LCID expected) {
  std::vector<std::string> env;
  for (char** e = environ; *e; ++e) {
    std::string entry(*e);
    if (entry.rfind("VELTRANE_LCID=", 0) == 0 || entry.rfind("VELTRANE_TEST_EXPECTED_LCID=", 0) == 0) continue;
    env.push_back(entry);
  }
  if (value) env.push_back(std::string("VELTRANE_LCID=") + value);
  env.push_back("VELTRANE_TEST_EXPECTED_LCID=" + std::to_string(expected));
  std::vector<char*> envp;
  for (auto& e : env) envp.push_back(e.data());
  envp.push_back(nullptr);
  std::string self = "/proc/self/exe";
  char* argv[] = {self.data(), nullptr};
  pid_t pid;
  if (posix_spawn(&pid, "/proc/self/exe", nullptr, nullptr, argv, envp.data()) != 0) return -1;
  int status = 0;
  waitpid(pid, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

TEST(Locale, EnvironmentSetsTheUserLocale) {
  EXPECT_EQ(RunChild(nullptr, 0x0409), 0);
  EXPECT_EQ(RunChild("", 0x0409), 0);
  EXPECT_EQ(RunChild("de-DE", 0x0407), 0);
  EXPECT_EQ(RunChild("de_DE.UTF-8", 0x0407), 0);
  EXPECT_EQ(RunChild("DE", 0x0407), 0);
  EXPECT_EQ(RunChild("en-GB", 0x0809), 0);
  EXPECT_EQ(RunChild("en_GB@euro", 0x0809), 0);
  EXPECT_EQ(RunChild("0x0407", 0x0407), 0);
  EXPECT_EQ(RunChild("2057", 0x0809), 0);
  EXPECT_EQ(RunChild(" invariant ", 0x007F), 0);
  // Names of no known locale fall back to en-US.
  EXPECT_EQ(RunChild("fr-FR", 0x0409), 0);
  EXPECT_EQ(RunChild("0x040C", 0x0409), 0);
  EXPECT_EQ(RunChild("0x04zz", 0x0409), 0);
  EXPECT_EQ(RunChild("nonsense", 0x0409), 0);
}

}  // namespace

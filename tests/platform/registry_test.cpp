// The registry: the text form of a hive, the files of the store and their
// atomic replacement, the registry functions and the HKEY_CLASSES_ROOT view,
// transactions.
#include <gtest/gtest.h>

#include <sys/resource.h>
#include <sys/stat.h>

#include <atomic>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "platform/registry_hive.h"
#include "platform/registry_store.h"
#include "platform/registry_text.h"
#include "platform/unicode.h"
#include "platform/winreg.h"
#include "temp_dir.h"

using namespace veltrane::platform;
using veltrane::platform::registry::HiveSyntaxError;
using veltrane::platform::registry::Key;
using veltrane::platform::registry::ReadHive;
using veltrane::platform::registry::WriteHive;

namespace {

class Registry : public ::testing::Test {
 protected:
  void SetUp() override {
    setenv("VELTRANE_SYSCONFDIR", dir.file("etc").c_str(), 1);
    setenv("XDG_CONFIG_HOME", dir.file("config").c_str(), 1);
  }
  std::string MachineFile() { return dir.file("etc") + "/veltrane/registry"; }
  std::string UserFile() { return dir.file("config") + "/veltrane/registry"; }

  TempDir dir;
};

std::u16string Read(HKEY root, const std::u16string& path, LPCWSTR name = nullptr) {
  return RegistryText(root, path, name);
}

}  // namespace

TEST(RegistryHive, TextFormRoundTripsEveryKindOfValue) {
  Key root;
  Key& k = root.Create({u"Software", u"Classes", u"Veltrane.SoapSession"});
  auto text = [](std::u16string_view s) {
    std::vector<BYTE> b(reinterpret_cast<const BYTE*>(s.data()), reinterpret_cast<const BYTE*>(s.data() + s.size()));
    b.push_back(0);
    b.push_back(0);
    return b;
  };
  k.values[u""] = {REG_SZ, text(u"SoapSession Class \"quoted\" \\ back")};
  k.values[u"Number"] = {REG_DWORD, {0x2a, 0, 0, 0}};
  k.values[u"Bytes"] = {REG_BINARY, {0x01, 0xff}};
  k.values[u"Lines"] = {REG_SZ, text(u"a\nb")};  // not printable in quotes
  k.values[u"Multi"] = {REG_MULTI_SZ, {0x61, 0, 0, 0, 0, 0}};
  k.values[u"Umlaut \u00e4"] = {REG_SZ, text(u"\u00fc")};
  root.Create({u"Empty"});
  const std::string written = WriteHive(root, "test");
  EXPECT_NE(
      written.find("[Software\\Classes\\Veltrane.SoapSession]\n@=\"SoapSession Class \\\"quoted\\\" \\\\ back\"\n"),
      std::string::npos)
      << written;
  EXPECT_NE(written.find("\"Number\"=dword:0000002a\n"), std::string::npos);
  EXPECT_NE(written.find("\"Bytes\"=hex:01,ff\n"), std::string::npos);
  EXPECT_NE(written.find("\"Lines\"=hex(1):61,00,0a,00,62,00,00,00\n"), std::string::npos);
  EXPECT_NE(written.find("\"Multi\"=hex(7):61,00,00,00,00,00\n"), std::string::npos);
  EXPECT_NE(written.find("[Empty]\n"), std::string::npos);
  const Key back = ReadHive(written);
  EXPECT_TRUE(back == root);
  EXPECT_EQ(WriteHive(back, "test"), written);
}

TEST(RegistryHive, NamesCompareWithoutCaseAndKeepTheirs) {
  Key root;
  root.Create({u"CLSID", u"Abc"});
  bool created = true;
  root.Create({u"clsid", u"ABC"}, &created);
  EXPECT_FALSE(created);
  EXPECT_NE(root.Find({u"CLSID", u"abc"}), nullptr);
  EXPECT_EQ(root.subkeys.begin()->first, u"CLSID");
  EXPECT_TRUE(root.Remove({u"Clsid", u"aBc"}));
  EXPECT_FALSE(root.Remove({u"Clsid", u"aBc"}));
}

TEST(RegistryHive, BadTextIsRefusedWithItsLine) {
  const char* cases[] = {
      "\"Name\"=\"value\"\n",        // a value before any key
      "[A]\n\"Name\"=\"unclosed\n",  // no closing quote
      "[A]\n@=dword:12\n",           // too few digits
      "[A]\n@=hex:1,2\n",            // one digit per byte
      "[A]\n@=hex:01,\n",            // a trailing comma
      "[A]\n@=text\n",               // no kind of data
      "[A\\\\B]\n",                  // an empty key name
      "[A\n",                        // no closing bracket
      "[A]\n\"\\x\"=\"v\"\n",        // an unknown escape
      "[A]\n@=\"v\" junk\n",         // text behind the value
  };
  std::string deep = "[";
  for (int i = 0; i < 513; ++i) deep += "k\\";
  deep += "k]\n";
  EXPECT_THROW(ReadHive(deep), HiveSyntaxError);  // deeper than a registry goes
  for (const char* text : cases) EXPECT_THROW(ReadHive(text), HiveSyntaxError) << text;
  try {
    ReadHive("; comment\n\n[A]\n@=\"ok\"\nbroken\n");
    FAIL();
  } catch (const HiveSyntaxError& e) {
    EXPECT_EQ(e.line(), 5u);
  }
}

TEST(RegistryHive, CommentsBlankLinesAndCarriageReturnsAreRead) {
  const Key root = ReadHive("; written by hand\r\n\r\n[A\\B]\r\n  @=\"x\"  \r\n[]\r\n\"Top\"=dword:00000001\r\n");
  ASSERT_NE(root.Find({u"A", u"B"}), nullptr);
  EXPECT_EQ(root.Find({u"A", u"B"})->values.at(u"").type, static_cast<DWORD>(REG_SZ));
  EXPECT_EQ(root.values.at(u"Top").bytes, (std::vector<BYTE>{1, 0, 0, 0}));
}

TEST_F(Registry, HivesLiveInTheirFilesAndAMissingFileIsEmpty) {
  EXPECT_EQ(registry::HiveFilePath(registry::HiveId::Machine), MachineFile());
  EXPECT_EQ(registry::HiveFilePath(registry::HiveId::User), UserFile());
  HKEY key = nullptr;
  EXPECT_EQ(RegOpenKeyExW(HKEY_LOCAL_MACHINE, u"Software", 0, KEY_READ, &key), ERROR_FILE_NOT_FOUND);
  ASSERT_EQ(SetRegistryText(HKEY_LOCAL_MACHINE, u"Software\\Veltrane", u"Name", u"machine"), ERROR_SUCCESS);
  ASSERT_EQ(SetRegistryText(HKEY_CURRENT_USER, u"Software\\Veltrane", u"Name", u"user"), ERROR_SUCCESS);
  EXPECT_NE(ReadFile(MachineFile()).find("[Software\\Veltrane]\n\"Name\"=\"machine\""), std::string::npos);
  EXPECT_NE(ReadFile(UserFile()).find("[Software\\Veltrane]\n\"Name\"=\"user\""), std::string::npos);
  EXPECT_EQ(Read(HKEY_LOCAL_MACHINE, u"software\\VELTRANE", u"name"), u"machine");
  struct stat st {};
  ASSERT_EQ(stat(UserFile().c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0644u);
}

TEST_F(Registry, UserHiveFallsBackToTheHomeDirectory) {
  unsetenv("XDG_CONFIG_HOME");
  setenv("HOME", dir.file("home").c_str(), 1);
  EXPECT_EQ(registry::HiveFilePath(registry::HiveId::User), dir.file("home") + "/.config/veltrane/registry");
}

TEST_F(Registry, ClassesRootReadsTheUsersClassesOverTheMachines) {
  ASSERT_EQ(SetRegistryText(HKEY_LOCAL_MACHINE, u"Software\\Classes\\Veltrane.X\\CLSID", nullptr, u"{machine}"),
            ERROR_SUCCESS);
  EXPECT_EQ(Read(HKEY_CLASSES_ROOT, u"Veltrane.X\\CLSID"), u"{machine}");
  ASSERT_EQ(SetRegistryText(HKEY_CURRENT_USER, u"Software\\Classes\\Veltrane.X\\CLSID", nullptr, u"{user}"),
            ERROR_SUCCESS);
  EXPECT_EQ(Read(HKEY_CLASSES_ROOT, u"Veltrane.X\\CLSID"), u"{user}");
  // A write through the view goes where the key stands: the user's key here,
  // the machine's for a key the user lacks.
  ASSERT_EQ(SetRegistryText(HKEY_CLASSES_ROOT, u"Veltrane.X\\CLSID", nullptr, u"{changed}"), ERROR_SUCCESS);
  EXPECT_EQ(Read(HKEY_CURRENT_USER, u"Software\\Classes\\Veltrane.X\\CLSID"), u"{changed}");
  EXPECT_EQ(Read(HKEY_LOCAL_MACHINE, u"Software\\Classes\\Veltrane.X\\CLSID"), u"{machine}");
  ASSERT_EQ(SetRegistryText(HKEY_CLASSES_ROOT, u"Veltrane.Y", nullptr, u"new"), ERROR_SUCCESS);
  EXPECT_EQ(Read(HKEY_LOCAL_MACHINE, u"Software\\Classes\\Veltrane.Y"), u"new");
}

TEST_F(Registry, QueryValueReportsSizeTypeAndTooSmallBuffers) {
  ASSERT_EQ(SetRegistryText(HKEY_CURRENT_USER, u"K", u"V", u"abc"), ERROR_SUCCESS);
  HKEY key = nullptr;
  ASSERT_EQ(RegOpenKeyExW(HKEY_CURRENT_USER, u"K", 0, KEY_READ, &key), ERROR_SUCCESS);
  DWORD type = 0, size = 0;
  EXPECT_EQ(RegQueryValueExW(key, u"V", nullptr, &type, nullptr, &size), ERROR_SUCCESS);
  EXPECT_EQ(type, static_cast<DWORD>(REG_SZ));
  EXPECT_EQ(size, 8u);
  BYTE small[4];
  size = sizeof small;
  EXPECT_EQ(RegQueryValueExW(key, u"V", nullptr, nullptr, small, &size), ERROR_MORE_DATA);
  EXPECT_EQ(size, 8u);
  EXPECT_EQ(RegQueryValueExW(key, u"missing", nullptr, nullptr, nullptr, &size), ERROR_FILE_NOT_FOUND);
  const DWORD number = 7;
  EXPECT_EQ(RegSetValueExW(key, u"N", 0, REG_DWORD, reinterpret_cast<const BYTE*>(&number), 4), ERROR_SUCCESS);
  DWORD back = 0;
  size = 4;
  EXPECT_EQ(RegQueryValueExW(key, u"n", nullptr, &type, reinterpret_cast<BYTE*>(&back), &size), ERROR_SUCCESS);
  EXPECT_EQ(back, 7u);
  EXPECT_EQ(RegDeleteValueW(key, u"N"), ERROR_SUCCESS);
  EXPECT_EQ(RegDeleteValueW(key, u"N"), ERROR_FILE_NOT_FOUND);
  EXPECT_EQ(RegCloseKey(key), ERROR_SUCCESS);
}

TEST_F(Registry, CreateOpenEnumerateAndDeleteKeys) {
  HKEY key = nullptr;
  DWORD disposition = 0;
  ASSERT_EQ(RegCreateKeyExW(HKEY_CURRENT_USER, u"A\\B", 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &key, &disposition),
            ERROR_SUCCESS);
  EXPECT_EQ(disposition, static_cast<DWORD>(REG_CREATED_NEW_KEY));
  RegCloseKey(key);
  ASSERT_EQ(RegCreateKeyExW(HKEY_CURRENT_USER, u"a\\b", 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &key, &disposition),
            ERROR_SUCCESS);
  EXPECT_EQ(disposition, static_cast<DWORD>(REG_OPENED_EXISTING_KEY));
  RegCloseKey(key);
  ASSERT_EQ(RegCreateKeyExW(HKEY_CURRENT_USER, u"A\\C", 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &key, nullptr),
            ERROR_SUCCESS);
  RegCloseKey(key);
  ASSERT_EQ(RegOpenKeyExW(HKEY_CURRENT_USER, u"A", 0, KEY_READ, &key), ERROR_SUCCESS);
  char16_t name[8];
  DWORD length = 8;
  EXPECT_EQ(RegEnumKeyExW(key, 1, name, &length, nullptr, nullptr, nullptr, nullptr), ERROR_SUCCESS);
  EXPECT_EQ(std::u16string(name), u"C");
  EXPECT_EQ(length, 1u);
  length = 8;
  EXPECT_EQ(RegEnumKeyExW(key, 2, name, &length, nullptr, nullptr, nullptr, nullptr), ERROR_NO_MORE_ITEMS);
  EXPECT_EQ(RegDeleteKeyW(HKEY_CURRENT_USER, u"A"), ERROR_ACCESS_DENIED);  // it has subkeys
  EXPECT_EQ(RegDeleteKeyW(key, u"B"), ERROR_SUCCESS);
  EXPECT_EQ(RegDeleteTreeW(HKEY_CURRENT_USER, u"A"), ERROR_SUCCESS);
  length = 8;
  EXPECT_EQ(RegEnumKeyExW(key, 0, name, &length, nullptr, nullptr, nullptr, nullptr), ERROR_KEY_DELETED);
  RegCloseKey(key);
  EXPECT_EQ(RegOpenKeyExW(HKEY_CURRENT_USER, u"A", 0, KEY_READ, &key), ERROR_FILE_NOT_FOUND);
  EXPECT_EQ(RegCreateKeyExW(HKEY_CURRENT_USER, u"A\\\\B", 0, nullptr, 0, 0, nullptr, &key, nullptr), ERROR_BADKEY);
  EXPECT_EQ(RegCreateKeyExW(HKEY_CURRENT_USER, u"Line\nBreak", 0, nullptr, 0, 0, nullptr, &key, nullptr), ERROR_BADKEY);
  std::u16string deep;
  for (int i = 0; i < 513; ++i) deep += u"k\\";
  EXPECT_EQ(RegCreateKeyExW(HKEY_CURRENT_USER, (deep + u"k").c_str(), 0, nullptr, 0, 0, nullptr, &key, nullptr),
            ERROR_BADKEY);
}

TEST_F(Registry, FileThatCannotBeReadIsNeitherReadNorOverwritten) {
  std::filesystem::create_directories(dir.file("config") + "/veltrane");
  { std::ofstream(UserFile()) << "[Kept]\nnot a value line\n"; }
  EXPECT_EQ(SetRegistryText(HKEY_CURRENT_USER, u"New", nullptr, u"x"), ERROR_BADDB);
  HKEY key = nullptr;
  EXPECT_EQ(RegOpenKeyExW(HKEY_CURRENT_USER, u"Kept", 0, KEY_READ, &key), ERROR_FILE_NOT_FOUND);
  EXPECT_EQ(ReadFile(UserFile()), "[Kept]\nnot a value line\n");
}

TEST_F(Registry, AWriteBrokenOffHalfWayLeavesTheFileAsItWas) {
  ASSERT_EQ(SetRegistryText(HKEY_CURRENT_USER, u"Before", nullptr, u"kept"), ERROR_SUCCESS);
  const std::string before = ReadFile(UserFile());
  // Files may grow to 40 bytes only: writing the new content stops part way.
  struct rlimit old {};
  getrlimit(RLIMIT_FSIZE, &old);
  struct rlimit small = old;
  small.rlim_cur = 40;
  void (*previous)(int) = std::signal(SIGXFSZ, SIG_IGN);
  setrlimit(RLIMIT_FSIZE, &small);
  const LONG result = SetRegistryText(HKEY_CURRENT_USER, u"After", nullptr, u"a value that does not fit");
  setrlimit(RLIMIT_FSIZE, &old);
  std::signal(SIGXFSZ, previous);
  EXPECT_EQ(result, ERROR_CANTWRITE);
  EXPECT_EQ(ReadFile(UserFile()), before);
  EXPECT_EQ(Read(HKEY_CURRENT_USER, u"Before"), u"kept");
  // Nothing is left beside the file but the lock.
  for (const auto& entry : std::filesystem::directory_iterator(dir.file("config") + "/veltrane"))
    EXPECT_TRUE(entry.path().filename() == "registry" || entry.path().filename() == "registry.lock") << entry.path();
}

TEST_F(Registry, ALeftoverOfAWriterThatDiedIsIgnored) {
  ASSERT_EQ(SetRegistryText(HKEY_CURRENT_USER, u"Before", nullptr, u"kept"), ERROR_SUCCESS);
  { std::ofstream(UserFile() + ".Xy12Ab") << "[Half\\"; }
  EXPECT_EQ(Read(HKEY_CURRENT_USER, u"Before"), u"kept");
  EXPECT_EQ(SetRegistryText(HKEY_CURRENT_USER, u"After", nullptr, u"new"), ERROR_SUCCESS);
  EXPECT_EQ(Read(HKEY_CURRENT_USER, u"After"), u"new");
}

TEST_F(Registry, TransactionWritesAllItsChangesAtCommitAndNoneWithout) {
  {
    RegistryTransaction transaction;
    ASSERT_EQ(SetRegistryText(HKEY_CURRENT_USER, u"T\\One", nullptr, u"1"), ERROR_SUCCESS);
    ASSERT_EQ(SetRegistryText(HKEY_CURRENT_USER, u"T\\Two", nullptr, u"2"), ERROR_SUCCESS);
    // The transaction reads its own changes; the file has none of them yet.
    EXPECT_EQ(Read(HKEY_CURRENT_USER, u"T\\One"), u"1");
    EXPECT_FALSE(Exists(UserFile()));
  }
  EXPECT_FALSE(Exists(UserFile()));
  EXPECT_EQ(Read(HKEY_CURRENT_USER, u"T\\One"), u"");
  {
    RegistryTransaction transaction;
    ASSERT_EQ(SetRegistryText(HKEY_CURRENT_USER, u"T\\One", nullptr, u"1"), ERROR_SUCCESS);
    {
      RegistryTransaction inner;  // joins the outer one
      ASSERT_EQ(SetRegistryText(HKEY_CURRENT_USER, u"T\\Two", nullptr, u"2"), ERROR_SUCCESS);
      EXPECT_EQ(inner.Commit(), ERROR_SUCCESS);
      EXPECT_FALSE(Exists(UserFile()));
    }
    EXPECT_EQ(transaction.Commit(), ERROR_SUCCESS);
  }
  EXPECT_EQ(Read(HKEY_CURRENT_USER, u"T\\One"), u"1");
  EXPECT_EQ(Read(HKEY_CURRENT_USER, u"T\\Two"), u"2");
}

TEST_F(Registry, WritersTakeTurnsAndReadersSeeWholeFiles) {
  std::atomic<bool> writing{true};
  std::atomic<int> unreadable{0};
  std::vector<std::thread> writers;
  for (int w = 0; w < 3; ++w) {
    writers.emplace_back([w] {
      for (int i = 0; i < 30; ++i) {
        const std::u16string key = u"W" + std::u16string(1, static_cast<char16_t>(u'0' + w)) + u"\\K" +
                                   std::u16string(1, static_cast<char16_t>(u'A' + i % 26)) +
                                   std::u16string(1, static_cast<char16_t>(u'0' + i / 26));
        if (i % 3 == 0) {
          RegistryTransaction transaction;  // some changes come as transactions
          SetRegistryText(HKEY_CURRENT_USER, key, nullptr, u"t");
          transaction.Commit();
        } else {
          SetRegistryText(HKEY_CURRENT_USER, key, nullptr, u"v");
        }
      }
    });
  }
  std::thread reader([&] {
    while (writing) {
      HKEY key = nullptr;
      const LONG r = RegOpenKeyExW(HKEY_CURRENT_USER, u"", 0, KEY_READ, &key);
      if (r != ERROR_SUCCESS) ++unreadable;
      char16_t name[8];
      DWORD size = 8;
      if (RegEnumKeyExW(key, 0, name, &size, nullptr, nullptr, nullptr, nullptr) == ERROR_BADDB) ++unreadable;
      RegCloseKey(key);
    }
  });
  for (auto& t : writers) t.join();
  writing = false;
  reader.join();
  EXPECT_EQ(unreadable.load(), 0);
  // No change was lost: each writer read the file again under the lock.
  int keys = 0;
  for (const char16_t* w : {u"W0", u"W1", u"W2"}) {
    HKEY key = nullptr;
    ASSERT_EQ(RegOpenKeyExW(HKEY_CURRENT_USER, w, 0, KEY_READ, &key), ERROR_SUCCESS);
    char16_t name[8];
    for (DWORD i = 0;; ++i) {
      DWORD size = 8;
      if (RegEnumKeyExW(key, i, name, &size, nullptr, nullptr, nullptr, nullptr) != ERROR_SUCCESS) break;
      ++keys;
    }
    RegCloseKey(key);
  }
  EXPECT_EQ(keys, 90);
}

// The registrar: preprocessing (variables, the per-user rewriting of HKCR)
// and running scripts to register and unregister.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "platform/registrar.h"
#include "platform/registrar_script.h"
#include "platform/registry_text.h"
#include "platform/winreg.h"
#include "temp_dir.h"

using veltrane::platform::RegistryText;
using veltrane::platform::registrar::Preprocess;

namespace {

class Registrar : public ::testing::Test {
 protected:
  void SetUp() override {
    setenv("VELTRANE_SYSCONFDIR", dir.file("etc").c_str(), 1);
    setenv("XDG_CONFIG_HOME", dir.file("config").c_str(), 1);
  }
  void TearDown() override { AtlSetPerUserRegistration(false); }

  static HRESULT Update(const char16_t* script, bool doRegister, const _ATL_REGMAP_ENTRY* map = nullptr) {
    return AtlUpdateRegistryFromScript(script, doRegister ? TRUE : FALSE, map);
  }
  static bool Has(HKEY root, const std::u16string& path) {
    HKEY key = nullptr;
    if (RegOpenKeyExW(root, path.c_str(), 0, KEY_READ, &key) != ERROR_SUCCESS) return false;
    RegCloseKey(key);
    return true;
  }

  TempDir dir;
};

const _ATL_REGMAP_ENTRY kMap[] = {{u"MODULE", u"/opt/it''s/libx.so"}, {u"Module_Raw", u"/opt/it's/libx.so"}, {}};

std::u16string Preprocessed(std::u16string_view script, bool perUser, HRESULT expected = S_OK) {
  std::u16string out;
  EXPECT_EQ(Preprocess(script, kMap, perUser, &out), expected);
  return out;
}

}  // namespace

TEST(RegistrarPreprocess, VariablesAreReplacedAndADoubledPercentIsOne) {
  EXPECT_EQ(Preprocessed(u"InprocServer32 = s '%MODULE%' 100%% %module_raw%", false),
            u"InprocServer32 = s '/opt/it''s/libx.so' 100% /opt/it's/libx.so");
}

TEST(RegistrarPreprocess, AnUnknownVariableOrAnOpenPercentFails) {
  Preprocessed(u"x = s '%NOSUCH%'", false, DISP_E_EXCEPTION);
  Preprocessed(u"x = s '100%'", false, DISP_E_EXCEPTION);
}

TEST(RegistrarPreprocess, PerUserRewritesTheRootHkcrAndClosesItsBlock) {
  EXPECT_EQ(Preprocessed(u"HKCR\r\n{\r\n\tA = s 'x'\r\n}\r\n", true),
            u"HKCU\r\n{\tSoftware\r\n\t{\r\n\t\tClasses\r\n{\r\n\tA = s 'x'\r\n}\r\n\t}\r\n}\r\n\r\n");
  // Without per-user registration the script stays as it is.
  EXPECT_EQ(Preprocessed(u"HKCR\r\n{\r\n}\r\n", false), u"HKCR\r\n{\r\n}\r\n");
}

TEST(RegistrarPreprocess, HkcrInsideAQuotedNameOrBelowTheRootIsLeftAlone) {
  const std::u16string script = u"HKLM\r\n{\r\n\t'HKCR' = s 'it''s HKCR'\r\n\tHKCR\r\n}\r\n";
  EXPECT_EQ(Preprocessed(script, true), script);
  // A doubled quote keeps the name open: the braces inside it are no braces.
  EXPECT_EQ(Preprocessed(u"HKCR { 'a''{b' }", true),
            u"HKCU\r\n{\tSoftware\r\n\t{\r\n\t\tClasses { 'a''{b' }\r\n\t}\r\n}\r\n");
}

TEST_F(Registrar, RegisterCreatesKeysAndValuesOfEveryType) {
  const char16_t* script =
      u"HKCU\r\n{\r\n"
      u"  NoRemove Software\r\n  {\r\n"
      u"    ForceRemove Test = s 'Description'\r\n    {\r\n"
      u"      val Text = s 'it''s'\r\n"
      u"      val Number = d '42'\r\n"
      u"      val Hex = d '0x10'\r\n"
      u"      val Bytes = b '01ff'\r\n"
      u"      val Lines = m 'a\\0b'\r\n"
      u"      'Quoted Name' = s '%MODULE%'\r\n"
      u"    }\r\n  }\r\n}\r\n";
  ASSERT_EQ(Update(script, true, kMap), S_OK);
  EXPECT_EQ(RegistryText(HKEY_CURRENT_USER, u"Software\\Test"), u"Description");
  EXPECT_EQ(RegistryText(HKEY_CURRENT_USER, u"Software\\Test", u"Text"), u"it's");
  EXPECT_EQ(RegistryText(HKEY_CURRENT_USER, u"Software\\Test\\Quoted Name"), u"/opt/it's/libx.so");
  HKEY key = nullptr;
  ASSERT_EQ(RegOpenKeyExW(HKEY_CURRENT_USER, u"Software\\Test", 0, KEY_READ, &key), ERROR_SUCCESS);
  DWORD type = 0, number = 0, size = 4;
  RegQueryValueExW(key, u"Number", nullptr, &type, reinterpret_cast<BYTE*>(&number), &size);
  EXPECT_EQ(type, static_cast<DWORD>(REG_DWORD));
  EXPECT_EQ(number, 42u);
  size = 4;
  RegQueryValueExW(key, u"Hex", nullptr, &type, reinterpret_cast<BYTE*>(&number), &size);
  EXPECT_EQ(number, 16u);
  BYTE bytes[8];
  size = sizeof bytes;
  RegQueryValueExW(key, u"Bytes", nullptr, &type, bytes, &size);
  EXPECT_EQ(type, static_cast<DWORD>(REG_BINARY));
  EXPECT_EQ(size, 2u);
  EXPECT_EQ(bytes[1], 0xff);
  char16_t lines[8];
  size = sizeof lines;
  RegQueryValueExW(key, u"Lines", nullptr, &type, reinterpret_cast<BYTE*>(lines), &size);
  EXPECT_EQ(type, static_cast<DWORD>(REG_MULTI_SZ));
  EXPECT_EQ(std::u16string(lines, size / 2), std::u16string(u"a\0b\0\0", 5));
  RegCloseKey(key);
}

TEST_F(Registrar, UnregisterRemovesForceRemoveTreesAndEmptiedKeysButKeepsNoRemove) {
  const char16_t* script =
      u"HKCU\r\n{\r\n"
      u"  NoRemove Kept\r\n  {\r\n"
      u"    Plain = s 'x'\r\n    {\r\n      Leaf = s 'y'\r\n    }\r\n"
      u"    ForceRemove Tree\r\n    {\r\n      Below = s 'z'\r\n    }\r\n"
      u"    val Setting = s 'v'\r\n"
      u"  }\r\n}\r\n";
  ASSERT_EQ(Update(script, true), S_OK);
  // Something of another component below the plain key and beside it.
  ASSERT_EQ(veltrane::platform::SetRegistryText(HKEY_CURRENT_USER, u"Kept\\Other", nullptr, u"o"), ERROR_SUCCESS);
  ASSERT_EQ(Update(script, false), S_OK);
  EXPECT_TRUE(Has(HKEY_CURRENT_USER, u"Kept"));
  EXPECT_TRUE(Has(HKEY_CURRENT_USER, u"Kept\\Other"));
  EXPECT_FALSE(Has(HKEY_CURRENT_USER, u"Kept\\Plain"));
  EXPECT_FALSE(Has(HKEY_CURRENT_USER, u"Kept\\Tree"));
  EXPECT_EQ(RegistryText(HKEY_CURRENT_USER, u"Kept", u"Setting"), u"");
  // Unregistering what is not there is no failure.
  EXPECT_EQ(Update(script, false), S_OK);
}

TEST_F(Registrar, APlainKeyWithSubkeysOfOthersStays) {
  const char16_t* script = u"HKCU\r\n{\r\n  Shared\r\n  {\r\n    Mine = s '1'\r\n  }\r\n}\r\n";
  ASSERT_EQ(Update(script, true), S_OK);
  ASSERT_EQ(veltrane::platform::SetRegistryText(HKEY_CURRENT_USER, u"Shared\\Theirs", nullptr, u"2"), ERROR_SUCCESS);
  ASSERT_EQ(Update(script, false), S_OK);
  EXPECT_TRUE(Has(HKEY_CURRENT_USER, u"Shared\\Theirs"));
  EXPECT_FALSE(Has(HKEY_CURRENT_USER, u"Shared\\Mine"));
}

TEST_F(Registrar, ForceRemoveReplacesAndDeleteRemovesOnRegister) {
  ASSERT_EQ(veltrane::platform::SetRegistryText(HKEY_CURRENT_USER, u"Old\\Stale", nullptr, u"s"), ERROR_SUCCESS);
  ASSERT_EQ(veltrane::platform::SetRegistryText(HKEY_CURRENT_USER, u"Gone\\Below", nullptr, u"g"), ERROR_SUCCESS);
  ASSERT_EQ(Update(u"HKCU { ForceRemove Old = s 'fresh' Delete Gone }", true), S_OK);
  EXPECT_EQ(RegistryText(HKEY_CURRENT_USER, u"Old"), u"fresh");
  EXPECT_FALSE(Has(HKEY_CURRENT_USER, u"Old\\Stale"));
  EXPECT_FALSE(Has(HKEY_CURRENT_USER, u"Gone"));
}

TEST_F(Registrar, AScriptThatCannotBeReadChangesNothing) {
  const char16_t* broken[] = {
      u"HKCU { First = s 'written?' Second = x 'bad type' }",
      u"HKCU { First = s 'unclosed }",
      u"HKXX { First = s 'x' }",
      u"HKCU { First = s 'x' ",
      u"HKCU { val = s 'x' }",
      u"HKCU { First = d 'twelve' }",
  };
  for (const char16_t* script : broken) {
    EXPECT_EQ(Update(script, true), DISP_E_EXCEPTION) << static_cast<int>(script[7]);
    EXPECT_FALSE(Has(HKEY_CURRENT_USER, u"First"));
  }
}

TEST_F(Registrar, PerUserRegistrationPutsHkcrBelowTheUsersClasses) {
  bool perUser = true;
  ASSERT_EQ(AtlGetPerUserRegistration(&perUser), S_OK);
  EXPECT_FALSE(perUser);
  ASSERT_EQ(AtlSetPerUserRegistration(true), S_OK);
  ASSERT_EQ(AtlGetPerUserRegistration(&perUser), S_OK);
  EXPECT_TRUE(perUser);
  const char16_t* script = u"HKCR\r\n{\r\n\tVeltrane.Test = s 'Test Class'\r\n}\r\n";
  ASSERT_EQ(Update(script, true), S_OK);
  EXPECT_EQ(RegistryText(HKEY_CURRENT_USER, u"Software\\Classes\\Veltrane.Test"), u"Test Class");
  EXPECT_FALSE(Has(HKEY_LOCAL_MACHINE, u"Software\\Classes\\Veltrane.Test"));
  EXPECT_EQ(RegistryText(HKEY_CLASSES_ROOT, u"Veltrane.Test"), u"Test Class");
  ASSERT_EQ(Update(script, false), S_OK);
  EXPECT_FALSE(Has(HKEY_CURRENT_USER, u"Software\\Classes\\Veltrane.Test"));
  // Software and Classes are plain keys of the rewriting: emptied, they go too.
  EXPECT_FALSE(Has(HKEY_CURRENT_USER, u"Software"));
}

// The registry scripts of the module as texts: the seven classes and the
// module's own script, their quirks, and the per-user rewriting of a script.
#include "shell/registry_scripts.h"

#include <gtest/gtest.h>

#include <string>

#include "platform/registrar_script.h"
#include "shell/registration.h"

using veltrane::shell::RegistryScripts;
using veltrane::shell::ScriptOf;

namespace {

std::u16string Text(REFCLSID clsid) {
  const auto* script = ScriptOf(clsid);
  return script ? script->text : u"<no script>";
}

bool Contains(const std::u16string& text, std::u16string_view part) { return text.find(part) != std::u16string::npos; }

}  // namespace

TEST(RegistryScripts, SevenClassesAndTheModuleWithTheirResourceNumbers) {
  std::vector<int> resources;
  for (const auto& s : RegistryScripts()) resources.push_back(s.resource);
  EXPECT_EQ(resources, (std::vector<int>{101, 114, 117, 118, 120, 121, 119, 122}));
  EXPECT_EQ(ScriptOf(CLSID_RfcSession)->resource, 101);
  EXPECT_EQ(ScriptOf(CLSID_ConnectorCtrl)->resource, 119);
  EXPECT_EQ(ScriptOf(CLSID_RfcField), nullptr);
  EXPECT_EQ(veltrane::shell::ModuleScript().resource, 122);
  EXPECT_EQ(std::u16string(veltrane::shell::ModuleScript().text), u"");
}

TEST(RegistryScripts, EveryClassNamesItsProgIdsModuleAndThreadingModel) {
  for (const auto& s : RegistryScripts()) {
    if (!s.clsid) continue;
    const std::u16string text = s.text;
    EXPECT_EQ(text.rfind(u"HKCR\n{\n", 0), 0u);
    EXPECT_TRUE(Contains(text, u"InprocServer32 = s '%MODULE%'")) << s.resource;
    EXPECT_TRUE(Contains(text, u"val ThreadingModel = s 'Apartment'")) << s.resource;
    EXPECT_TRUE(Contains(text, u"ForceRemove 'Programmable'")) << s.resource;
    EXPECT_TRUE(Contains(text, u"'TypeLib' = s '{FBDBDBA5-518B-4146-A52F-455C0E03492D}'")) << s.resource;
  }
}

TEST(RegistryScripts, TheQuirksStay) {
  // NWRfcSession: keys spelled NWRfcSession, ProgID values NwRfcSession.
  EXPECT_TRUE(Contains(Text(CLSID_NWRfcSession), u"\tVeltrane.NWRfcSession.1 = s 'NWRfcSession Class'"));
  EXPECT_TRUE(Contains(Text(CLSID_NWRfcSession), u"ProgID = s 'Veltrane.NwRfcSession.1'"));
  EXPECT_TRUE(Contains(Text(CLSID_NWRfcSession), u"VersionIndependentProgID = s 'Veltrane.NwRfcSession'"));
  // BSPApplication: no AppID; three classes describe their version-dependent key with "Veltrane: ".
  EXPECT_FALSE(Contains(Text(CLSID_BSPApplication), u"AppID"));
  EXPECT_TRUE(Contains(Text(CLSID_RfcSession), u"val AppID = s '{6A83179A-1485-4582-9205-F55C2537D558}'"));
  EXPECT_TRUE(Contains(Text(CLSID_BSPApplication), u"Veltrane.BSPApplication.1 = s 'Veltrane: BSPApplication Class'"));
  EXPECT_TRUE(Contains(Text(CLSID_RfcServer), u"Veltrane.RfcServer.1 = s 'Veltrane: RfcServer Class'"));
  EXPECT_TRUE(Contains(Text(CLSID_NWRfcServer), u"Veltrane.NWRfcServer.1 = s 'Veltrane: NWRfcServer Class'"));
  EXPECT_TRUE(Contains(Text(CLSID_SoapSession), u"Veltrane.SoapSession.1 = s 'SoapSession Class'"));
  // The control: its extra keys and the application entry, which no other script writes.
  const std::u16string control = Text(CLSID_ConnectorCtrl);
  EXPECT_TRUE(Contains(control, u"ForceRemove 'ToolboxBitmap32' = s '%MODULE%, 102'"));
  EXPECT_TRUE(Contains(control, u"'1' = s '%OLEMISC%'"));
  EXPECT_TRUE(Contains(control, u"NoRemove AppId"));
  for (const CLSID& other : {CLSID_RfcSession, CLSID_SoapSession, CLSID_BSPApplication, CLSID_RfcServer,
                             CLSID_NWRfcSession, CLSID_NWRfcServer})
    EXPECT_FALSE(Contains(Text(other), u"AppId"));
}

TEST(RegistryScripts, PerUserRewritingPutsTheRfcSessionScriptBelowSoftwareClasses) {
  const _ATL_REGMAP_ENTRY map[] = {{u"MODULE", u"/usr/lib/libveltrane.so.4"}, {}};
  std::u16string out;
  ASSERT_EQ(veltrane::platform::registrar::Preprocess(Text(CLSID_RfcSession), map, true, &out), S_OK);
  EXPECT_EQ(out.rfind(u"HKCU\r\n{\tSoftware\r\n\t{\r\n\t\tClasses\n{\n\tVeltrane.RfcSession.1", 0), 0u)
      << std::string(out.begin(), out.begin() + 80);
  EXPECT_EQ(out.substr(out.size() - 11), u"}\r\n\t}\r\n}\r\n\n");
  EXPECT_TRUE(Contains(out, u"InprocServer32 = s '/usr/lib/libveltrane.so.4'"));
  EXPECT_FALSE(Contains(out, u"HKCR"));
}

TEST(DllInstallCommand, OnlyUserInAnyCaseAsksForPerUserRegistration) {
  using veltrane::shell::IsPerUserCommand;
  EXPECT_TRUE(IsPerUserCommand(u"user"));
  EXPECT_TRUE(IsPerUserCommand(u"USER"));
  EXPECT_TRUE(IsPerUserCommand(u"uSeR"));
  EXPECT_FALSE(IsPerUserCommand(u"users"));
  EXPECT_FALSE(IsPerUserCommand(u"user "));
  EXPECT_FALSE(IsPerUserCommand(u"use"));
  EXPECT_FALSE(IsPerUserCommand(u""));
  EXPECT_FALSE(IsPerUserCommand(nullptr));
}

// The string table as errors/errors.table gives it.
#include <gtest/gtest.h>

#include <string>

#include "veltrane_errors.h"

namespace {

TEST(StringTable, EveryCodeHasATextAndMapsToItsResult) {
  for (UINT code = 513; code <= 548; ++code) {
    EXPECT_FALSE(StringTableText(code).empty()) << code;
    EXPECT_EQ(static_cast<uint32_t>(StringCodeResult(code)), 0x80040000u + code) << code;
  }
  EXPECT_EQ(static_cast<uint32_t>(StringCodeResult(513)), 0x80040201u);
  EXPECT_EQ(static_cast<uint32_t>(StringCodeResult(548)), 0x80040224u);
}

TEST(StringTable, CodesOutsideTheTable) {
  for (UINT code : {0u, 1u, 512u, 549u, 1000u, 65535u, 65536u}) EXPECT_TRUE(StringTableText(code).empty()) << code;
}

TEST(StringTable, Texts) {
  EXPECT_EQ(StringTableText(513), u"The object has already been initialized");
  EXPECT_EQ(StringTableText(519), u"An unexpected error has occured - check trace for details");
  EXPECT_EQ(StringTableText(520), u"Not connected (call connect() before executing this method)");
  EXPECT_EQ(StringTableText(522),
            u"It is not possible to start more than one call per session in parallel (finish the active call first)");
  EXPECT_EQ(StringTableText(539), u"timeout while waiting for RfcCancel() to finish");
  EXPECT_EQ(StringTableText(542),
            u"'librfc32u.dll' not found, corrupt or incompatible\n"
            u"(install \"RFC Libraries for Unicode\" or check SAP GUI Installation)");
  EXPECT_EQ(StringTableText(543), u"RFC Error (check ErrorInfo for details)");
  EXPECT_EQ(StringTableText(546), u"Invalid connection string");
  EXPECT_EQ(StringTableText(548), u"option 'nwrfc.ini_path' must be valid file or directory");
}

TEST(StringTable, DocumentationPointers) {
  std::u16string t545(StringTableText(545));
  std::u16string head545 = u"Option \"sso2.create_ticket_module\" is required for NWRFC.\n";
  EXPECT_EQ(t545.substr(0, head545.size()), head545);
  EXPECT_NE(t545.find(u"docs/nwrfc.md"), std::u16string::npos);
  std::u16string t547(StringTableText(547));
  std::u16string head547 = u"'sapnwrfc.dll' not found, install NWRFCSDK and/or set option 'nwrfc.path'\n";
  EXPECT_EQ(t547.substr(0, head547.size()), head547);
  EXPECT_NE(t547.find(u"docs/nwrfc.md"), std::u16string::npos);
  EXPECT_EQ(t545, head545 + u"See docs/nwrfc.md in the Veltrane documentation.");
  EXPECT_EQ(t547, head547 + u"See docs/nwrfc.md in the Veltrane documentation.");
}

TEST(StringTable, TypedCodesAndTheirResults) {
  EXPECT_EQ(static_cast<UINT>(Text::AlreadyInitialized), 513u);
  EXPECT_EQ(static_cast<UINT>(Text::InvalidIniPath), 548u);
  EXPECT_EQ(static_cast<uint32_t>(TextResult(Text::Unexpected)), 0x80040207u);
  EXPECT_EQ(static_cast<uint32_t>(TextResult(Text::NotConnected)), 0x80040208u);
  EXPECT_EQ(static_cast<uint32_t>(TextResult(Text::CallRunning)), 0x8004020Au);
  EXPECT_EQ(static_cast<uint32_t>(TextResult(Text::AlreadyConnected)), 0x8004020Bu);
  EXPECT_EQ(static_cast<uint32_t>(TextResult(Text::RfcError)), 0x8004021Fu);
  EXPECT_EQ(StringTableText(Text::TypeImportNotPossible), u"Import of type not possible (no structure?)");
  static_assert(StringTableText(Text::NotATable) == u"Object is not a table");
}

}  // namespace

#include "runtime/environment.h"

#include <gtest/gtest.h>
#include <stdlib.h>

namespace {

class ExpandEnvironmentTest : public ::testing::Test {
 protected:
  void SetUp() override {
    setenv("VT_A", "alpha", 1);
    setenv("VT_B", "%VT_A%", 1);
    setenv("VT_EMPTY", "", 1);
    unsetenv("VT_UNSET");
    m_home = getenv("HOME") ? getenv("HOME") : "";
    setenv("HOME", "/home/tester", 1);
  }
  void TearDown() override {
    unsetenv("VT_A");
    unsetenv("VT_B");
    unsetenv("VT_EMPTY");
    setenv("HOME", m_home.c_str(), 1);
  }
  std::string m_home;
};

struct Case {
  const char16_t* in;
  const char16_t* out;
};

TEST_F(ExpandEnvironmentTest, Table) {
  const Case cases[] = {
      {u"", u""},
      {u"plain/path.trc", u"plain/path.trc"},
      {u"%VT_A%", u"alpha"},
      {u"/x/%VT_A%/y", u"/x/alpha/y"},
      {u"%VT_A%%VT_A%", u"alphaalpha"},
      {u"%VT_UNSET%/x", u"%VT_UNSET%/x"},
      {u"%VT_UNSET%VT_A%", u"%VT_UNSET%VT_A%"},
      {u"100%", u"100%"},
      {u"%%", u"%%"},
      {u"%vt_a%", u"%vt_a%"},
      {u"%VT_EMPTY%x", u"x"},
      {u"%VT_B%", u"%VT_A%"},  // no second expansion
      {u"$VT_A/x", u"alpha/x"},
      {u"$VT_A.trc", u"alpha.trc"},
      {u"$VT_Ax", u"$VT_Ax"},
      {u"$VT_UNSET/x", u"$VT_UNSET/x"},
      {u"${VT_A}x", u"alphax"},
      {u"${VT_UNSET}x", u"${VT_UNSET}x"},
      {u"${VT_A", u"${VT_A"},
      {u"$", u"$"},
      {u"a$/b", u"a$/b"},
      {u"$1", u"$1"},
      {u"~", u"/home/tester"},
      {u"~/x.trc", u"/home/tester/x.trc"},
      {u"~user/x", u"~user/x"},
      {u"x/~/y", u"x/~/y"},
      {u"~/%VT_A%/$VT_A/${VT_A}", u"/home/tester/alpha/alpha/alpha"},
  };
  for (const auto& c : cases) {
    std::u16string got = ExpandEnvironment(c.in);
    EXPECT_TRUE(got == c.out) << "input index " << (&c - cases);
  }
}

TEST_F(ExpandEnvironmentTest, UnicodeValues) {
  setenv("VT_U", "\xC3\xA4\xE2\x82\xAC", 1);
  EXPECT_EQ(ExpandEnvironment(u"/%VT_U%"), u"/\u00E4\u20AC");
  unsetenv("VT_U");
}

TEST_F(ExpandEnvironmentTest, ResultIsCutToTheLimit) {
  std::string longValue(300, 'v');
  setenv("VT_LONG", longValue.c_str(), 1);
  std::u16string got = ExpandEnvironment(u"/%VT_LONG%");
  unsetenv("VT_LONG");
  EXPECT_EQ(got.size(), kMaxPath - 1);
  EXPECT_EQ(got, u"/" + std::u16string(kMaxPath - 2, u'v'));
  EXPECT_EQ(ExpandEnvironment(std::u16string(259, u'a')).size(), 259u);
  EXPECT_EQ(ExpandEnvironment(std::u16string(260, u'a')).size(), 259u);
  EXPECT_EQ(ExpandEnvironment(u"abcdef", 4), u"abc");
}

}  // namespace

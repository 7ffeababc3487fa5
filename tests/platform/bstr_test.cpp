#include "platform/atlbase.h"

#include <gtest/gtest.h>

#include <cstring>

TEST(Bstr, AllocatesWithLengthPrefixAndTerminator) {
  BSTR b = SysAllocString(u"abc");
  ASSERT_NE(b, nullptr);
  EXPECT_EQ(SysStringLen(b), 3u);
  EXPECT_EQ(SysStringByteLen(b), 6u);
  uint32_t prefix;
  std::memcpy(&prefix, reinterpret_cast<char*>(b) - 4, 4);
  EXPECT_EQ(prefix, 6u);
  EXPECT_EQ(b[3], u'\0');
  SysFreeString(b);
}

TEST(Bstr, NullIsDistinctFromEmpty) {
  EXPECT_EQ(SysAllocString(nullptr), nullptr);
  EXPECT_EQ(SysStringLen(nullptr), 0u);
  BSTR empty = SysAllocString(u"");
  ASSERT_NE(empty, nullptr);
  EXPECT_EQ(SysStringLen(empty), 0u);
  SysFreeString(empty);
  SysFreeString(nullptr);
}

TEST(Bstr, KeepsEmbeddedNulls) {
  const OLECHAR text[] = {u'a', 0, u'b'};
  BSTR b = SysAllocStringLen(text, 3);
  EXPECT_EQ(SysStringLen(b), 3u);
  EXPECT_EQ(b[2], u'b');
  SysFreeString(b);
}

TEST(Bstr, LengthWithoutSourceIsZeroFilled) {
  BSTR b = SysAllocStringLen(nullptr, 4);
  ASSERT_NE(b, nullptr);
  EXPECT_EQ(SysStringLen(b), 4u);
  for (int i = 0; i < 5; ++i) EXPECT_EQ(b[i], 0);
  SysFreeString(b);
}

TEST(Bstr, ByteLengthKeepsOddLengths) {
  BSTR b = SysAllocStringByteLen("abc", 3);
  EXPECT_EQ(SysStringByteLen(b), 3u);
  EXPECT_EQ(SysStringLen(b), 1u);
  EXPECT_EQ(std::memcmp(b, "abc", 3), 0);
  EXPECT_EQ(reinterpret_cast<char*>(b)[3], 0);
  SysFreeString(b);
}

TEST(Bstr, ReAlloc) {
  BSTR b = SysAllocString(u"hello");
  EXPECT_TRUE(SysReAllocString(&b, u"hi"));
  EXPECT_EQ(std::u16string(b, SysStringLen(b)), u"hi");
  EXPECT_TRUE(SysReAllocStringLen(&b, nullptr, 4));
  EXPECT_EQ(SysStringLen(b), 4u);
  EXPECT_EQ(b[0], u'h');
  EXPECT_EQ(b[1], u'i');
  EXPECT_FALSE(SysReAllocString(nullptr, u"x"));
  SysFreeString(b);
}

TEST(CComBSTR, CopyMoveAppendCompare) {
  CComBSTR a(u"ab");
  CComBSTR b = a;
  EXPECT_NE(a.m_str, b.m_str);
  EXPECT_TRUE(a == b);
  b += u"cd";
  EXPECT_EQ(b.View(), u"abcd");
  CComBSTR c = std::move(b);
  EXPECT_EQ(b.m_str, nullptr);
  EXPECT_EQ(c.Length(), 4u);
  BSTR out = nullptr;
  EXPECT_EQ(c.CopyTo(&out), S_OK);
  EXPECT_EQ(SysStringLen(out), 4u);
  SysFreeString(out);
  CComBSTR empty;
  EXPECT_EQ(empty.Length(), 0u);
  EXPECT_TRUE(empty == u"");
}

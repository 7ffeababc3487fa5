#include "runtime/xml_depth.h"

#include <gtest/gtest.h>

#include <string>

namespace {

TEST(ElementDepth, CountsNestedElements) {
  EXPECT_EQ(ElementDepth(""), 0u);
  EXPECT_EQ(ElementDepth("text only"), 0u);
  EXPECT_EQ(ElementDepth("<a/>"), 1u);
  EXPECT_EQ(ElementDepth("<a><b><c/></b></a>"), 3u);
  EXPECT_EQ(ElementDepth("<a><b/><b/><b><c/></b></a>"), 3u);
}

TEST(ElementDepth, MarkupThatDoesNotNest) {
  EXPECT_EQ(ElementDepth("<?xml version=\"1.0\"?><!-- <x><y> --><a><![CDATA[<b><c>]]></a>"), 1u);
  EXPECT_EQ(ElementDepth("<!DOCTYPE a [<!ELEMENT a ANY>]><a/>"), 1u);
}

TEST(ElementDepth, QuotedAttributesAndTheEndOfText) {
  EXPECT_EQ(ElementDepth("<a t='>'><b x=\"/>\"></b></a>"), 2u);
  const std::string withNul("<a><b>\0<c><d>", 13);
  EXPECT_EQ(ElementDepth(withNul), 2u);
}

TEST(ElementDepth, DeepDocuments) {
  std::string deep;
  for (int i = 0; i < 1000; ++i) deep += "<n>";
  EXPECT_EQ(ElementDepth(deep), 1000u);
}

TEST(ElementDepth, ATerminatedTextReadsAsTheSameView) {
  for (const char* text : {"", "text only", "<a/>", "<a><b><c/></b></a>", "<a><b/><b/><b><c/></b></a>",
                           "<?xml version=\"1.0\"?><!-- <x><y> --><a><![CDATA[<b><c>]]></a>",
                           "<!DOCTYPE a [<!ELEMENT a ANY>]><a/>", "<a t='>'><b x=\"/>\"></b></a>", "<a><b",
                           "<a><!-- open", "<a></b", "<a><![CDATA[ open", "<!DOCTYPE [", "<a><b x='>"})
    EXPECT_EQ(ElementDepth(text), ElementDepth(std::string_view(text))) << text;
  const std::string withNul("<a><b>\0<c><d>", 13);
  EXPECT_EQ(ElementDepth(withNul.c_str()), 2u);
  std::string deep;
  for (int i = 0; i < 1000; ++i) deep += "<n>";
  EXPECT_EQ(ElementDepth(deep.c_str()), 1000u);
}

}  // namespace

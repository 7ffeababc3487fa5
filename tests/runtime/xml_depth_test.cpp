#include "runtime/xml_depth.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

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

// Copies and answers ElementDepth(text) > limit; the plain blocks that are
// counted at once (where the processor can) meet every kind of markup that
// sends them back to the exact scan, across blocks and pieces.
bool Deeper(const std::string& text, size_t limit) {
  std::vector<char> out(text.size() + 1, 'x');
  const bool deeper = CopyElementsDeeperThan(text, out.data(), limit);
  if (!deeper) {
    EXPECT_EQ(std::string(out.data(), text.size()), text);
    EXPECT_EQ(out[text.size()], '\0');
  }
  return deeper;
}

TEST(CopyElementsDeeperThan, AnswersAsTheExactDepth) {
  const std::vector<std::string> plain = {"<a>", "</a>", "<item>", "</item>", "<b/>", "<c />", "text0123456789"};
  const std::vector<std::string> other = {">",
                                          "<",
                                          "/",
                                          "/>",
                                          "</",
                                          "\"",
                                          "'",
                                          "<a x='/>'>",
                                          "<a y=\"</b>\">",
                                          "<!-- <x> -->",
                                          "<![CDATA[<y><z>]]>",
                                          "<?pi <w>?>",
                                          "<!DOCTYPE a [<!ELEMENT a ANY>]>",
                                          "<a\n>",
                                          "</a\n>",
                                          "<a/ >",
                                          "<>",
                                          "</>",
                                          std::string(70, ' ')};
  std::mt19937 random(12345);
  for (int round = 0; round < 3000; ++round) {
    std::string text;
    const int count = static_cast<int>(random() % 600);
    for (int i = 0; i < count; ++i)
      text += random() % 10 ? plain[random() % plain.size()] : other[random() % other.size()];
    const size_t depth = ElementDepth(text);
    for (size_t limit : {size_t{0}, size_t{1}, size_t{3}, depth > 0 ? depth - 1 : 0, depth, depth + 1, size_t{256}})
      ASSERT_EQ(Deeper(text, limit), depth > limit) << "limit " << limit << " text " << text;
  }
}

TEST(CopyElementsDeeperThan, LongAnswersDeepOnesAndNuls) {
  std::string answer = "<E xmlns:e=\"urn:e\"><B><R><DATA>";
  for (int i = 0; i < 5000; ++i) answer += "<item><WA>001|AA |0001|FRANKFURT &#38; MAIN</WA><X/></item>";
  answer += "</DATA></R></B></E>";
  ASSERT_EQ(ElementDepth(answer), 6u);
  EXPECT_FALSE(Deeper(answer, 6));
  EXPECT_TRUE(Deeper(answer, 5));
  std::string deep;
  for (int i = 0; i < 1000; ++i) deep += "<n>";
  EXPECT_TRUE(Deeper(deep, 256));
  EXPECT_FALSE(Deeper(deep, 1000));
  // Deep in the middle of a long answer, beyond the first piece.
  const std::string middle = answer.substr(0, answer.size() / 2) + deep + answer.substr(answer.size() / 2);
  EXPECT_TRUE(Deeper(middle, 256));
  EXPECT_EQ(Deeper(middle, 1004), ElementDepth(middle) > 1004);
  // The text ends at its first NUL, in any piece: what follows is copied but not counted.
  for (size_t at : {size_t{10}, answer.size() / 3, answer.size() - 30}) {
    std::string cut = answer;
    cut.insert(at, std::string(1, '\0') + deep);
    EXPECT_EQ(ElementDepth(cut), ElementDepth(std::string_view(cut).substr(0, at)));
    EXPECT_FALSE(Deeper(cut, 256)) << at;
  }
}

}  // namespace

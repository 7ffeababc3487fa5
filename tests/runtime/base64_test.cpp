#include "runtime/base64.h"

#include <gtest/gtest.h>

#include "runtime/exceptions.h"

namespace {

std::vector<uint8_t> Bytes(std::string_view s) { return std::vector<uint8_t>(s.begin(), s.end()); }

TEST(Base64Encode, Rfc4648Vectors) {
  EXPECT_EQ(Base64Encode(Bytes("")), "");
  EXPECT_EQ(Base64Encode(Bytes("f")), "Zg==");
  EXPECT_EQ(Base64Encode(Bytes("fo")), "Zm8=");
  EXPECT_EQ(Base64Encode(Bytes("foo")), "Zm9v");
  EXPECT_EQ(Base64Encode(Bytes("foob")), "Zm9vYg==");
  EXPECT_EQ(Base64Encode(Bytes("fooba")), "Zm9vYmE=");
  EXPECT_EQ(Base64Encode(Bytes("foobar")), "Zm9vYmFy");
  EXPECT_EQ(Base64Encode(std::vector<uint8_t>{0xFB, 0xFF, 0xBF}), "+/+/");
}

std::vector<std::string> Lines(const std::string& text) {
  std::vector<std::string> lines;
  size_t start = 0;
  for (;;) {
    size_t end = text.find("\r\n", start);
    lines.push_back(text.substr(start, end == std::string::npos ? std::string::npos : end - start));
    if (end == std::string::npos) break;
    start = end + 2;
  }
  return lines;
}

TEST(Base64Encode, LineBreakEvery76Characters) {
  std::vector<uint8_t> data(100);
  for (size_t i = 0; i < data.size(); ++i) data[i] = static_cast<uint8_t>(i * 7);
  std::string text = Base64Encode(data);
  auto lines = Lines(text);
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_EQ(lines[0].size(), 76u);
  EXPECT_EQ(lines[1].size(), 60u);
  EXPECT_EQ(text.find('\n'), 77u);
}

TEST(Base64Encode, NoBreakBehindTheLastLine) {
  // 57 bytes fill exactly one line.
  std::string one = Base64Encode(std::vector<uint8_t>(57, 0xAA));
  EXPECT_EQ(one.size(), 76u);
  EXPECT_EQ(one.find('\r'), std::string::npos);
  std::string two = Base64Encode(std::vector<uint8_t>(114, 0xAA));
  auto lines = Lines(two);
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_EQ(lines[1].size(), 76u);
  // 58 bytes: the padding group starts the second line.
  auto padded = Lines(Base64Encode(std::vector<uint8_t>(58, 0)));
  ASSERT_EQ(padded.size(), 2u);
  EXPECT_EQ(padded[1], "AA==");
}

TEST(Base64Encode, ManyLines) {
  std::vector<uint8_t> data(1000);
  for (size_t i = 0; i < data.size(); ++i) data[i] = static_cast<uint8_t>(i);
  auto lines = Lines(Base64Encode(data));
  ASSERT_EQ(lines.size(), 18u);  // 1336 characters
  for (size_t i = 0; i + 1 < lines.size(); ++i) EXPECT_EQ(lines[i].size(), 76u);
  EXPECT_EQ(lines.back().size(), 1336u - 17 * 76);
}

TEST(Base64DecodeSkipping, SkipsEverythingOutsideTheAlphabet) {
  EXPECT_EQ(Base64DecodeSkipping(std::string_view("Zm9v\r\nYmFy")), Bytes("foobar"));
  EXPECT_EQ(Base64DecodeSkipping(std::string_view(" Z m 9 v Y g = = ")), Bytes("foob"));
  EXPECT_EQ(Base64DecodeSkipping(std::string_view("Zm9vYmE=")), Bytes("fooba"));
  EXPECT_EQ(Base64DecodeSkipping(std::string_view("Zm9vYmE")), Bytes("fooba"));
  EXPECT_EQ(Base64DecodeSkipping(std::string_view("")), Bytes(""));
  EXPECT_EQ(Base64DecodeSkipping(std::u16string_view(u"Zm9v\u00E4YmFy")), Bytes("foobar"));
}

TEST(Base64DecodeSkipping, StopsAtAZeroCharacter) {
  EXPECT_EQ(Base64DecodeSkipping(std::string_view("Zm9v\0YmFy", 9)), Bytes("foo"));
}

TEST(Base64DecodeSkipping, RoundTrip) {
  std::vector<uint8_t> data(1000);
  for (size_t i = 0; i < data.size(); ++i) data[i] = static_cast<uint8_t>(i * 13 + 1);
  for (size_t n : {0u, 1u, 2u, 3u, 56u, 57u, 58u, 100u, 1000u}) {
    std::vector<uint8_t> part(data.begin(), data.begin() + n);
    EXPECT_EQ(Base64DecodeSkipping(std::string_view(Base64Encode(part))), part) << n;
  }
}

TEST(Base64DecodeUntilInvalid, EndsAtFirstCharacterOutsideTheAlphabet) {
  EXPECT_EQ(Base64DecodeUntilInvalid(u"Zm9vYg=="), Bytes("foob"));
  EXPECT_EQ(Base64DecodeUntilInvalid(u"Zm9v YmFy"), Bytes("foo"));
  EXPECT_EQ(Base64DecodeUntilInvalid(u""), Bytes(""));
  // Latin-1 bytes come through unchanged.
  EXPECT_EQ(Base64DecodeUntilInvalid(u"5A=="), std::vector<uint8_t>{0xE4});
}

TEST(Base64DecodeStrict, Valid) {
  EXPECT_EQ(Base64DecodeStrict(u"Zm9vYmFy"), Bytes("foobar"));
  EXPECT_EQ(Base64DecodeStrict(u"Zm9vYg=="), Bytes("foob"));
  EXPECT_EQ(Base64DecodeStrict(u"Zm9vYmE="), Bytes("fooba"));
  EXPECT_EQ(Base64DecodeStrict(u""), Bytes(""));
  EXPECT_EQ(Base64DecodeStrict(std::string_view("Zg==")), Bytes("f"));
}

TEST(Base64DecodeStrict, CharacterOutsideTheAlphabetIsInvalidArgument) {
  for (const char16_t* text :
       {u"Zm9v\r\nYmFy", u"Zm9v YmF", u"Zm9vYmF*", u"Z=9v", u"Zm9vY===", u"Zm9", u"Zm9vYmFy=", u"\u00E4m9v"}) {
    try {
      Base64DecodeStrict(text);
      ADD_FAILURE() << "accepted";
    } catch (const CXCOMError& e) {
      EXPECT_EQ(static_cast<uint32_t>(e.Result()), 0x80070057u);
    }
  }
}

}  // namespace

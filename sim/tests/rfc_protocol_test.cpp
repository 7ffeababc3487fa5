// The RFC protocol's encoding: numbers, texts, frames, messages and values, and refusals of
// input that is short, long or garbled.
#include <gtest/gtest.h>

#include <limits>

#include "rfc_protocol/frame.h"
#include "rfc_protocol/messages.h"
#include "rfc_protocol/values.h"

namespace vsim::proto {
namespace {

TEST(Codec, VarintsAndZigzagRoundTrip) {
  for (std::int64_t v :
       {std::int64_t{0}, std::int64_t{1}, std::int64_t{-1}, std::int64_t{63}, std::int64_t{-64}, std::int64_t{300},
        std::numeric_limits<std::int64_t>::max(), std::numeric_limits<std::int64_t>::min()}) {
    std::string s;
    Writer w(s);
    w.svarint(v);
    Reader r(s);
    EXPECT_EQ(r.svarint(), v);
    EXPECT_TRUE(r.done());
  }
  std::string one;
  Writer(one).svarint(-1);
  EXPECT_EQ(one, std::string("\x01", 1)) << "zigzag keeps small negative numbers short";
}

TEST(Codec, ShortAndOverlongInputIsRefused) {
  EXPECT_THROW(Reader("\x80", 1).varint(), ProtocolError);
  EXPECT_THROW(Reader(std::string(11, '\xff')).varint(), ProtocolError);
  EXPECT_THROW(Reader("\x05"
                      "abc",
                      4)
                   .text(),
               ProtocolError);
  EXPECT_THROW(Reader("\x02", 1).boolean(), ProtocolError);
  EXPECT_THROW(Reader("\x0b", 1).type(), ProtocolError);
  EXPECT_THROW(Reader("\x7f", 1).count(1), ProtocolError);
}

TEST(Frame, LengthsAreCheckedAndFramesSplitFromAStream) {
  std::string frame = FrameBuilder(MessageKind::Ping).finish();
  EXPECT_EQ(frame, std::string("\x01\x00\x00\x00\x09", 5));
  EXPECT_THROW(frameLength(std::string("\x00\x00\x00\x00", 4).data()), ProtocolError);
  EXPECT_THROW(frameLength(std::string("\x00\x00\x00\x20", 4).data()), ProtocolError);
  FrameDecoder d;
  const std::string two = frame + FrameBuilder(MessageKind::NewTid).finish();
  d.feed(two.data(), 3);
  EXPECT_FALSE(d.next());
  d.feed(two.data() + 3, two.size() - 3);
  auto a = d.next();
  ASSERT_TRUE(a);
  EXPECT_EQ(*a, "\x09");
  auto b = d.next();
  ASSERT_TRUE(b);
  EXPECT_EQ(*b, "\x08");
  EXPECT_FALSE(d.next());
}

TEST(Messages, DescriptionsAndErrorsRoundTrip) {
  FunctionInfo f;
  f.name = "Z_F";
  f.types.push_back({"ROW", 4, 8, {{"A", WireType::Char, 4, 0, 8, 0, 0, 0}}});
  f.parameters.push_back({"T", WireType::Table, Direction::Tables, 4, 8, 0, 1, "", "rows", true});
  f.exceptions.push_back({"NOT_FOUND", "none"});
  std::string s;
  Writer w(s);
  writeFunctionInfo(w, f);
  Reader r(s);
  const FunctionInfo back = readFunctionInfo(r);
  EXPECT_EQ(back.parameters[0].typeRef, 1u);
  EXPECT_EQ(back.types[0].fields[0].ucLength, 8u);
  EXPECT_EQ(back.exceptions[0].text, "none");
  // A reference to a type that is not listed before.
  f.parameters[0].typeRef = 2;
  std::string bad;
  Writer wb(bad);
  writeFunctionInfo(wb, f);
  Reader rb(bad);
  EXPECT_THROW(readFunctionInfo(rb), ProtocolError);

  ErrorInfo e;
  e.rc = 5;
  e.key = "K";
  e.msgVars = {"1", "2", "3", "4"};
  e.closes = true;
  std::string es;
  Writer we(es);
  writeError(we, e);
  Reader re(es);
  const ErrorInfo eb = readError(re);
  EXPECT_EQ(eb.msgVars[3], "4");
  EXPECT_TRUE(eb.closes);
}

TEST(Values, TablesNameTheirColumnsOnce) {
  WireValue t;
  t.type = WireType::Table;
  t.columns = {{"ID", WireType::Int}, {"NAME", WireType::Char}};
  for (int i = 0; i < 3; ++i)
    t.rows.push_back({WireValue::ofInteger(WireType::Int, i), WireValue::ofText(WireType::Char, "r")});
  std::string s;
  Writer w(s);
  writeValue(w, t);
  EXPECT_LT(s.size(), 30u);
  Reader r(s);
  EXPECT_EQ(readValue(r), t);
  Reader skip(s);
  skipBody(skip, skip.type());
  EXPECT_TRUE(skip.done());
}

TEST(Values, NestingAndRowCountsAreBounded) {
  std::string deep;
  Writer w(deep);
  for (int i = 0; i <= kMaxValueDepth + 1; ++i) {
    w.type(WireType::Structure);
    w.varint(1);
    w.text("S");
  }
  w.type(WireType::Int);
  w.svarint(0);
  Reader r(deep);
  EXPECT_THROW(readValue(r), ProtocolError);
  std::string rows;
  Writer wr(rows);
  wr.type(WireType::Table);
  writeTableHeader(wr, {{"A", WireType::Int}}, 1000000);
  Reader rr(rows);
  EXPECT_THROW(readValue(rr), ProtocolError) << "a million rows do not fit in a few bytes";
}

}  // namespace
}  // namespace vsim::proto

// Tokens and values of documents.
#include <gmock/gmock.h>

#include <string>
#include <vector>

#include "formats/pdf/objects/syntax.h"

namespace tq::test {
namespace {

using namespace pdf::objects;

// Every value of a text as its kind's first letter and its text.
std::string scanned(std::string_view text, bool references = true) {
  std::string result;
  Scanner scanner(text, references);
  for (Value value = scanner.next(); !value.is(Kind::end); value = scanner.next()) {
    result += "0birnsadRk"[static_cast<int>(value.kind())];
    result += std::string(value.text()) + "|";
  }
  return result;
}

std::string decoded(std::string_view text) {
  std::string room(100, '-');
  const auto bytes = std::span(reinterpret_cast<std::uint8_t*>(room.data()), room.size());
  const std::ptrdiff_t count = Scanner(text).next().bytes(bytes);
  return room.substr(0, static_cast<std::size_t>(count));
}

TEST(PdfSyntax, ValuesEndWhereOtherReadersEndThem) {
  const std::pair<const char*, const char*> cases[] = {
      {" % all of it\r/A#42(x\\)(y)z)<4 1>", "n/A#42|s(x\\)(y)z)|s<4 1>|"},
      {"true null falsehood 1 0 R 1 0 RG 12 -0 R",
       "btrue|0null|kfalsehood|R1 0 R|i1|i0|kRG|i12|i-0|kR|"},
      {"[1 [2 0 R]]<</A<</B 1>>/C[]>>", "a[1 [2 0 R]]|d<</A<</B 1>>/C[]>>|"},
      {"0 0cm 1.5-3 .5/Im0 Do", "i0|i0|kcm|r1.5-3|r.5|n/Im0|kDo|"},
      // What was never closed ends with its dictionary, or with its object.
      {"<</Kids[1 0 R/Count 2>> 7", "d<</Kids[1 0 R/Count 2>>|i7|"},
      {"<</A[1 2 ]endobj 3", "d<</A[1 2 ]|kendobj|i3|"},
      {"[1 >> 2] ) > ] (open", "a[1 >> 2]|k)|k>|k]|s(open|"},
      {"{1}/ /", "k{|i1|k}|n/|n/|"},
  };
  for (const auto& [text, values] : cases) EXPECT_EQ(scanned(text), values) << text;
  EXPECT_EQ(scanned("1 0 R", false), "i1|i0|kR|");
}

TEST(PdfSyntax, NumbersAreTheLeadingOnes) {
  const struct {
    const char* text;
    double number;
    std::int64_t integer;
  } cases[] = {{"--5", -5, -5},
               {"5-3", 5, 5},
               {"+-.5", -.5, 0},
               {"4.", 4, 4},
               {"-7.999", -7.999, -7},
               {"0.1234567890123456789", 0.123456789012345, 0},
               {"0.0000000000000000000000001", 0, 0},
               {"99999999999999999999", 9007199254740992., 9007199254740992},
               {"-.", 0, 0},
               {"1e5", 1, 1}};
  for (const auto& [text, number, integer] : cases) {
    const Value value = Scanner(text).next();
    EXPECT_DOUBLE_EQ(value.number(99), number) << text;
    EXPECT_EQ(value.integer(99), integer) << text;
  }
  EXPECT_EQ(Scanner("-4294967296").next().small_integer(), INT32_MIN);
  EXPECT_EQ(Scanner("(5)").next().number(99), 99);
}

TEST(PdfSyntax, StringsAndNamesHaveTheirOwnEscapes) {
  EXPECT_EQ(decoded("(a\\(\\)(b)\\\\\\n\\8)"), "a()(b)\\\n8");
  EXPECT_EQ(decoded("(\\1012\\7x\\400)"), std::string("A2\7x\0", 5));
  EXPECT_EQ(decoded("(one\\\r\ntwo\r\nthree\rfour\\"), "onetwo\nthree\nfour");
  EXPECT_EQ(decoded("<4 1 4 G 2 5>"), "ABP");
  EXPECT_EQ(decoded("/A#20B#4#"), "A B#4#");
  const Value dictionary = Scanner("<</#41 1/AB 2/A 3/E#n 4>>").next();
  EXPECT_EQ(dictionary["A"].integer(), 1);
  EXPECT_EQ(dictionary[Scanner("/#41#42").next()].integer(), 2);
  EXPECT_EQ(dictionary["E#n"].integer(), 4);
  EXPECT_EQ(dictionary["E"].kind(), Kind::null);
  int sum = 0;
  for (Items items = Scanner("[10 2 300 4]").next().items(); items.next();) {
    sum += items.value().small_integer();
  }
  EXPECT_EQ(sum, 316);
  // As much as there is room for, and how much there is.
  std::uint8_t room[2];
  EXPECT_EQ(Scanner("(12345)").next().bytes(room), 5);
  EXPECT_EQ(room[1], '2');
}

TEST(PdfSyntax, WhatIsNestedTooDeeplyIsNull) {
  const auto nested = [](int depth) {
    std::string text;
    for (int i = 0; i < depth; ++i) text += i % 2 == 0 ? "[" : "<</A";
    for (int i = depth - 1; i >= 0; --i) text += i % 2 == 0 ? "]" : ">>";
    return text;
  };
  for (const int depth : {1, 2, kDeepest - 1, kDeepest, kDeepest + 1, kDeepest + 2, 10000}) {
    const std::string text = nested(depth) + "7";
    Scanner scanner(text);
    EXPECT_EQ(scanner.next().kind(), depth > kDeepest ? Kind::null : Kind::array) << depth;
    EXPECT_EQ(scanner.next().integer(), 7) << depth;
  }
  int depth = 0;
  const std::string text = nested(kDeepest);
  for (Value value = Scanner(text).next(); !value.is(Kind::null); ++depth) {
    Items items = value.items();
    value = value.is(Kind::array) && items.next() ? items.value() : value["A"];
  }
  EXPECT_EQ(depth, kDeepest);
}

}  // namespace
}  // namespace tq::test

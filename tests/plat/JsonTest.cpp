#include "plat/Json.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "support/Thrown.h"

namespace plat {
namespace {

TEST(Json, ReadsEveryKindOfValue) {
  const Json json = Json::parse(
      " {\"a\":[1, -0.5e+1 ,0,1E2],\r\n\t\"b\":{\"c\":true,\"d\":false,\"e\":null}, \"f\":\"\", "
      "\"a2\":[ ], \"o\":{ }} ");
  ASSERT_TRUE(json.isObject());
  ASSERT_EQ(json.members().size(), 5u);
  const Json& a = *json.find("a");
  ASSERT_EQ(a.array().size(), 4u);
  EXPECT_EQ(a.array()[0].number(), 1);
  EXPECT_EQ(a.array()[1].number(), -5);
  EXPECT_EQ(a.array()[3].number(), 100);
  const Json& b = *json.find("b");
  EXPECT_TRUE(b.find("c")->boolean());
  EXPECT_EQ(b.find("d")->type(), Json::Type::Bool);
  EXPECT_FALSE(b.find("d")->boolean());
  EXPECT_EQ(b.find("e")->type(), Json::Type::Null);
  EXPECT_TRUE(json.find("f")->isString());
  EXPECT_TRUE(json.find("a2")->array().empty());
  EXPECT_TRUE(json.find("o")->isObject());
  EXPECT_EQ(json.find("none"), nullptr);
  EXPECT_EQ(a.find("a"), nullptr);
  EXPECT_EQ(Json::parse("{\"x\":1,\"x\":2}").find("x")->number(), 2);
}

TEST(Json, Strings) {
  const struct {
    const char* json;
    std::string text;
  } cases[] = {
      {R"("\"\\\/\b\f\n\r\t")", "\"\\/\b\f\n\r\t"},
      {R"("\u0041\u00e9\u20AC")", "A\xc3\xa9\xe2\x82\xac"},
      {R"("\uD83D\ude00")", "\xf0\x9f\x98\x80"},
      {R"("a\u0000b")", std::string("a\0b", 3)},
      {"\"\xc3\xa9\x7f\"", "\xc3\xa9\x7f"},
  };
  for (const auto& c : cases) EXPECT_EQ(Json::parse(c.json).string(), c.text) << c.json;
}

TEST(Json, RefusesEverythingElse) {
  std::vector<std::string> bad = {"",
                                  " ",
                                  "[1 2]",
                                  "{\"a\" 1}",
                                  "1 2",
                                  "[] []",
                                  "\"\n\"",
                                  "\"\xff\"",
                                  "\xef\xbb\xbf{}",
                                  "// c\n1",
                                  std::string("\"\0\"", 3),
                                  std::string("1\0", 2)};
  std::istringstream words(R"(x tru nul True { [ " "a [1 [1, [1,] [,1] {"a" {"a": {"a":1 {"a":1,
                              {"a":1,} {a:1} {1:1} {}x 01 - +1 .5 1. 1e 1e+ 0x10 1e999 NaN 'a'
                              "\x" "\ "\u12" "\u12g4" "\u-123" "\ud800" "\ud800\u0041" "\udc00")");
  for (std::string word; words >> word;) bad.push_back(word);
  for (const std::string& text : bad) EXPECT_THROW(Json::parse(text), Exception) << text;
}

TEST(Json, SaysWhereTheFaultIs) {
  EXPECT_EQ(test::thrownText([] { Json::parse("{\"a\": 1,\n  \"b\": x}"); }),
            "line 2, column 8: a value is expected");
}

TEST(Json, LimitsNesting) {
  const auto nested = [](size_t depth) {
    return std::string(depth, '[') + std::string(depth, ']');
  };
  EXPECT_TRUE(Json::parse(nested(Json::kMaxNesting)).isArray());
  EXPECT_THROW(Json::parse(nested(Json::kMaxNesting + 1)), Exception);
  EXPECT_THROW(Json::parse(std::string(1000000, '[')), Exception);
}

}  // namespace
}  // namespace plat

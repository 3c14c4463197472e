#include "plat/config/Json.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "support/Thrown.h"

namespace plat {
namespace {

TEST(Json, ReadsEveryKindOfValue) {
  const Json json = Json::parse(
      " {\"a\":[1, -0.5e+1 ,0,1E2],\r\n\t\"b\":{\"c\":true,\"e\":null}, \"x\":[ ], \"x\":2 } ");
  const Json& a = *json.find("a");
  ASSERT_EQ(a.array().size(), 4u);
  EXPECT_EQ(a.array()[1].number(), -5);
  EXPECT_TRUE(json.find("b")->find("c")->boolean());
  EXPECT_EQ(json.find("x")->number(), 2);
  EXPECT_EQ(json.find("none"), nullptr);
  EXPECT_EQ(Json::parse(R"("\"\\\/\b\f\n\r\t\u20AC\uD83D\ude00\u0000.")").string(),
            std::string("\"\\/\b\f\n\r\t\xe2\x82\xac\xf0\x9f\x98\x80\0.", 17));
}

TEST(Json, RefusesEverythingElse) {
  std::vector<std::string> bad = {
      "",
      "[1 2]",
      "[] []",
      "\"\n\"",
      "\"\xff\"",
      "\xef\xbb\xbf{}",
      std::string(1000000, '['),
      std::string(Json::kMaxNesting + 1, '[') + std::string(Json::kMaxNesting + 1, ']')};
  std::istringstream words(R"(x tru True { [ " "a [1 [1, [1,] [,1] {"a" {"a": {"a":1 {"a":1,
                              {"a":1,} {a:1} {1:1} 01 - +1 .5 1. 1e 0x10 1e999 NaN 'a' //
                              "\x" "\ "\u12" "\u12g4" "\ud800" "\ud800\u0041" "\udc00")");
  for (std::string word; words >> word;) bad.push_back(word);
  for (const std::string& text : bad) EXPECT_THROW(Json::parse(text), Exception) << text;
  EXPECT_EQ(support::thrownText([] { Json::parse("{\"a\": 1,\n  \"b\": x}"); }),
            "line 2, column 8: a value is expected");
}

}  // namespace
}  // namespace plat

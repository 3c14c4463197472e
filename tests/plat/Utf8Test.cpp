#include "plat/Utf8.h"

#include <gtest/gtest.h>

namespace {

using namespace plat;
using namespace std::literals;

TEST(Utf8, TellsWellFormedText) {
  for (const auto valid :
       {"a\0b"sv, "\x7F\xC2\x80"sv, "\xE0\xA0\x80"sv, "\xED\x9F\xBF"sv, "\xF4\x8F\xBF\xBF"sv}) {
    EXPECT_TRUE(isValidUtf8(valid)) << testing::PrintToString(valid);
  }
  for (const auto invalid :
       {"\x80"sv, "\xC1\xBF"sv, "\xC2\x41"sv, "\xE0\x9F\xBF"sv, "\xED\xA0\x80"sv,
        "\xF0\x8F\xBF\xBF"sv, "\xF0\x9F\x98"sv, "\xF4\x90\x80\x80"sv, "\xFF"sv}) {
    EXPECT_FALSE(isValidUtf8(invalid)) << testing::PrintToString(invalid);
  }
}

TEST(Utf8, ConvertsLatin1) {
  std::string latin1;
  for (int c = 0; c < 256; ++c) latin1 += static_cast<char>(c);
  EXPECT_TRUE(isValidUtf8(latin1ToUtf8(latin1)));
  EXPECT_EQ(utf8ToLatin1(latin1ToUtf8(latin1)), latin1);
  EXPECT_EQ(utf8ToLatin1("\xC4\x80|\xE2\x82\xAC|\xFF|\xC3"), "?|?|?|?");
}

}  // namespace

#include "loc/Messages.h"

#include <gtest/gtest.h>

#include <cstring>
#include <set>

#include "plat/Utf8.h"

namespace {

using namespace loc;

size_t count(std::string_view text, std::string_view part) {
  size_t n = 0;
  for (size_t at = 0; (at = text.find(part, at)) != text.npos; at += part.size()) ++n;
  return n;
}

TEST(MessagesTest, EveryTextIsCompleteInEveryLanguage) {
  // Words that are the same in two languages.
  const std::set<std::string> shared{"plat_usage_label"};
  for (size_t i = 0; i < kMessageCount; ++i) {
    const Message& message = kMessages[i];
    SCOPED_TRACE(message.id);
    if (i > 0) {
      EXPECT_LT(std::strcmp(kMessages[i - 1].id, message.id), 0) << "not sorted";
    }
    std::set<std::string> different;
    for (const char* text : message.texts) {
      ASSERT_NE(text, nullptr);
      ASSERT_NE(*text, '\0');
      different.insert(text);
      EXPECT_TRUE(plat::isValidUtf8(text)) << text;
      for (const char* part : {"%S", "\n", "<", ">", "=", "-help", "(0)", "(1)", "(2)", "DAMAGE",
                               "Ruvo Viewer", " ms"}) {
        EXPECT_EQ(count(text, part), count(message.texts[0], part)) << part << " in " << text;
      }
      EXPECT_EQ(std::strrchr(text, ':') && text[std::strlen(text) - 1] == ':',
                message.texts[0][std::strlen(message.texts[0]) - 1] == ':');
    }
    EXPECT_GE(different.size() + shared.count(message.id), kLanguageCount);
  }
}

}  // namespace

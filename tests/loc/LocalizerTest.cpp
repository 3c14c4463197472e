#include "loc/Localizer.h"

#include <gtest/gtest.h>

#include <cstring>
#include <set>

#include "loc/Messages.h"
#include "plat/Translate.h"
#include "plat/Utf8.h"
#include "plat/config/Configuration.h"
#include "support/Environment.h"
#include "support/ParameterValue.h"

namespace {

using namespace loc;
using plat::Configuration;

size_t count(std::string_view text, std::string_view part) {
  size_t n = 0;
  for (size_t at = 0; (at = text.find(part, at)) != text.npos; at += part.size()) ++n;
  return n;
}

// In a world without settings.
class LocalizerTest : public testing::Test {
 protected:
  LocalizerTest() { install(); }

  support::Environment all_{"LC_ALL", {}}, messages_{"LC_MESSAGES", {}}, lang_{"LANG", {}};
  support::ParameterValue locale_{"Locale", "en_US"};
};

TEST_F(LocalizerTest, EveryTextIsCompleteInEveryLanguage) {
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

TEST_F(LocalizerTest, ParameterGoesBeforeTheEnvironment) {
  const auto language = [&](const char* locale) {
    locale_.set("x");  // announced, so that the environment is looked at again
    lang_.set(locale);
    Configuration::global().getParam("Locale").unsetParam(10, true);
    return Localizer::instance().language();
  };
  const std::pair<const char*, Language> cases[] = {
      {"de_DE", Language::kGerman},         {"es_ES.UTF-8", Language::kSpanish},
      {"fr@euro", Language::kFrench},       {"pt_BR", Language::kPortuguese},
      {"de.ISO-8859-1", Language::kGerman}, {"C.UTF-8", Language::kEnglish},
      {"ja_JP", Language::kEnglish},        {"deu_DE", Language::kEnglish}};
  for (const auto& [locale, expected] : cases) EXPECT_EQ(language(locale), expected) << locale;
  messages_.set("es_ES");
  EXPECT_EQ(language("de_DE"), Language::kSpanish);
  all_.set("fr_FR");
  EXPECT_EQ(language("de_DE"), Language::kFrench);
  all_.set("");
  EXPECT_EQ(language("de_DE"), Language::kSpanish) << "an empty variable counts as unset";
  locale_.set("pt_BR");
  EXPECT_EQ(Localizer::instance().language(), Language::kPortuguese);
  EXPECT_EQ(plat::translate(plat::MessageId{"plat_bad_argument"}, "x%Sy"),
            "Argumento inválido: \"x%Sy\".");
}

}  // namespace

#include "loc/Localizer.h"

#include <cstdlib>
#include <initializer_list>
#include <string_view>
#include <utility>

#include "loc/Messages.h"
#include "plat/NoCase.h"
#include "plat/Translate.h"
#include "plat/config/StringParameter.h"
#include "plat/log/LogSrc.h"

namespace loc {

namespace {

plat::LogSrc vlog("Localize");

plat::StringParameter localeParam(
    "Locale",
    "Locale to use. Specify one of en_US, de_DE, es_ES, fr_FR, or pt_BR, or leave empty to select "
    "the user or system locale as appropriate.",
    "");

const char* const kLanguageCodes[kLanguageCount] = {"en", "de", "es", "fr", "pt"};

const char* environmentLocale() {
  for (const char* variable : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
    const char* value = getenv(variable);
    if (value && *value) return value;
  }
  return "";
}

}  // namespace

Language languageOfLocale(const char* locale) {
  const std::string_view name = locale;
  const std::string_view code = name.substr(0, name.find_first_of("_.@"));
  for (size_t i = 0; i < kLanguageCount; ++i) {
    if (plat::equalNoCase(code, kLanguageCodes[i])) return static_cast<Language>(i);
  }
  return Language::kEnglish;
}

Localizer& Localizer::instance() {
  // Never destroyed: texts may be wanted until the very end.
  static auto* const localizer = new Localizer;
  return *localizer;
}

Localizer::Localizer() {
  chooseLanguage();
  localeParam.addCallback(this);
  plat::setTranslator([](const char* id) { return instance().text(id); });
}

plat::String Localizer::text(const char* id) const {
  const Message* message = findMessage(id);
  if (!message) return {};
  const char* text = message->texts[static_cast<size_t>(language_)];
  return text ? text : message->texts[static_cast<size_t>(Language::kEnglish)];
}

void Localizer::paramChanged(plat::ConfigParameter*, int) {
  chooseLanguage();
}

void Localizer::chooseLanguage() {
  const plat::String& chosen = localeParam.value();
  const char* locale = chosen.empty() ? environmentLocale() : chosen.c_str();
  const Language language = languageOfLocale(locale);
  if (language == language_) return;
  language_ = language;
  vlog.debug("Language %s for locale '%s'", kLanguageCodes[static_cast<size_t>(language)], locale);
}

void install() {
  Localizer::instance();
}

}  // namespace loc

#pragma once

#include "plat/String.h"
#include "plat/config/ParameterChangedCallback.h"

namespace loc {

enum class Language { kEnglish, kGerman, kSpanish, kFrench, kPortuguese };

// The language of a locale's name such as "de_DE.UTF-8"; English for all that have no texts here.
Language languageOfLocale(const char* locale);

// Chooses the language of the program's texts, UTF-8 throughout: that of the parameter "Locale" if
// set, else of the environment (LC_ALL, LC_MESSAGES, LANG).
class Localizer final : private plat::ParameterChangedCallback {
 public:
  // Created on first use, and then also plat's translator.
  static Localizer& instance();

  Language language() const { return language_; }
  // The text of the id in the chosen language, else in English, else null.
  plat::String text(const char* id) const;

 private:
  Localizer();

  void paramChanged(plat::ConfigParameter* param, int priority) override;
  void chooseLanguage();

  Language language_ = Language::kEnglish;
};

// Makes plat::translate() and the parameters' descriptions speak the user's language. To be called
// first thing in main().
void install();

}  // namespace loc

#include "plat/Translate.h"

#include <string>

namespace plat {

namespace {

Translator currentTranslator = nullptr;

}  // namespace

Translator setTranslator(Translator translator) {
  const Translator former = currentTranslator;
  currentTranslator = translator;
  return former;
}

String translate(MessageId id) {
  if (currentTranslator) {
    String text = currentTranslator(id.id);
    if (!text.isNull()) return text;
  }
  return id.id;
}

String translate(MessageId id, std::string_view argument) {
  std::string text = translate(id).str();
  for (size_t at = 0; (at = text.find("%S", at)) != std::string::npos; at += argument.size()) {
    text.replace(at, 2, argument);
  }
  return text;
}

}  // namespace plat

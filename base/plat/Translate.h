#pragma once

#include <string_view>

#include "plat/String.h"

namespace plat {

// Names a localised text.
struct MessageId {
  const char* id;
};

// Gives the text of an id in the user's language, or a null string for an unknown id.
using Translator = String (*)(const char* id);

// Installs the translator (null removes it) and returns the former one.
Translator setTranslator(Translator translator);

// The text of the id, or the id itself when there is no translator or no such text. Texts are never
// printf formats.
String translate(MessageId id);
// The same, with each "%S" in the text replaced by the argument.
String translate(MessageId id, std::string_view argument);

}  // namespace plat

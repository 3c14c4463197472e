#pragma once

#include <cstddef>

namespace loc {

enum class Language;

inline constexpr size_t kLanguageCount = 5;

// One text in all languages, in the order of Language. "%S" stands for an argument.
struct Message {
  const char* id;
  const char* texts[kLanguageCount];
};

// The whole table, sorted by id.
extern const Message kMessages[];
extern const size_t kMessageCount;

// Null for an unknown id.
const Message* findMessage(const char* id);

}  // namespace loc

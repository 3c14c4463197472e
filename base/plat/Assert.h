#pragma once

namespace plat {

// Called with the whole line; a handler that returns is followed by abort().
using AssertHandler = void (*)(const char* line);

// Replaces the handler of failed assertions (null restores the default, which logs the line on the
// source "Assertion" at level 0 and writes it on standard error). Returns the former handler.
AssertHandler setAssertHandler(AssertHandler handler);

// The line is "Assertion failed: <condition> (<source path>)[: <message>]", with the path below the
// source root and without extension.
[[noreturn]] void assertionFailed(const char* condition, const char* file);
[[noreturn]] void assertionFailed(const char* condition, const char* file, const char* format, ...)
    __attribute__((format(printf, 3, 4)));

}  // namespace plat

// Fatal assertions for programming errors. Nothing that arrives from outside may reach one.
#define PLAT_ASSERT(condition) PLAT_ASSERT_TEXT(condition, #condition)
// With the text that the line gives for the condition.
#define PLAT_ASSERT_TEXT(condition, text) \
  (static_cast<bool>(condition) ? void(0) : ::plat::assertionFailed(text, __FILE__))
#define PLAT_ASSERT_MSG(condition, ...)   \
  (static_cast<bool>(condition) ? void(0) \
                                : ::plat::assertionFailed(#condition, __FILE__, __VA_ARGS__))

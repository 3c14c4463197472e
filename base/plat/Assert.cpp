#include "plat/Assert.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "plat/Report.h"

namespace plat {

namespace {

AssertHandler currentHandler = nullptr;

void defaultHandler(const char* line) {
  std::fprintf(stderr, "%s\n", line);
  report("Assertion", 0, "%s", line);
}

std::string sourceName(const char* file) {
  std::string path = file;
  const size_t slash = path.rfind('/');
  const size_t dot = path.rfind('.');
  if (dot != std::string::npos && (slash == std::string::npos || dot > slash)) path.resize(dot);
  // Compilers are started in many ways: whatever leads to the source root is left out.
  for (const char* top : {"/base/", "/uilibs/", "/libs/", "/tools/", "/tests/"}) {
    if (const size_t at = path.rfind(top); at != std::string::npos) return path.substr(at + 1);
  }
  return path;
}

[[noreturn]] void fail(const std::string& line) {
  (currentHandler ? currentHandler : defaultHandler)(line.c_str());
  std::abort();
}

}  // namespace

AssertHandler setAssertHandler(AssertHandler handler) {
  AssertHandler former = currentHandler;
  currentHandler = handler;
  return former;
}

void assertionFailed(const char* condition, const char* file) {
  fail(std::string("Assertion failed: ") + condition + " (" + sourceName(file) + ")");
}

void assertionFailed(const char* condition, const char* file, const char* format, ...) {
  char message[1024];
  va_list args;
  va_start(args, format);
  std::vsnprintf(message, sizeof message, format, args);
  va_end(args);
  fail(std::string("Assertion failed: ") + condition + " (" + sourceName(file) + "): " + message);
}

}  // namespace plat

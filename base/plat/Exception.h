#pragma once

#include <exception>
#include <string>

namespace plat {

// printf into a std::string.
std::string format(const char* format, ...) __attribute__((format(printf, 1, 2)));

// Base of all the program's exceptions: a message text (cut to 255 bytes), a kind name (cut to 63
// bytes; the class name without its namespace, empty for the base class) and, for a failed system
// call, its error number. Thrown by value, caught by reference.
class Exception : public std::exception {
 public:
  explicit Exception(const char* format, ...) __attribute__((format(printf, 2, 3)));

  const char* what() const noexcept override { return text_; }
  const char* text() const noexcept { return text_; }
  const char* kind() const noexcept { return kind_; }
  // errno of a failed system call, else 0.
  int code() const noexcept { return code_; }

  // For exceptions that are told apart by kind alone.
  static Exception ofKind(const char* kind, const std::string& text);

 protected:
  struct Kind {
    const char* name;
  };
  Exception(Kind kind, const std::string& text, int code = 0) noexcept;

 private:
  void setText(const char* text) noexcept;

  char text_[256];
  char kind_[64];
  int code_ = 0;
};

// A failed system call. The text is "<call text>: <strerror> (<errno>)".
class SystemException : public Exception {
 public:
  SystemException(const std::string& callText, int errorNumber);
};

// Text that is not valid UTF-8.
class BadUtf8 : public Exception {
 public:
  explicit BadUtf8(const std::string& text);
};

}  // namespace plat

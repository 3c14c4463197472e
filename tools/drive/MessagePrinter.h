#pragma once

#include <chrono>
#include <string_view>

#include "host/Transcript.h"

namespace drive {

// Prints every message of an agent, decoded, as one JSON object a line.
class MessagePrinter : public host::Transcript {
 public:
  MessagePrinter() : Transcript(Keep::kLast) {}

 protected:
  void noted(std::string_view message) override;
  // The time that the message at hand is printed with.
  virtual double seconds() const;

 private:
  const std::chrono::steady_clock::time_point begin_ = std::chrono::steady_clock::now();
};

}  // namespace drive

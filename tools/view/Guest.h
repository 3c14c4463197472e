#pragma once

#include <functional>
#include <memory>
#include <string>

#include "Channel.h"
#include "Secrets.h"

namespace view {

// Who takes the messages of one page.
class Guest {
 public:
  virtual ~Guest() = default;

  virtual void received(const std::string& text) = 0;
};

// Somebody who wants to see the desktop. The channel outlives the guest.
using Admit = std::function<std::unique_ptr<Guest>(Channel& channel, Secrets::Access access)>;

}  // namespace view

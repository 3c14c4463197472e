#pragma once

#include "Session.h"

namespace drive {

// Prints what works here and what does not. Throws Failure when something is wrong.
void doctor(const SessionOptions& session, bool asJson);

}  // namespace drive

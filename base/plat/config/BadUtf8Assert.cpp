#include "plat/config/BadUtf8Assert.h"

#include "plat/Assert.h"
#include "plat/Exception.h"
#include "plat/config/BoolParameter.h"

namespace plat {

namespace {

BoolParameter badUtf8Assert("_BadUtf8Assert",
                            "Make bad UTF-8 cause an assertion failure for debugging", false, true);

}  // namespace

void badUtf8(const std::string& message) {
  PLAT_ASSERT_MSG(!badUtf8Assert.value(), "%s", message.c_str());
  throw BadUtf8(message);
}

}  // namespace plat

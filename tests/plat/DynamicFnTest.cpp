#include "plat/DynamicFn.h"

#include <gtest/gtest.h>

namespace plat {
namespace {

TEST(DynamicFnTest, FindsWhatIsThere) {
  DynamicLibrary library("libm.so.6");
  const DynamicFn<double(double, double)> power{library, "pow"};
  EXPECT_EQ(power(2, 10), 1024);
  using Missing = DynamicFn<double(double)>;
  EXPECT_FALSE((Missing{library, "ruvoNone", Missing::kOptional}));
  EXPECT_TRUE(library.ok());
  EXPECT_FALSE((Missing{library, "ruvoNone"}));
  EXPECT_FALSE(library.ok());
  DynamicLibrary none("libruvo-none.so.1");
  EXPECT_FALSE(none.ok());
  EXPECT_FALSE((DynamicFn<void()>{none, "pow"}));
}

}  // namespace
}  // namespace plat

#include "plat/DynamicFn.h"

#include <gtest/gtest.h>

#include <cmath>

namespace plat {
namespace {

TEST(DynamicFnTest, CallsTheFunction) {
  DynamicLibrary library("libm.so.6");
  const DynamicFn<double(double, double)> power{library, "pow"};
  ASSERT_TRUE(library.ok());
  EXPECT_EQ(power(2, 10), 1024);
}

TEST(DynamicFnTest, MissingFunctionOrLibrary) {
  DynamicLibrary library("libm.so.6");
  using Missing = DynamicFn<double(double)>;
  EXPECT_FALSE((Missing{library, "ruvoNone", Missing::kOptional}));
  EXPECT_TRUE(library.ok());
  EXPECT_FALSE((Missing{library, "ruvoNone"}));
  EXPECT_FALSE(library.ok());
  const DynamicFn<double(double, double)> power{library, "pow"};
  EXPECT_TRUE(power);
  EXPECT_FALSE(library.ok());

  DynamicLibrary none("libruvo-none.so.1");
  EXPECT_FALSE(none.ok());
  EXPECT_FALSE((DynamicFn<void()>{none, "pow"}));
}

}  // namespace
}  // namespace plat

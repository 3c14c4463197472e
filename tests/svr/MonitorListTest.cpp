#include "svr/MonitorList.h"

#include <gtest/gtest.h>

#include "plat/Exception.h"

namespace {

TEST(MonitorListTest, SelectsByNumber) {
  const svr::MonitorList monitors({{0, 0, 100, 100}, {100, 0, 300, 200}, {0, 200, 50, 250}});
  EXPECT_EQ(monitors.select(nullptr), rfb::Rect());
  EXPECT_EQ(monitors.select(" \t"), rfb::Rect());
  EXPECT_EQ(monitors.select(" 2 "), rfb::Rect(100, 0, 300, 200));
  EXPECT_EQ(monitors.select("3 , 2, 2"), rfb::Rect(0, 0, 300, 250));
  for (const char* bad : {"4", "1,0", "1,", ",", "1 2", "-1", "1x", "18446744073709551617"}) {
    EXPECT_THROW(monitors.select(bad), plat::Exception) << bad;
  }
}

}  // namespace

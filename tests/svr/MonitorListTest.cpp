#include "svr/MonitorList.h"

#include <gtest/gtest.h>

#include "plat/Exception.h"

namespace {

TEST(MonitorListTest, SelectsByNumber) {
  const svr::MonitorList monitors({{0, 0, 100, 100}, {100, 0, 300, 200}, {0, 200, 50, 250}});
  const struct {
    const char* selection;
    rfb::Rect rect;
    const char* error;
  } cases[] = {
      {nullptr, {}, nullptr},
      {"", {}, nullptr},
      {" \t", {}, nullptr},
      {"1", {0, 0, 100, 100}, nullptr},
      {" 2 ", {100, 0, 300, 200}, nullptr},
      {"1,3", {0, 0, 100, 250}, nullptr},
      {"3 , 2, 2", {0, 0, 300, 250}, nullptr},
      {"4", {}, "No monitor '4'"},
      {"1,0", {}, "No monitor '0'"},
      {"1,", {}, "No monitor ''"},
      {",", {}, "No monitor ''"},
      {"1 2", {}, "No monitor '1 2'"},
      {"-1", {}, "No monitor '-1'"},
      {"1x", {}, "No monitor '1x'"},
      {"DP-1", {}, "No monitor 'DP-1'"},
      {"18446744073709551617", {}, "No monitor '18446744073709551617'"},
  };
  for (const auto& c : cases) {
    std::string error;
    try {
      EXPECT_EQ(monitors.select(c.selection), c.rect) << c.selection;
    } catch (const plat::Exception& e) {
      error = e.text();
    }
    EXPECT_EQ(error, c.error ? c.error : "");
  }
}

}  // namespace

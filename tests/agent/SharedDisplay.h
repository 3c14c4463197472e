#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "support/XServer.h"

// Where no one's configuration is read, and what comes of it.
inline support::Program::Options programOptions(const std::string& display) {
  support::Program::Options options;
  options.captureOutput = options.captureErrors = true;
  options.environment = {{"DISPLAY", display}, {"HOME", "/nonexistent"}, {"LC_ALL", "C"}};
  return options;
}

// "status output|errors" of a program that ends.
inline std::string outcomeOf(const std::vector<std::string>& arguments,
                             const support::Program::Options& options) {
  support::Program program(arguments, options);
  const int status = program.wait(support::Milliseconds(60000)).value_or(-1);
  return std::to_string(status) + " " + program.output() + "|" + program.errors();
}

// One X server for all tests of a suite.
class SharedDisplay : public testing::Test {
 protected:
  static void SetUpTestSuite() { server = support::XServer::xvfb("641x480x24"); }
  static void TearDownTestSuite() { server.reset(); }
  static const std::string& display() { return server->display(); }

  static inline std::unique_ptr<support::XServer> server;
};

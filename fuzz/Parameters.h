#pragma once

#include "plat/config/BinaryParameter.h"
#include "plat/config/BoolParameter.h"
#include "plat/config/Configuration.h"
#include "plat/config/EnumParameter.h"
#include "plat/config/IntParameter.h"
#include "plat/config/S64Parameter.h"
#include "plat/config/StringParameter.h"
#include "plat/log/LogManager.h"

// A parameter of each type. Nothing is logged.
struct Parameters {
  Parameters() {
    static const bool quiet = (plat::LogManager::instance().setLogSpec(""), true);
    static_cast<void>(quiet);
  }

  static constexpr const char* kNames[] = {"A", "B", nullptr};

  plat::Configuration config{"Fuzz"};
  plat::BoolParameter flag{"f", "", false, false, nullptr, &config};
  plat::IntParameter number{"n", plat::MessageId{"id"}, 5, -9, 9, true, "noPolicy", &config};
  plat::EnumParameter choice{"e", "<d>", 0, kNames, false, nullptr, &config};
  plat::StringParameter text{"t", "", "abc", false, "x,y", &config};
  plat::S64Parameter wide{"w", "", 0, false, nullptr, &config};
  plat::BinaryParameter bytes{"y", "", {}, false, nullptr, &config};
};

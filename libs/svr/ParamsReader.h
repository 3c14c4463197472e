#pragma once

#include "plat/String.h"

namespace plat {
class ConfigParameter;
class Configuration;
class LogSrc;
}  // namespace plat
namespace rdr {
class InStream;
}

namespace svr {

// Applies the entries of the message "setParams" to a configuration.
class ParamsReader {
 public:
  // Longest value, in bytes.
  static constexpr size_t kMaxValue = 1024;

  // Neither is owned.
  ParamsReader(plat::Configuration& configuration, plat::LogSrc& log)
      : configuration_(configuration), log_(log) {}

  // Reads and applies one entry: short string name, string value, U32 priority. A name or value
  // that does not fit this configuration is logged. Throws what the stream throws; the entry has
  // then no effect.
  void readEntry(rdr::InStream& in);

 private:
  void apply(plat::ConfigParameter& param, const plat::String& value, int priority);
  void compareDefault(const plat::ConfigParameter& param, const plat::String& value);

  plat::Configuration& configuration_;
  plat::LogSrc& log_;
};

}  // namespace svr

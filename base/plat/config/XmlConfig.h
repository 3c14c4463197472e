#pragma once

#include <iosfwd>
#include <string_view>

namespace plat {

class Configuration;

// The XML description of a set of parameters.
class XmlConfig {
 public:
  // Writes all parameters of the configuration and its children with all their values, by name.
  static void write(std::ostream& out, const Configuration& configuration);
  // Sets the values of a document whose elements agree with the registered parameters. Otherwise,
  // and when it is not well-formed, throws Exception and changes nothing.
  static void read(std::string_view document, Configuration& configuration);
};

}  // namespace plat

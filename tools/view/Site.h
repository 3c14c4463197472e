#pragma once

#include <boost/beast/http/message.hpp>
#include <boost/beast/http/string_body.hpp>
#include <optional>
#include <string>
#include <string_view>

#include "Options.h"
#include "Secrets.h"

namespace view {

using Request = boost::beast::http::request<boost::beast::http::string_body>;
using Response = boost::beast::http::response<boost::beast::http::string_body>;

// What HTTP requests are answered: the page's files, and sessions for the token.
class Site {
 public:
  static constexpr std::string_view kSubprotocol = "ruvo-view-1";

  // `port` names the cookie, since browsers share cookies among the ports of a host.
  Site(const Options& options, const Secrets& secrets, uint16_t port);

  Response answer(const Request& request) const;
  Response forbidden(const Request& request, const std::string& why) const;
  Response tooLarge(const Request& request) const;

  // What somebody who asks for the desktop's WebSocket may do there; nothing when it is refused,
  // which `refusal` then says.
  std::optional<Secrets::Access> admit(const Request& request, std::string& refusal) const;

 private:
  Response answerSession(const Request& request) const;
  bool isOwnOrigin(const Request& request, std::string& refusal) const;
  std::string session(const Request& request) const;

  const Options& options_;
  const Secrets& secrets_;
  const std::string cookie_;
};

}  // namespace view

#include "Site.h"

#include <algorithm>
#include <boost/beast/core/string.hpp>
#include <boost/beast/http/fields.hpp>

#include "PageFiles.h"

namespace view {

namespace http = boost::beast::http;

namespace {

std::string_view toView(boost::beast::string_view text) {
  return {text.data(), text.size()};
}

// The host of "host:port" or "[host]:port".
std::string_view hostOf(std::string_view authority) {
  if (!authority.empty() && authority.front() == '[') {
    return authority.substr(0, authority.find(']') + 1);
  }
  return authority.substr(0, authority.find(':'));
}

bool isLoopbackName(std::string_view host) {
  return host == "127.0.0.1" || host == "localhost" || host == "[::1]";
}

Response plain(const Request& request, http::status status, const std::string& text) {
  Response response{status, request.version()};
  response.set(http::field::content_type, "text/plain; charset=utf-8");
  response.body() = text;
  return response;
}

// The headers that every answer has.
void finish(const Request& request, Response& response) {
  response.set(http::field::cache_control, "no-store");
  response.set(
      "Content-Security-Policy",
      "default-src 'none'; script-src 'self'; style-src 'self'; img-src 'self' blob: data:; "
      "connect-src 'self'; manifest-src 'self'; base-uri 'none'; form-action 'none'; "
      "frame-ancestors 'none'");
  response.set("X-Content-Type-Options", "nosniff");
  response.set("Referrer-Policy", "no-referrer");
  response.set("Cross-Origin-Opener-Policy", "same-origin");
  response.set("Cross-Origin-Resource-Policy", "same-origin");
  response.keep_alive(request.keep_alive());
  response.prepare_payload();
  if (request.method() == http::verb::head) response.body().clear();
}

}  // namespace

Site::Site(const Options& options, const Secrets& secrets, uint16_t port)
    : options_(options), secrets_(secrets), cookie_("ruvoview-" + std::to_string(port)) {}

std::string Site::session(const Request& request) const {
  std::string_view rest = toView(request[http::field::cookie]);
  while (!rest.empty()) {
    const size_t end = std::min(rest.find(';'), rest.size());
    std::string_view pair = rest.substr(0, end);
    rest.remove_prefix(std::min(end + 1, rest.size()));
    while (!pair.empty() && pair.front() == ' ') pair.remove_prefix(1);
    const size_t equals = pair.find('=');
    if (equals != std::string_view::npos && pair.substr(0, equals) == cookie_) {
      return std::string(pair.substr(equals + 1));
    }
  }
  return {};
}

bool Site::isOwnOrigin(const Request& request, std::string& refusal) const {
  const std::string_view origin = toView(request[http::field::origin]);
  const std::string_view host = toView(request[http::field::host]);
  if (!options_.origin.empty()) {
    if (origin == options_.origin) return true;
  } else if (!host.empty()) {
    // Behind a proxy on a UNIX socket the page may have come by either.
    const std::string own(host);
    const bool plainOrigin = origin == "http://" + own && !options_.usesTls();
    const bool secureOrigin =
        origin == "https://" + own && (options_.usesTls() || !options_.socketPath.empty());
    // A name that somebody else has pointed at this machine is none of ours.
    const bool loopback = options_.socketPath.empty() && isLoopbackName(options_.address);
    if ((plainOrigin || secureOrigin) && (!loopback || isLoopbackName(hostOf(host)))) return true;
  }
  refusal = "foreign origin";
  return false;
}

std::optional<Secrets::Access> Site::admit(const Request& request, std::string& refusal) const {
  if (request.target() != "/desktop") {
    refusal = "no such place";
    return std::nullopt;
  }
  if (!isOwnOrigin(request, refusal)) return std::nullopt;
  const auto access = secrets_.find(session(request));
  if (!access) refusal = "no session";
  return access;
}

// A page asks with GET whether its session still holds, and opens one with POST.
Response Site::answerSession(const Request& request) const {
  if (request.method() == http::verb::get) {
    if (!secrets_.find(session(request))) {
      return plain(request, http::status::forbidden, "no session\n");
    }
    return Response{http::status::no_content, request.version()};
  }
  if (request.method() != http::verb::post) {
    Response response = plain(request, http::status::method_not_allowed, "GET or POST only\n");
    response.set(http::field::allow, "GET, POST");
    return response;
  }
  std::string refusal;
  if (!isOwnOrigin(request, refusal)) {
    return plain(request, http::status::forbidden, refusal + "\n");
  }
  const auto opened = secrets_.open(request.body());
  if (!opened) return plain(request, http::status::forbidden, "wrong token\n");
  Response response{http::status::no_content, request.version()};
  response.set(http::field::set_cookie, cookie_ + "=" + *opened +
                                            "; HttpOnly; SameSite=Strict; Path=/" +
                                            (options_.usesTls() ? "; Secure" : ""));
  return response;
}

Response Site::answer(const Request& request) const {
  Response response;
  const std::string_view target = toView(request.target());
  if (target == "/session") {
    response = answerSession(request);
  } else if (request.method() != http::verb::get && request.method() != http::verb::head) {
    response = plain(request, http::status::method_not_allowed, "GET only\n");
    response.set(http::field::allow, "GET, HEAD");
  } else if (target == "/desktop") {
    response = plain(request, http::status::upgrade_required, "a WebSocket\n");
    response.set(http::field::upgrade, "websocket");
  } else if (const PageFile* file = findPageFile(target)) {
    response = Response{http::status::ok, request.version()};
    response.set(http::field::content_type, file->type);
    response.body() = std::string(file->bytes);
  } else {
    response = plain(request, http::status::not_found, "no such page\n");
  }

  finish(request, response);
  return response;
}

Response Site::forbidden(const Request& request, const std::string& why) const {
  Response response = plain(request, http::status::forbidden, why + "\n");
  finish(request, response);
  return response;
}

Response Site::tooLarge(const Request& request) const {
  Response response = plain(request, http::status::payload_too_large, "too large\n");
  finish(request, response);
  return response;
}

}  // namespace view

#include "Server.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <boost/asio/ip/address.hpp>
#include <boost/asio/ip/v6_only.hpp>
#include <chrono>
#include <stdexcept>
#include <type_traits>
#include <utility>

#include "Connection.h"
#include "Log.h"

namespace view {

namespace asio = boost::asio;
using boost::system::error_code;

namespace {

constexpr int kMaxConnections = 128;
constexpr std::chrono::milliseconds kPause{200};

// The programs that are started must not keep a socket open.
template <typename Socket>
void keepToOurselves(Socket& socket) {
  fcntl(socket.native_handle(), F_SETFD, FD_CLOEXEC);
}

std::runtime_error failure(const std::string& what, const error_code& error) {
  return std::runtime_error(what + ": " + error.message());
}

}  // namespace

Server::Server(asio::io_context& loop, const Options& options, Admit admit)
    : loop_(loop),
      options_(options),
      admit_(std::move(admit)),
      secrets_(options.tokenFile),
      tcp_(loop),
      local_(loop),
      pause_(loop) {
  if (options.usesTls()) {
    tls_.emplace(asio::ssl::context::tls_server);
    tls_->set_options(asio::ssl::context::default_workarounds | asio::ssl::context::no_sslv2 |
                      asio::ssl::context::no_sslv3 | asio::ssl::context::no_tlsv1 |
                      asio::ssl::context::no_tlsv1_1);
    error_code error;
    tls_->use_certificate_chain_file(options.certificate, error);
    if (error) throw failure("certificate " + options.certificate, error);
    tls_->use_private_key_file(options.key, asio::ssl::context::pem, error);
    if (error) throw failure("key " + options.key, error);
  }
  base_ = options.socketPath.empty() ? listenTcp() : listenLocal();
  if (options.socketPath.empty()) {
    accept(tcp_);
  } else {
    accept(local_);
  }
}

Server::~Server() {
  if (local_.is_open()) unlink(options_.socketPath.c_str());
}

std::string Server::listenTcp() {
  error_code error;
  const asio::ip::address address = asio::ip::make_address(options_.address, error);
  if (error) throw std::runtime_error("'" + options_.address + "' is not an IP address");
  const asio::ip::tcp::endpoint endpoint(address, options_.port);
  tcp_.open(endpoint.protocol(), error);
  if (!error) keepToOurselves(tcp_);
  if (!error) tcp_.set_option(asio::socket_base::reuse_address(true), error);
  if (!error && address.is_v6()) tcp_.set_option(asio::ip::v6_only(true), error);
  if (!error) tcp_.bind(endpoint, error);
  if (!error) tcp_.listen(asio::socket_base::max_listen_connections, error);
  if (error) {
    throw failure("can't listen on " + options_.address + ":" + std::to_string(options_.port),
                  error);
  }
  const uint16_t port = tcp_.local_endpoint().port();
  site_.emplace(options_, secrets_, port);
  const std::string host = address.is_v6() ? "[" + options_.address + "]" : options_.address;
  if (!options_.origin.empty()) return options_.origin + "/#";
  return (options_.usesTls() ? "https://" : "http://") + host + ":" + std::to_string(port) + "/#";
}

std::string Server::listenLocal() {
  const std::string& path = options_.socketPath;
  error_code error;
  local_.open(asio::local::stream_protocol(), error);
  if (!error) keepToOurselves(local_);
  if (path.size() > 107) throw std::runtime_error("the path of the socket is too long: " + path);
  // One that a killed predecessor has left, which nobody answers.
  asio::local::stream_protocol::socket probe(loop_);
  struct stat status {};
  if (stat(path.c_str(), &status) == 0 && S_ISSOCK(status.st_mode)) {
    error_code refused;
    probe.connect(path, refused);
    if (refused == asio::error::connection_refused) unlink(path.c_str());
  }
  // Nobody but this user and group connects, from the first moment on.
  const mode_t before = umask(0117);
  if (!error) local_.bind(path, error);
  umask(before);
  if (!error) local_.listen(asio::socket_base::max_listen_connections, error);
  if (error) {
    local_.close();
    throw failure("can't listen on " + path, error);
  }
  site_.emplace(options_, secrets_, 0);
  return options_.origin.empty() ? "unix:" + path + "#" : options_.origin + "/#";
}

template <typename Acceptor>
void Server::accept(Acceptor& acceptor) {
  acceptor.async_accept([this, &acceptor](error_code error, auto socket) {
    if (error == asio::error::operation_aborted) return;
    if (error) {
      // No descriptors are left, say: until some are.
      pause_.expires_after(kPause);
      pause_.async_wait([this, &acceptor](error_code cancelled) {
        if (!cancelled) accept(acceptor);
      });
      return;
    }
    if constexpr (std::is_same_v<Acceptor, asio::ip::tcp::acceptor>) {
      error_code ignored;
      socket.set_option(asio::ip::tcp::no_delay(true), ignored);
    }
    serve(std::move(socket));
    accept(acceptor);
  });
}

void Server::serve(asio::generic::stream_protocol::socket socket) {
  if (*connections_ >= kMaxConnections) return;
  keepToOurselves(socket);
  serveConnection(std::move(socket), tls_ ? &*tls_ : nullptr, *site_, admit_, connections_);
}

}  // namespace view

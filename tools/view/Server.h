#pragma once

#include <boost/asio/generic/stream_protocol.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/local/stream_protocol.hpp>
#include <boost/asio/ssl/context.hpp>
#include <boost/asio/steady_timer.hpp>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "Guest.h"
#include "Options.h"
#include "Secrets.h"
#include "Site.h"

namespace view {

// Listens for browsers.
class Server {
 public:
  // Throws std::runtime_error when it cannot listen there, or must not.
  Server(boost::asio::io_context& loop, const Options& options, Admit admit);
  ~Server();
  Server(const Server&) = delete;
  Server& operator=(const Server&) = delete;

  // Of the page, with the token that lets in.
  std::string address() const { return base_ + secrets_.token(); }
  std::string viewAddress() const { return base_ + secrets_.viewToken(); }

 private:
  template <typename Acceptor>
  void accept(Acceptor& acceptor);
  void serve(boost::asio::generic::stream_protocol::socket socket);
  std::string listenTcp();
  std::string listenLocal();

  boost::asio::io_context& loop_;
  const Options& options_;
  const Admit admit_;
  Secrets secrets_;
  std::optional<Site> site_;
  std::optional<boost::asio::ssl::context> tls_;
  boost::asio::ip::tcp::acceptor tcp_;
  boost::asio::local::stream_protocol::acceptor local_;
  boost::asio::steady_timer pause_;
  std::string base_;
  const std::shared_ptr<int> connections_ = std::make_shared<int>(0);
};

}  // namespace view

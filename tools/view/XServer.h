#pragma once

#include <sys/types.h>

#include <boost/asio/io_context.hpp>
#include <boost/asio/posix/stream_descriptor.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/streambuf.hpp>
#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace view {

// An X server of our own without a screen that anybody sees, and the session on it. A server that
// dies is started again. Both end with this object.
class XServer {
 public:
  using Environment = std::vector<std::pair<std::string, std::string>>;
  // The display, empty when it has gone, and what programs need in their environment.
  using Changed = std::function<void(const std::string& display, const Environment& environment)>;

  XServer(boost::asio::io_context& loop, int width, int height, std::vector<std::string> session,
          Changed changed);
  ~XServer();
  XServer(const XServer&) = delete;
  XServer& operator=(const XServer&) = delete;

  // Starts the session, unless it runs or has run on this X server.
  void startSession();
  // A child process has ended: perhaps one of ours.
  void reap();

 private:
  void start();
  void writeAuthority();
  void numberRead(const std::string& line);
  pid_t launch(const std::vector<std::string>& command, const Environment& environment,
               int inherited);
  void endSession();

  boost::asio::steady_timer retry_;
  boost::asio::posix::stream_descriptor numberPipe_;
  boost::asio::streambuf numberText_;
  const int width_, height_;
  const std::vector<std::string> session_;
  const Changed changed_;

  std::string folder_, authority_, display_;
  pid_t server_ = -1, sessionLeader_ = -1;
  bool sessionStarted_ = false;
};

}  // namespace view

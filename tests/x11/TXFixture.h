#pragma once

#include <gtest/gtest.h>

#include <list>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "io/FdSelectManager.h"
#include "support/LogCapture.h"
#include "support/ParameterValue.h"
#include "support/XServer.h"
#include "tx/TXDisplay.h"
#include "tx/TXEventHandler.h"

// A private Xvfb that the toolkit is connected to.
class TXFixture : public testing::Test {
 protected:
  io::FdSelectManager loop_;

  void start(const std::string& screen = "640x480x24") { use(support::XServer::xvfb(screen)); }
  void use(std::unique_ptr<support::XServer> server) {
    stop();
    server_ = std::move(server);
    display_.emplace(server_->display().c_str());
    client_ = server_->connect();
  }
  bool isStarted() const { return server_ != nullptr; }
  void closeDisplay() { display_.reset(); }
  void stop() {
    client_.reset();
    display_.reset();
    server_.reset();
  }
  void TearDown() override { stop(); }

  void setParam(const char* name, const char* value) { parameters_.emplace_back(name, value); }

  // Dispatches all events that the server has sent so far.
  static void dispatchAll() {
    XSync(tx::TXDisplay::display(), False);
    while (XPending(tx::TXDisplay::display()) > 0) {
      XEvent event;
      XNextEvent(tx::TXDisplay::display(), &event);
      tx::TXEventHandler::dispatch(event);
    }
  }

  static Display* display() { return tx::TXDisplay::display(); }
  // The other client.
  Display* client() const { return client_.get(); }
  support::XServer& server() const { return *server_; }

  support::LogCapture log_;

 private:
  std::list<support::ParameterValue> parameters_;
  std::unique_ptr<support::XServer> server_;
  std::optional<tx::TXDisplay> display_;
  support::XConnection client_;
};

#include "Connection.h"

#include <boost/asio/ssl/stream.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/http/read.hpp>
#include <boost/beast/http/write.hpp>
#include <boost/beast/websocket/ssl.hpp>
#include <boost/beast/websocket/stream.hpp>
#include <chrono>
#include <deque>
#include <optional>
#include <string>
#include <type_traits>
#include <utility>
#include <variant>
#include <vector>

#include "Log.h"

namespace view {

namespace {

namespace asio = boost::asio;
namespace beast = boost::beast;
namespace http = boost::beast::http;
namespace websocket = boost::beast::websocket;

using Socket = asio::generic::stream_protocol::socket;
using TlsStream = asio::ssl::stream<Socket>;
using boost::system::error_code;

constexpr std::chrono::seconds kRequestTimeout{15};
constexpr std::chrono::seconds kSilence{30};  // a page whose pings come back is not silent
constexpr uint32_t kMaxHeader = 8192;
constexpr uint64_t kMaxBody = 256;
constexpr size_t kMaxMessage = 1 << 20;
constexpr size_t kMaxQueued = 32 << 20;

// HTTP first, and a WebSocket when that is asked for and granted.
template <typename Stream>
class Connection final : public Channel, public std::enable_shared_from_this<Connection<Stream>> {
 public:
  template <typename... TlsContext>
  Connection(Socket socket, Site& site, const Admit& admit, std::shared_ptr<int> count,
             TlsContext&... tls)
      : socket_(std::move(socket), tls...),
        site_(site),
        admit_(admit),
        count_(std::move(count)),
        timer_(lowest().get_executor()) {
    ++*count_;
  }
  ~Connection() override { --*count_; }

  void run() {
    if constexpr (std::is_same_v<Stream, TlsStream>) {
      setTimeout();
      socket_.next_layer().async_handshake(asio::ssl::stream_base::server,
                                           [self = this->shared_from_this()](error_code error) {
                                             if (!error) self->readRequest();
                                           });
    } else {
      readRequest();
    }
  }

  void sendText(std::string json) override { send({std::move(json)}); }
  void sendBinary(std::vector<uint8_t> message) override { send({std::move(message)}); }
  size_t queuedBytes() const override { return queued_; }

  void close(uint16_t code, const std::string& reason) override {
    if (closing_) return;
    closing_ = true;
    reason_ = websocket::close_reason(static_cast<websocket::close_code>(code), reason);
    if (messages_.empty()) sendClose();
  }

 private:
  using Message = std::variant<std::string, std::vector<uint8_t>>;

  Socket& lowest() { return beast::get_lowest_layer(socket_); }

  void setTimeout() {
    timer_.expires_after(kRequestTimeout);
    timer_.async_wait([weak = this->weak_from_this()](error_code error) {
      const auto self = weak.lock();
      if (self && !error) self->hangUp();
    });
  }

  void hangUp() {
    error_code ignored;
    lowest().close(ignored);
  }

  void readRequest() {
    setTimeout();
    parser_.emplace();
    parser_->header_limit(kMaxHeader);
    parser_->body_limit(kMaxBody);
    http::async_read(
        socket_.next_layer(), buffer_, *parser_,
        [self = this->shared_from_this()](error_code error, size_t) { self->requestRead(error); });
  }

  void requestRead(error_code error) {
    if (error == http::error::body_limit || error == http::error::header_limit) {
      Request request = parser_->release();
      request.keep_alive(false);
      answer(site_.tooLarge(request));
      return;
    }
    if (error) {
      hangUp();
      return;
    }
    const Request& request = parser_->get();
    if (!websocket::is_upgrade(request)) {
      answer(site_.answer(request));
      return;
    }
    std::string refusal;
    const auto access = site_.admit(request, refusal);
    if (!access) {
      log("refused a WebSocket: " + refusal);
      answer(site_.forbidden(request, refusal));
      return;
    }
    upgrade(*access);
  }

  void answer(Response response) {
    response_.emplace(std::move(response));
    http::async_write(socket_.next_layer(), *response_,
                      [self = this->shared_from_this()](error_code error, size_t) {
                        if (error || self->response_->need_eof()) {
                          self->hangUp();
                        } else {
                          self->readRequest();
                        }
                      });
  }

  void upgrade(Secrets::Access access) {
    timer_.cancel();
    websocket::stream_base::timeout timeouts{};
    timeouts.handshake_timeout = kRequestTimeout;
    timeouts.idle_timeout = kSilence;
    timeouts.keep_alive_pings = true;
    socket_.set_option(timeouts);
    socket_.set_option(websocket::stream_base::decorator([](websocket::response_type& response) {
      response.set(http::field::sec_websocket_protocol, Site::kSubprotocol);
    }));
    socket_.read_message_max(kMaxMessage);
    socket_.auto_fragment(false);
    accepted_ = parser_->release();
    socket_.async_accept(accepted_, [self = this->shared_from_this(), access](error_code error) {
      if (error) return;
      self->open_ = true;
      self->guest_ = self->admit_(*self, access);
      self->read();
    });
  }

  void read() {
    socket_.async_read(buffer_, [self = this->shared_from_this()](error_code error, size_t) {
      self->messageRead(error);
    });
  }

  void messageRead(error_code error) {
    if (error) {
      // One who sends too much may be cut off before the reason has reached it.
      const bool isFault =
          error == asio::error::connection_reset ||
          (error != websocket::error::closed &&
           error.category() == make_error_code(websocket::error::closed).category());
      if (isFault && !closing_) {
        log("closed a page: " + error.message());
      }
      end();
      return;
    }
    if (socket_.got_binary()) {
      log("closed a page: it sent a binary message");
      close(static_cast<uint16_t>(websocket::close_code::unknown_data), "text only");
    } else if (!closing_) {
      const auto data = buffer_.data();
      guest_->received(std::string(static_cast<const char*>(data.data()), data.size()));
    }
    buffer_.consume(buffer_.size());
    read();
  }

  void send(Message message) {
    if (closing_ || !open_) return;
    const size_t size = std::visit([](const auto& each) { return each.size(); }, message);
    if (queued_ + size > kMaxQueued) {
      log("closed a page: it does not take what is sent");
      closing_ = true;
      hangUp();
      return;
    }
    queued_ += size;
    messages_.push_back(std::move(message));
    if (messages_.size() == 1) write();
  }

  void write() {
    const bool isText = std::holds_alternative<std::string>(messages_.front());
    socket_.text(isText);
    const asio::const_buffer bytes =
        std::visit([](const auto& each) { return asio::const_buffer(each.data(), each.size()); },
                   messages_.front());
    socket_.async_write(bytes, [self = this->shared_from_this()](error_code error, size_t) {
      self->written(error);
    });
  }

  void written(error_code error) {
    queued_ -= std::visit([](const auto& each) { return each.size(); }, messages_.front());
    messages_.pop_front();
    if (error) {
      messages_.clear();
      queued_ = 0;
      return;  // the read tells
    }
    if (!messages_.empty()) {
      write();
    } else if (closing_) {
      sendClose();
    }
  }

  void sendClose() {
    socket_.async_close(reason_, [self = this->shared_from_this()](error_code) {});
  }

  void end() {
    closing_ = true;
    guest_.reset();
    hangUp();
  }

  websocket::stream<Stream> socket_;
  Site& site_;
  const Admit& admit_;
  const std::shared_ptr<int> count_;
  asio::steady_timer timer_;
  beast::flat_buffer buffer_;
  std::optional<http::request_parser<http::string_body>> parser_;
  std::optional<Response> response_;
  Request accepted_;

  std::unique_ptr<Guest> guest_;
  std::deque<Message> messages_;
  size_t queued_ = 0;
  bool open_ = false, closing_ = false;
  websocket::close_reason reason_;
};

}  // namespace

void serveConnection(Socket socket, asio::ssl::context* tls, Site& site, const Admit& admit,
                     std::shared_ptr<int> count) {
  if (tls) {
    std::make_shared<Connection<TlsStream>>(std::move(socket), site, admit, std::move(count), *tls)
        ->run();
  } else {
    std::make_shared<Connection<Socket>>(std::move(socket), site, admit, std::move(count))->run();
  }
}

}  // namespace view

#pragma once

#include <boost/asio/generic/stream_protocol.hpp>
#include <boost/asio/ssl/context.hpp>
#include <memory>

#include "Guest.h"
#include "Site.h"

namespace view {

// Serves one accepted connection until it ends, by itself. `count` is one higher as long as it
// lives. Site, TLS context (may be null) and admission outlive the loop's last turn.
void serveConnection(boost::asio::generic::stream_protocol::socket socket,
                     boost::asio::ssl::context* tls, Site& site, const Admit& admit,
                     std::shared_ptr<int> count);

}  // namespace view

#pragma once

#include <cstddef>
#include <string_view>

#include "tx/TXClipboardMgr.h"

namespace svr {

// Joins the X selections to the conversation with the server: text that an X client copies goes to
// the callback, text from a viewer into PRIMARY, CLIPBOARD and cut buffer 0.
class SClipboardX11 : private tx::TXClipboardWindow::Callback {
 public:
  class Callback {
   public:
    // An X client has copied UTF-8 text, as it is.
    virtual void clipboardChanged(const char* text, size_t length) = 0;

   protected:
    ~Callback() = default;
  };

  // The display must be open. The callback is not owned.
  explicit SClipboardX11(Callback* callback);
  virtual ~SClipboardX11() = default;
  SClipboardX11(const SClipboardX11&) = delete;
  SClipboardX11& operator=(const SClipboardX11&) = delete;

  // Monitoring is off at first, and stays off without the parameter `EnableClipboard`.
  void setMonitoring(bool on);

  // Offers a viewer's text (UTF-8, any bytes) to X clients. time is the X server's time of now.
  void setText(std::string_view text, uint32_t time);

 private:
  bool sendPrimary() override;
  bool clipboardChanged(size_t length, const char* text) override;
  void requestDone(bool gotText, bool timedOut) override;

  Callback* callback_;
  tx::TXClipboardMgr manager_;
};

}  // namespace svr

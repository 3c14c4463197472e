#include "KittyCanvas.h"

#include <algorithm>
#include <string>
#include <vector>

#include "Scaling.h"

namespace drive {

namespace {

constexpr size_t kMaxChunk = 4096;
// Without an answer: there is nobody to read it.
constexpr std::string_view kDeleteAll = "\033_Ga=d,d=A,q=2\033\\";

std::string base64(const std::vector<uint8_t>& bytes) {
  static constexpr char kDigits[] =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string text;
  text.reserve((bytes.size() + 2) / 3 * 4);
  for (size_t i = 0; i < bytes.size(); i += 3) {
    const auto byte = [&](size_t at) { return at < bytes.size() ? uint32_t{bytes[at]} : 0; };
    const uint32_t three = byte(i) << 16 | byte(i + 1) << 8 | byte(i + 2);
    for (int shift = 18; shift >= 0; shift -= 6) text += kDigits[three >> shift & 63];
  }
  const size_t missing = (3 - bytes.size() % 3) % 3;
  text.replace(text.size() - missing, missing, missing, '=');
  return text;
}

}  // namespace

KittyCanvas::~KittyCanvas() {
  put(kDeleteAll);
}

void KittyCanvas::draw(const Picture& picture, const TerminalSize& size) {
  if (size != size_) put(std::string(kDeleteAll) + "\033[2J");
  size_ = size;
  const Extent extent = fitting(picture, size.width, size.height);
  const std::vector<uint8_t> pixels = scaled(picture, extent);
  const std::string data =
      base64(encodePicture(PictureFormat::kPng, pixels.data(), extent.width, extent.height, false));
  put("\033[H");
  // A PNG file (f) to show at once (a) as the one placement (p) of the one image (i), without
  // moving the cursor (C); in pieces, of which more (m) follow.
  std::string keys = "a=T,f=100,i=1,p=1,C=1,q=2";
  for (size_t at = 0; at < data.size(); at += kMaxChunk) {
    const bool isLast = at + kMaxChunk >= data.size();
    put("\033_G" + keys + (isLast ? ",m=0;" : ",m=1;") + data.substr(at, kMaxChunk) + "\033\\");
    keys = "q=2";
  }
}

}  // namespace drive

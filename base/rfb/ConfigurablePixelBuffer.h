#pragma once

#include "rfb/FullFramePixelBuffer.h"

namespace rfb {

// A pixel buffer whose format and size can be changed.
class ConfigurablePixelBuffer : public FullFramePixelBuffer {
 public:
  virtual void setPF(const PixelFormat& format) = 0;
  // The top-left stays where it is.
  virtual void setSize(int width, int height) = 0;
  // Not owned; may be null.
  virtual void setColourMap(ColourMap* colourMap) { colourMap_ = colourMap; }

 protected:
  using FullFramePixelBuffer::FullFramePixelBuffer;
  ConfigurablePixelBuffer() = default;
};

}  // namespace rfb

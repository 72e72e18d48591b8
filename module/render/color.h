// Colours in the frame's own channel order. The text buffer is handed to the compositor in the
// output frame's format, so the glyph colours are converted here, once per render, into the
// byte order of that format ('bgra': B, G, R; 'vuya': V, U, Y) before anything is rasterized.
#pragma once

#include <cstdint>

#include "document/records.h"

namespace vetext {

// Four channel values in the memory order of `pixel_format`, the last one the opacity.
struct PixelColor {
  float c[4];
};

// The colour rule: 'bgra' gives (B, G, R)/255; 'vuya' converts red | green << 8 | blue << 16
// with ColorRGBtoYUV and gives (V/255 + 0.5, U/255 + 0.5, Y/255). The alpha byte is ignored;
// the fourth value is `opacity`. Any other format is treated as 'bgra'.
PixelColor ColorToPixel(uint8_t alpha, uint8_t red, uint8_t green, uint8_t blue,
                        uint32_t pixel_format, float opacity);

// A 0..1 channel as a byte, rounded and clamped (NaN reads as 0).
uint8_t ChannelToByte(float v);

// The fill and stroke of one record as colour bytes in the buffer's memory order.
struct GlyphPaint {
  uint8_t fill[3];
  uint8_t stroke[3];
};
GlyphPaint PaintForRecord(const CharacterRecord& c, uint32_t pixel_format);

}  // namespace vetext

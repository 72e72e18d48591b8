// Generated backgrounds, for renders without an input: a flat colour, a gradient, or a test
// pattern (colour bars over a grid) that makes placement and scaling easy to judge by eye.
#pragma once

#include <cstdint>
#include <string>

#include "media_image.h"

namespace vetext_tool {

struct Background {
  enum Kind { kPattern, kColor, kGradient } kind = kPattern;
  uint8_t r0 = 0, g0 = 0, b0 = 0;  // the colour, or the gradient's top-left colour
  uint8_t r1 = 0, g1 = 0, b1 = 0;  // the gradient's bottom-right colour
};

// Parses "pattern", "color:#RRGGBB", "gradient" or "gradient:#RRGGBB,#RRGGBB".
bool ParseBackground(const std::string& text, Background* out, std::string* error);
// Parses "#RRGGBB" (the '#' optional).
bool ParseHexColor(const std::string& text, uint8_t* r, uint8_t* g, uint8_t* b);
// Fills `image` (already sized) with the background; every pixel opaque.
void DrawBackground(const Background& bg, Image* image);

}  // namespace vetext_tool

#include "media_background.h"

#include <algorithm>
#include <cctype>

namespace vetext_tool {

bool ParseHexColor(const std::string& text, uint8_t* r, uint8_t* g, uint8_t* b) {
  std::string t = (!text.empty() && text[0] == '#') ? text.substr(1) : text;
  if (t.size() != 6) return false;
  uint32_t v = 0;
  for (char c : t) {
    int d;
    if (c >= '0' && c <= '9')
      d = c - '0';
    else if (c >= 'a' && c <= 'f')
      d = c - 'a' + 10;
    else if (c >= 'A' && c <= 'F')
      d = c - 'A' + 10;
    else
      return false;
    v = v * 16 + uint32_t(d);
  }
  *r = uint8_t(v >> 16);
  *g = uint8_t(v >> 8);
  *b = uint8_t(v);
  return true;
}

bool ParseBackground(const std::string& text, Background* out, std::string* error) {
  Background bg;
  auto bad = [&](const std::string& why) {
    *error = "bad --background '" + text + "': " + why;
    return false;
  };
  if (text == "pattern") {
    bg.kind = Background::kPattern;
  } else if (text.rfind("color:", 0) == 0) {
    bg.kind = Background::kColor;
    if (!ParseHexColor(text.substr(6), &bg.r0, &bg.g0, &bg.b0))
      return bad("expected color:#RRGGBB");
  } else if (text == "gradient") {
    bg.kind = Background::kGradient;
    bg.r0 = 0x10, bg.g0 = 0x20, bg.b0 = 0x50;  // deep blue to plum: text of any colour reads
    bg.r1 = 0x70, bg.g1 = 0x30, bg.b1 = 0x60;
  } else if (text.rfind("gradient:", 0) == 0) {
    bg.kind = Background::kGradient;
    std::string rest = text.substr(9);
    size_t comma = rest.find(',');
    if (comma == std::string::npos ||
        !ParseHexColor(rest.substr(0, comma), &bg.r0, &bg.g0, &bg.b0) ||
        !ParseHexColor(rest.substr(comma + 1), &bg.r1, &bg.g1, &bg.b1))
      return bad("expected gradient:#RRGGBB,#RRGGBB");
  } else {
    return bad("expected pattern, color:#RRGGBB or gradient[:#RRGGBB,#RRGGBB]");
  }
  *out = bg;
  return true;
}

namespace {

void DrawPattern(Image* img) {
  // Seven 75% bars on the top two thirds, a grey ramp below, and a grid every tenth of the
  // height with a brighter centre cross, so that a centred text block is obvious.
  static const uint8_t kBars[7][3] = {{191, 191, 191}, {191, 191, 0}, {0, 191, 191}, {0, 191, 0},
                                      {191, 0, 191},   {191, 0, 0},   {0, 0, 191}};
  const int32_t w = img->width, h = img->height;
  const int32_t bar_h = h * 2 / 3;
  const int32_t cell = std::max(2, h / 10);
  for (int32_t y = 0; y < h; ++y) {
    uint8_t* p = img->row(y);
    for (int32_t x = 0; x < w; ++x, p += 4) {
      uint8_t r, g, b;
      if (y < bar_h) {
        const uint8_t* c = kBars[std::min<int64_t>(6, int64_t(x) * 7 / w)];
        r = c[0], g = c[1], b = c[2];
      } else {
        r = g = b = uint8_t(int64_t(x) * 255 / std::max(1, w - 1));
      }
      bool grid = ((x - w / 2) % cell == 0) || ((y - h / 2) % cell == 0);
      bool centre = (x == w / 2) || (y == h / 2);
      if (centre) {
        r = g = b = 255;
      } else if (grid) {
        r = uint8_t(r / 2 + 40), g = uint8_t(g / 2 + 40), b = uint8_t(b / 2 + 40);
      }
      p[0] = b, p[1] = g, p[2] = r, p[3] = 255;
    }
  }
}

}  // namespace

void DrawBackground(const Background& bg, Image* img) {
  const int32_t w = img->width, h = img->height;
  switch (bg.kind) {
    case Background::kPattern:
      DrawPattern(img);
      return;
    case Background::kColor:
      for (int32_t y = 0; y < h; ++y) {
        uint8_t* p = img->row(y);
        for (int32_t x = 0; x < w; ++x, p += 4)
          p[0] = bg.b0, p[1] = bg.g0, p[2] = bg.r0, p[3] = 255;
      }
      return;
    case Background::kGradient: {
      const int64_t span = std::max<int64_t>(1, int64_t(w - 1) + int64_t(h - 1));
      auto mix = [span](uint8_t a, uint8_t b, int64_t t) {
        return uint8_t((int64_t(a) * (span - t) + int64_t(b) * t + span / 2) / span);
      };
      for (int32_t y = 0; y < h; ++y) {
        uint8_t* p = img->row(y);
        for (int32_t x = 0; x < w; ++x, p += 4) {
          int64_t t = int64_t(x) + y;
          p[0] = mix(bg.b0, bg.b1, t), p[1] = mix(bg.g0, bg.g1, t), p[2] = mix(bg.r0, bg.r1, t);
          p[3] = 255;
        }
      }
      return;
    }
  }
}

}  // namespace vetext_tool

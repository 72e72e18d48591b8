#include "overlay/text_edit.h"

#include <algorithm>
#include <cmath>
#include <vector>

#include "engine/kte.h"
#include "overlay/painter.h"
#include "overlay/transform_box.h"
#include "params/params.h"

namespace vetext {
namespace {

// The document of the Source Text parameter composed with each record's character. Composed
// here rather than taken from the layout cache: the cached layout has no characters, and clicks
// and redraws are few.
struct Composed {
  LayoutRecord layout;
  std::vector<int32_t> characters;
  LayerPlacement place;
};

// A line of glyphs: its baseline (layout units) and its records' indices, left to right.
struct TextLine {
  double baseline = 0, ascent = 0, descent = 0;
  std::vector<size_t> records;
};

bool ComposeSourceText(InputRecord* in, ParamList* params, Composed* c) {
  if (in == nullptr || in->utils == nullptr || params == nullptr || params->params == nullptr ||
      params->count <= kParamAnchorPoint || params->params[kParamSourceText] == nullptr)
    return false;
  VxHandle h = params->params[kParamSourceText]->u.arb_d.value;
  if (h == nullptr || *h == nullptr) return false;
  const uint64_t size = in->utils->get_handle_size(h);
  if (size == 0) return false;
  // A private copy: the host's handle may move under a callback.
  const auto* bytes = static_cast<const uint8_t*>(*h);
  const std::vector<uint8_t> block(bytes, bytes + size);
  try {
    KTE::Compose(*KTE::MakeDocument(block.data(), block.size()), c->layout, &c->characters);
  } catch (const std::exception&) {
    return false;  // a damaged document shows no text overlay
  }
  return c->layout.mCharacters.size() == c->characters.size() &&
         PlaceOnLayer(in, params, c->layout, &c->place);
}

// Records grouped by baseline (baseline shift taken out), lines top to bottom.
std::vector<TextLine> Lines(const LayoutRecord& layout) {
  std::vector<TextLine> lines;
  for (size_t i = 0; i < layout.mCharacters.size(); ++i) {
    const CharacterRecord& r = layout.mCharacters[i];
    const double baseline = r.mOriginY + double(r.mBaselineShift) * layout.mOverSampling;
    auto it = std::find_if(lines.begin(), lines.end(), [&](const TextLine& l) {
      return std::fabs(l.baseline - baseline) < 0.5;
    });
    if (it == lines.end()) {
      lines.push_back({baseline, 0, 0, {}});
      it = lines.end() - 1;
    }
    // Ascent and descent from the font size, so a line of short glyphs has a full height.
    it->ascent = std::max(it->ascent, 0.8 * r.mFontSize);
    it->descent = std::max(it->descent, 0.25 * r.mFontSize);
    it->records.push_back(i);
  }
  for (TextLine& l : lines)
    std::sort(l.records.begin(), l.records.end(), [&](size_t a, size_t b) {
      return layout.mCharacters[a].mLeft < layout.mCharacters[b].mLeft;
    });
  std::sort(lines.begin(), lines.end(),
            [](const TextLine& a, const TextLine& b) { return a.baseline < b.baseline; });
  return lines;
}

void Outline(Painter& paint, const EventRecord& ev, const LayerPlacement& place, double left,
             double top, double right, double bottom) {
  const double xs[4] = {left, right, right, left}, ys[4] = {top, top, bottom, bottom};
  for (int i = 0; i < 4; ++i) {
    const BoxPoint v = LayerToViewer(ev, place.LayoutToLayer(xs[i], ys[i]));
    i == 0 ? paint.MoveTo(v.x, v.y) : paint.LineTo(v.x, v.y);
  }
  paint.Close();
}

}  // namespace

int32_t CharacterAt(const LayoutRecord& l, const std::vector<int32_t>& characters, double x,
                    double y) {
  if (l.mCharacters.empty() || characters.size() != l.mCharacters.size()) return -1;
  double slack = 0;
  for (const CharacterRecord& r : l.mCharacters) slack = std::max(slack, 0.1 * r.mFontSize);
  if (x < l.mLeft - slack || x > l.mRight + slack || y < l.mTop - slack || y > l.mBottom + slack)
    return -1;
  // The line whose band holds the point, or the nearest.
  const std::vector<TextLine> lines = Lines(l);
  const TextLine* line = &lines.front();
  double best = INFINITY;
  for (const TextLine& t : lines) {
    const double d = y < t.baseline - t.ascent    ? t.baseline - t.ascent - y
                     : y > t.baseline + t.descent ? y - t.baseline - t.descent
                                                  : 0;
    if (d < best) best = d, line = &t;
  }
  // The glyph nearest across; the first of its cluster's characters.
  size_t nearest = line->records.front();
  best = INFINITY;
  for (size_t i : line->records) {
    const CharacterRecord& r = l.mCharacters[i];
    const double d = x < r.mLeft ? r.mLeft - x : std::max(0.0, x - r.mLeft - r.mWidth);
    if (d < best) best = d, nearest = i;
  }
  return characters[nearest];
}

int32_t HitTestCharacter(InputRecord* in, ParamList* params, double x, double y) {
  Composed c;
  if (!ComposeSourceText(in, params, &c)) return -1;
  const BoxPoint at = c.place.LayerToLayout(x, y);
  return CharacterAt(c.layout, c.characters, at.x, at.y);
}

void DrawTextFrame(InputRecord* in, ParamList* params, const EventRecord& ev) {
  Composed c;
  if (!ComposeSourceText(in, params, &c)) return;
  Painter paint(in, ev);
  if (!paint.ok()) return;
  const LayoutRecord& l = c.layout;
  Outline(paint, ev, c.place, l.mLeft, l.mTop, l.mRight, l.mBottom);
  for (const TextLine& t : Lines(l)) {
    const CharacterRecord& first = l.mCharacters[t.records.front()];
    const CharacterRecord& last = l.mCharacters[t.records.back()];
    const BoxPoint a = LayerToViewer(ev, c.place.LayoutToLayer(first.mLeft, t.baseline));
    const BoxPoint b =
        LayerToViewer(ev, c.place.LayoutToLayer(last.mLeft + last.mWidth, t.baseline));
    paint.MoveTo(a.x, a.y);
    paint.LineTo(b.x, b.y);
  }
  paint.Stroke(DrawbotColor{1.0f, 0.85f, 0.3f, 1.0f}, 1.0f);
}

void DrawTextSelection(InputRecord* in, ParamList* params, const EventRecord& ev, int32_t first,
                       int32_t last) {
  Composed c;
  if (!ComposeSourceText(in, params, &c)) return;
  Painter paint(in, ev);
  if (!paint.ok()) return;
  if (first > last) std::swap(first, last);
  const LayoutRecord& l = c.layout;
  for (const TextLine& t : Lines(l)) {
    double left = INFINITY, right = -INFINITY;
    for (size_t i : t.records) {
      if (c.characters[i] < first || c.characters[i] > last) continue;
      left = std::min(left, double(l.mCharacters[i].mLeft));
      right = std::max(right, double(l.mCharacters[i].mLeft + l.mCharacters[i].mWidth));
    }
    if (left > right) continue;
    Outline(paint, ev, c.place, left, t.baseline - t.ascent, right, t.baseline + t.descent);
  }
  paint.Fill(DrawbotColor{0.3f, 0.55f, 1.0f, 0.4f});
}

}  // namespace vetext

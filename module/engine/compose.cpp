// The composer: a document's runs become positioned glyphs. Pango does the text work
// (itemization, bidi, shaping through HarfBuzz, line breaking, justification, font fallback
// through fontconfig); this file maps the document's styles onto Pango attributes, places the
// lines itself (leading is the document's, not the font's), and flattens the result into one
// CharacterRecord per visible glyph.
//
// Geometry is produced at the layout's oversampling (4): sizes, box and leading are multiplied
// by 4 before Pango sees them. Hinting and glyph position rounding are off, so positions are
// exact multiples of a Pango unit (1/1024 px) and the same on every run.
//
// Conventions that the renderers and the overlay rely on:
// - Auto leading is 1.2 times the largest font size on the line. A line's leading (baseline of
//   the previous line to its own baseline) is the largest leading among its glyphs, where a glyph
//   of an auto-leading run counts 1.2 times its size and any other its run's mLeading.
// - Kerning: the font's own kerning is always applied; a non-zero mKerning adds mKerning/1000 em
//   after each character, on top of tracking (mTracking/1000 em), as Pango letter spacing.
// - Baseline shift (frame px, positive up) moves the glyph's origin up by shift * 4; it does not
//   change the line's placement.
// - Point text: (0,0) is the first baseline's alignment point (left edge, centre or right edge
//   of each line, by its paragraph's alignment). Box text: (0,0) is the box's top-left corner,
//   the first baseline lies one line ascent below it, lines wrap at the box width, and only the
//   lines whose bottom fits the box height are kept. The bounds of box text include the box.
// - Records come line by line, and in each line in reading (logical) order, so that a
//   right-to-left line's records have descending x.
#include <cairo.h>
#include <fontconfig/fontconfig.h>
#include <pango/pangocairo.h>
#include <pango/pangofc-font.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstring>
#include <limits>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "engine/compose_internal.h"
#include "engine/kte.h"
#include "vetext/vxcore.h"

namespace KTE {
namespace {

using vetext::CharacterRecord;
using vetext::LayoutRecord;
using vetext::StyleParam;
using vetext::TextRun;

constexpr double kOverSampling = 4.0;
constexpr double kAutoLeading = 1.2;
constexpr double kUnit = PANGO_SCALE;  // Pango units per pixel
// Clamps that keep every Pango value inside 32 bits, whatever the document says.
constexpr double kMinFontSize = 1.0 / 64.0;  // frame px
constexpr double kMaxFontSize = 4096.0;
constexpr double kMaxSpacingUnits = double(1 << 24);
constexpr double kMaxLeading = 65536.0;  // frame px
constexpr int32_t kMaxBox = 1 << 16;     // frame px
constexpr const char* kDefaultFamily = "ArialUnicodeMS";

std::atomic<uint64_t> g_compose_count{0};

double Finite(double v, double fallback) {
  return std::isfinite(v) ? v : fallback;
}
double Clamp(double v, double lo, double hi) {
  return std::min(std::max(v, lo), hi);
}

// ---- the font map --------------------------------------------------------------------------
// Pango objects are not thread safe; one font map and context serve every call, under a mutex.
struct Composer {
  std::mutex mutex;
  PangoFontMap* map = nullptr;
  PangoContext* context = nullptr;
  int holds = 0;

  void Open() {
    if (context != nullptr) return;
    map = pango_cairo_font_map_new_for_font_type(CAIRO_FONT_TYPE_FT);
    if (map == nullptr) map = pango_cairo_font_map_new();
    context = pango_font_map_create_context(map);
    cairo_font_options_t* options = cairo_font_options_create();
    cairo_font_options_set_hint_style(options, CAIRO_HINT_STYLE_NONE);
    cairo_font_options_set_hint_metrics(options, CAIRO_HINT_METRICS_OFF);
    cairo_font_options_set_antialias(options, CAIRO_ANTIALIAS_GRAY);
    pango_cairo_context_set_font_options(context, options);
    cairo_font_options_destroy(options);
    pango_context_set_round_glyph_positions(context, FALSE);
    // A fixed language keeps fallback order and CJK glyph choice independent of the locale.
    pango_context_set_language(context, pango_language_from_string("en"));
    pango_context_set_base_dir(context, PANGO_DIRECTION_LTR);
  }
  void Close() {
    if (context != nullptr) g_object_unref(context);
    if (map != nullptr) g_object_unref(map);
    context = nullptr;
    map = nullptr;
  }
};

Composer& TheComposer() {
  // Never destroyed: compositions may run from static destructors of other objects.
  alignas(Composer) static unsigned char storage[sizeof(Composer)];  // no heap left at unload
  static Composer* composer = new (storage) Composer;
  return *composer;
}

template <typename T, void (*Free)(T*)>
struct Deleter {
  void operator()(T* p) const {
    if (p != nullptr) Free(p);
  }
};
using DescPtr = std::unique_ptr<PangoFontDescription,
                                Deleter<PangoFontDescription, pango_font_description_free>>;
using AttrListPtr = std::unique_ptr<PangoAttrList, Deleter<PangoAttrList, pango_attr_list_unref>>;
using IterPtr = std::unique_ptr<PangoLayoutIter, Deleter<PangoLayoutIter, pango_layout_iter_free>>;
struct LayoutDeleter {
  void operator()(PangoLayout* p) const { g_object_unref(p); }
};
using LayoutPtr = std::unique_ptr<PangoLayout, LayoutDeleter>;

// ---- the document as paragraphs ------------------------------------------------------------
struct Paragraph {
  std::string text;              // UTF-8, without the break
  std::vector<int32_t> run_of;   // run index of each byte of text, plus one for the end
  std::vector<int32_t> unit_of;  // the document's UTF-16 index of each byte's character
  uint32_t alignment = vetext::kAlignCenter;
};

// Splits the runs' text at CR, LF and CR LF. Unpaired surrogates become U+FFFD; U+0000 is
// dropped (Pango takes zero-terminated text). Each byte remembers the run it came from; the
// alignment of a paragraph is that of the run holding its first character (or, when empty,
// its break).
std::vector<Paragraph> SplitParagraphs(const std::vector<TextRun>& runs) {
  std::vector<char16_t> units;
  std::vector<int32_t> unit_run;
  for (size_t r = 0; r < runs.size(); ++r) {
    for (char16_t c : runs[r].mText) {
      units.push_back(c);
      unit_run.push_back(int32_t(r));
    }
  }
  std::vector<Paragraph> paras(1);
  int32_t last_run = runs.empty() ? -1 : 0;
  bool para_has_run = false;
  auto start_para_with = [&](int32_t run) {
    if (!para_has_run && run >= 0) {
      paras.back().alignment = runs[size_t(run)].mParaParam.mAlignment;
      para_has_run = true;
    }
  };
  auto end_para = [&]() {
    paras.back().run_of.push_back(last_run);
    paras.emplace_back();
    para_has_run = false;
  };
  for (size_t i = 0; i < units.size(); ++i) {
    uint32_t c = units[i];
    int32_t run = unit_run[i];
    const int32_t unit = int32_t(i);
    last_run = run;
    start_para_with(run);
    if (c == u'\r' || c == u'\n') {
      if (c == u'\r' && i + 1 < units.size() && units[i + 1] == u'\n') ++i;
      end_para();
      continue;
    }
    if (c >= 0xD800 && c <= 0xDBFF && i + 1 < units.size() && units[i + 1] >= 0xDC00 &&
        units[i + 1] <= 0xDFFF) {
      c = 0x10000 + ((c - 0xD800) << 10) + (units[i + 1] - 0xDC00);
      ++i;
    } else if (c >= 0xD800 && c <= 0xDFFF) {
      c = 0xFFFD;
    }
    if (c == 0) continue;
    char buf[8];
    int n = g_unichar_to_utf8(c, buf);
    paras.back().text.append(buf, size_t(n));
    paras.back().run_of.insert(paras.back().run_of.end(), size_t(n), run);
    paras.back().unit_of.insert(paras.back().unit_of.end(), size_t(n), unit);
  }
  // The last paragraph (possibly empty, after a final break) takes the last run's alignment.
  start_para_with(last_run);
  paras.back().run_of.push_back(last_run);
  return paras;
}

// ---- per-run values, sanitised -------------------------------------------------------------
struct RunStyle {
  double size = 0;     // oversampled px
  double leading = 0;  // oversampled px
  double shift = 0;    // frame px, as in the document
  double spacing = 0;  // Pango units
  const TextRun* run = nullptr;
};

RunStyle MakeRunStyle(const TextRun& run) {
  const StyleParam& s = run.mStyleParam;
  RunStyle st;
  st.run = &run;
  double size = Clamp(Finite(s.mFontSize, 40.0), kMinFontSize, kMaxFontSize);
  st.size = size * kOverSampling;
  st.leading = s.mAutoLeading
                   ? kAutoLeading * st.size
                   : Clamp(Finite(s.mLeading, 0.0), -kMaxLeading, kMaxLeading) * kOverSampling;
  st.shift = Clamp(Finite(s.mBaselineShift, 0.0), -kMaxLeading, kMaxLeading);
  double ems = (Finite(s.mTracking, 0.0) + Finite(s.mKerning, 0.0)) / 1000.0;
  st.spacing = Clamp(std::round(ems * st.size * kUnit), -kMaxSpacingUnits, kMaxSpacingUnits);
  return st;
}

// ---- composition ---------------------------------------------------------------------------
struct LineRun {
  PangoGlyphItem* item;
  int x;  // the run's logical left, layout units
};

struct Line {
  std::vector<LineRun> runs;
  int x = 0, width = 0;  // logical extents, layout units
  int ascent = 0, descent = 0;
  int start_index = 0;
};

class Composition {
 public:
  Composition(const vetext::DocumentRecord& doc, PangoContext* context, LayoutRecord& out,
              std::vector<int32_t>* characters = nullptr)
      : doc_(doc), context_(context), out_(out), characters_(characters) {}
  ~Composition() {
    for (auto& [font, name] : names_) g_object_unref(font);
  }

  void Run() {
    const auto& runs = doc_.mTextParam.mTextRuns;
    styles_.reserve(runs.size());
    for (const TextRun& r : runs) styles_.push_back(MakeRunStyle(r));
    box_w_ = std::clamp(doc_.mTextParam.mWidth, 0, kMaxBox);
    box_h_ = std::clamp(doc_.mTextParam.mHeight, 0, kMaxBox);
    in_box_ = doc_.mTextParam.mWidth > 0 || doc_.mTextParam.mHeight > 0;
    out_ = LayoutRecord{};
    if (characters_) characters_->clear();
    out_.mOverSampling = float(kOverSampling);
    out_.mTextInABox = in_box_;
    if (!runs.empty()) {
      for (const Paragraph& p : SplitParagraphs(runs)) {
        if (!ComposeParagraph(p)) break;
      }
    }
    FinishBounds();
  }

 private:
  const PangoFontDescription* Description(const std::u16string& name) {
    auto it = descs_.find(name);
    if (it != descs_.end()) return it->second.get();
    std::string utf8 = vxcore::UTF16ToUTF8(name);
    DescPtr d(pango_font_description_from_string(utf8.empty() ? kDefaultFamily : utf8.c_str()));
    if (pango_font_description_get_family(d.get()) == nullptr)
      pango_font_description_set_family(d.get(), kDefaultFamily);
    return descs_.emplace(name, std::move(d)).first->second.get();
  }

  // The family of the face that drew the glyph, with its style appended when it is not the
  // regular one: the face's full name for the fonts we ship ("DejaVu Sans Bold"), which both
  // Pango and a fontconfig full-name lookup bring back to the same face.
  const std::u16string& FontName(PangoFont* font) {
    auto it = names_.find(font);
    if (it != names_.end()) return it->second;
    std::string name;
    FcPattern* pattern =
        PANGO_IS_FC_FONT(font) ? pango_fc_font_get_pattern(PANGO_FC_FONT(font)) : nullptr;
    FcChar8* family = nullptr;
    FcChar8* style = nullptr;
    if (pattern != nullptr && FcPatternGetString(pattern, FC_FAMILY, 0, &family) == FcResultMatch) {
      name = reinterpret_cast<const char*>(family);
      if (FcPatternGetString(pattern, FC_STYLE, 0, &style) == FcResultMatch) {
        std::string st = reinterpret_cast<const char*>(style);
        if (st != "Regular" && st != "Book" && st != "Normal" && st != "Roman" && !st.empty())
          name += " " + st;
      }
    } else {
      DescPtr d(pango_font_describe(font));
      pango_font_description_unset_fields(
          d.get(), PangoFontMask(PANGO_FONT_MASK_SIZE | PANGO_FONT_MASK_GRAVITY |
                                 PANGO_FONT_MASK_VARIATIONS));
      char* text = pango_font_description_to_string(d.get());
      name = text;
      g_free(text);
    }
    g_object_ref(font);
    return names_.emplace(font, vxcore::UTF8ToUTF16(name)).first->second;
  }

  const RunStyle& StyleAt(const Paragraph& p, size_t byte) const {
    int32_t r = p.run_of[std::min(byte, p.run_of.size() - 1)];
    return styles_[size_t(std::max(r, 0))];
  }

  LayoutPtr MakeLayout(const Paragraph& p) {
    LayoutPtr layout(pango_layout_new(context_));
    pango_layout_set_text(layout.get(), p.text.data(), int(p.text.size()));
    AttrListPtr attrs(pango_attr_list_new());
    size_t start = 0;
    while (start < p.text.size()) {
      size_t end = start;
      while (end < p.text.size() && p.run_of[end] == p.run_of[start]) ++end;
      const RunStyle& st = StyleAt(p, start);
      DescPtr d(pango_font_description_copy(Description(st.run->mStyleParam.mFontName)));
      pango_font_description_set_absolute_size(d.get(), std::round(st.size * kUnit));
      PangoAttribute* a = pango_attr_font_desc_new(d.get());
      a->start_index = guint(start);
      a->end_index = guint(end);
      pango_attr_list_insert(attrs.get(), a);
      if (st.spacing != 0) {
        a = pango_attr_letter_spacing_new(int(st.spacing));
        a->start_index = guint(start);
        a->end_index = guint(end);
        pango_attr_list_insert(attrs.get(), a);
      }
      start = end;
    }
    // The empty paragraph and the line end take the style of the paragraph's last run.
    const RunStyle& last = StyleAt(p, p.text.size());
    DescPtr base(pango_font_description_copy(Description(last.run->mStyleParam.mFontName)));
    pango_font_description_set_absolute_size(base.get(), std::round(last.size * kUnit));
    pango_layout_set_font_description(layout.get(), base.get());
    pango_layout_set_attributes(layout.get(), attrs.get());

    uint32_t align = p.alignment;
    bool justify = align >= vetext::kAlignJustifyLastLeft && align <= vetext::kAlignJustifyAll;
    PangoAlignment pa = PANGO_ALIGN_CENTER;
    if (align == vetext::kAlignLeft || align == vetext::kAlignJustifyLastLeft ||
        align == vetext::kAlignJustifyAll)
      pa = PANGO_ALIGN_LEFT;
    else if (align == vetext::kAlignRight || align == vetext::kAlignJustifyLastRight)
      pa = PANGO_ALIGN_RIGHT;
    align_ = pa;
    if (box_w_ > 0) {
      pango_layout_set_width(layout.get(), int(box_w_ * kOverSampling * kUnit));
      pango_layout_set_wrap(layout.get(), PANGO_WRAP_WORD_CHAR);
      pango_layout_set_alignment(layout.get(), pa);
      pango_layout_set_justify(layout.get(), justify);
      pango_layout_set_justify_last_line(layout.get(), align == vetext::kAlignJustifyAll);
      // Pango mirrors left and right for a right-to-left paragraph; the document means sides.
      PangoLayoutLine* first = pango_layout_get_line_readonly(layout.get(), 0);
      if (pa != PANGO_ALIGN_CENTER && first != nullptr &&
          pango_layout_line_get_resolved_direction(first) == PANGO_DIRECTION_RTL)
        pango_layout_set_alignment(layout.get(),
                                   pa == PANGO_ALIGN_LEFT ? PANGO_ALIGN_RIGHT : PANGO_ALIGN_LEFT);
    }
    return layout;
  }

  std::vector<Line> CollectLines(PangoLayout* layout) {
    std::vector<Line> lines;
    IterPtr it(pango_layout_get_iter(layout));
    PangoLayoutLine* current = nullptr;
    do {
      PangoLayoutLine* line = pango_layout_iter_get_line_readonly(it.get());
      if (line != current) {
        current = line;
        Line l;
        PangoRectangle logical;
        pango_layout_iter_get_line_extents(it.get(), nullptr, &logical);
        int baseline = pango_layout_iter_get_baseline(it.get());
        l.x = logical.x;
        l.width = logical.width;
        l.ascent = baseline - logical.y;
        l.descent = logical.y + logical.height - baseline;
        l.start_index = line->start_index;
        lines.push_back(std::move(l));
      }
      PangoLayoutRun* run = pango_layout_iter_get_run_readonly(it.get());
      if (run != nullptr) {
        PangoRectangle logical;
        pango_layout_iter_get_run_extents(it.get(), nullptr, &logical);
        lines.back().runs.push_back({run, logical.x});
      }
    } while (pango_layout_iter_next_run(it.get()));
    return lines;
  }

  double LineLeading(const Paragraph& p, const Line& line) const {
    double leading = -std::numeric_limits<double>::infinity();
    for (const LineRun& lr : line.runs) {
      const PangoGlyphString* g = lr.item->glyphs;
      for (int i = 0; i < g->num_glyphs; ++i)
        leading = std::max(leading,
                           StyleAt(p, size_t(lr.item->item->offset + g->log_clusters[i])).leading);
    }
    if (!std::isfinite(leading)) leading = StyleAt(p, size_t(line.start_index)).leading;
    return leading;
  }

  // Lays out one paragraph below the previous ones. Returns false once a line no longer fits
  // the box: everything after it is dropped.
  bool ComposeParagraph(const Paragraph& p) {
    LayoutPtr layout = MakeLayout(p);
    std::vector<Line> lines = CollectLines(layout.get());
    const double box_bottom = box_h_ * kOverSampling * kUnit;
    for (const Line& line : lines) {
      double baseline;
      if (first_line_) {
        baseline = in_box_ ? line.ascent : 0.0;
        first_line_ = false;
      } else {
        baseline = baseline_ + LineLeading(p, line) * kUnit;
      }
      if (box_h_ > 0 && baseline + line.descent > box_bottom) return false;
      baseline_ = baseline;
      double shift_x = 0;  // layout units added to Pango's x
      if (box_w_ <= 0) {
        double anchor = align_ == PANGO_ALIGN_LEFT    ? 0.0
                        : align_ == PANGO_ALIGN_RIGHT ? -double(line.width)
                                                      : -double(line.width) / 2.0;
        shift_x = anchor - line.x;
      }
      EmitLine(p, line, baseline, shift_x);
    }
    return true;
  }

  void EmitLine(const Paragraph& p, const Line& line, double baseline, double shift_x) {
    std::vector<LineRun> runs = line.runs;
    std::stable_sort(runs.begin(), runs.end(), [](const LineRun& a, const LineRun& b) {
      return a.item->item->offset < b.item->item->offset;
    });
    std::vector<double> xs;
    for (const LineRun& lr : runs) {
      const PangoGlyphString* g = lr.item->glyphs;
      PangoFont* font = lr.item->item->analysis.font;
      xs.resize(size_t(g->num_glyphs));
      double x = lr.x + shift_x + lr.item->start_x_offset;
      for (int i = 0; i < g->num_glyphs; ++i) {
        xs[size_t(i)] = x + g->glyphs[i].geometry.x_offset;
        x += g->glyphs[i].geometry.width;
      }
      bool rtl = (lr.item->item->analysis.level & 1) != 0;
      for (int k = 0; k < g->num_glyphs; ++k) {
        int i = rtl ? g->num_glyphs - 1 - k : k;
        const PangoGlyphInfo& gi = g->glyphs[i];
        if (gi.glyph == PANGO_GLYPH_EMPTY || (gi.glyph & PANGO_GLYPH_UNKNOWN_FLAG) != 0) continue;
        PangoRectangle ink;
        pango_font_get_glyph_extents(font, gi.glyph, &ink, nullptr);
        if (ink.width <= 0 || ink.height <= 0) continue;
        const RunStyle& st = StyleAt(p, size_t(lr.item->item->offset + g->log_clusters[i]));
        const StyleParam& s = st.run->mStyleParam;
        double ox = xs[size_t(i)] / kUnit;
        double oy = (baseline - lr.item->y_offset + gi.geometry.y_offset) / kUnit -
                    st.shift * kOverSampling;
        CharacterRecord c;
        c.mGlyphID = int32_t(gi.glyph);
        c.mFontName = FontName(font);
        c.mFontSize = float(st.size);
        c.mOriginX = float(ox);
        c.mOriginY = float(oy);
        c.mLeft = float(ox + ink.x / kUnit);
        c.mTop = float(oy + ink.y / kUnit);
        c.mWidth = float(ink.width / kUnit);
        c.mHeight = float(ink.height / kUnit);
        c.mFillRed = s.mFillRed;
        c.mFillGreen = s.mFillGreen;
        c.mFillBlue = s.mFillBlue;
        c.mStrokeRed = s.mStrokeRed;
        c.mStrokeGreen = s.mStrokeGreen;
        c.mStrokeBlue = s.mStrokeBlue;
        c.mStrokeWidth = float(Finite(s.mStrokeWidth, 0.0) * kOverSampling);
        // "Fill over stroke" paints the fill last, so the fill does not come first.
        c.mFillFirst = !s.mFillOverStroke;
        c.mBaselineShift = float(st.shift);
        c.mAlignment = p.alignment;
        out_.mCharacters.push_back(std::move(c));
        if (characters_) {
          const size_t byte = size_t(lr.item->item->offset + g->log_clusters[i]);
          characters_->push_back(byte < p.unit_of.size() ? p.unit_of[byte] : -1);
        }
      }
    }
  }

  void FinishBounds() {
    bool any = false;
    double l = 0, t = 0, r = 0, b = 0;
    auto add = [&](double x0, double y0, double x1, double y1) {
      if (!any) {
        l = x0, t = y0, r = x1, b = y1;
        any = true;
        return;
      }
      l = std::min(l, x0), t = std::min(t, y0), r = std::max(r, x1), b = std::max(b, y1);
    };
    if (in_box_) add(0, 0, box_w_ * kOverSampling, box_h_ * kOverSampling);
    for (const CharacterRecord& c : out_.mCharacters)
      add(c.mLeft, c.mTop, double(c.mLeft) + c.mWidth, double(c.mTop) + c.mHeight);
    out_.mLeft = float(l);
    out_.mTop = float(t);
    out_.mRight = float(r);
    out_.mBottom = float(b);
  }

  const vetext::DocumentRecord& doc_;
  PangoContext* context_;
  LayoutRecord& out_;
  std::vector<RunStyle> styles_;
  std::map<std::u16string, DescPtr> descs_;
  std::map<PangoFont*, std::u16string> names_;
  int32_t box_w_ = 0, box_h_ = 0;
  std::vector<int32_t>* characters_;
  bool in_box_ = false;
  bool first_line_ = true;
  double baseline_ = 0;
  PangoAlignment align_ = PANGO_ALIGN_CENTER;
};

}  // namespace

void Compose(const Document& doc, vetext::LayoutRecord& out, std::vector<int32_t>* characters) {
  Composer& composer = TheComposer();
  std::lock_guard<std::mutex> lock(composer.mutex);
  composer.Open();
  g_compose_count.fetch_add(1, std::memory_order_relaxed);
  LayoutRecord result;
  Composition(doc.data, composer.context, result, characters).Run();
  out = std::move(result);
}

uint64_t ComposeCount() {
  return g_compose_count.load(std::memory_order_relaxed);
}

void RetainComposer() {
  Composer& composer = TheComposer();
  std::lock_guard<std::mutex> lock(composer.mutex);
  composer.Open();
  ++composer.holds;
}

void ReleaseComposer() {
  Composer& composer = TheComposer();
  std::lock_guard<std::mutex> lock(composer.mutex);
  if (composer.holds == 0) return;
  if (--composer.holds == 0) composer.Close();
}

bool FindFontFace(const std::u16string& font_name, std::string& file, int& face_index) {
  Composer& composer = TheComposer();
  std::lock_guard<std::mutex> lock(composer.mutex);
  composer.Open();
  std::string utf8 = vxcore::UTF16ToUTF8(font_name);
  DescPtr d(pango_font_description_from_string(utf8.empty() ? kDefaultFamily : utf8.c_str()));
  pango_font_description_set_absolute_size(d.get(), 40 * kUnit);
  PangoFont* font = pango_font_map_load_font(composer.map, composer.context, d.get());
  if (font == nullptr) return false;
  bool found = false;
  if (PANGO_IS_FC_FONT(font)) {
    FcPattern* pattern = pango_fc_font_get_pattern(PANGO_FC_FONT(font));
    FcChar8* path = nullptr;
    int index = 0;
    if (pattern != nullptr && FcPatternGetString(pattern, FC_FILE, 0, &path) == FcResultMatch) {
      if (FcPatternGetInteger(pattern, FC_INDEX, 0, &index) != FcResultMatch) index = 0;
      file = reinterpret_cast<const char*>(path);
      face_index = index;
      found = true;
    }
  }
  g_object_unref(font);
  return found;
}

}  // namespace KTE

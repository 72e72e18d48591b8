#include "render/glyph_cache.h"

#include <fontconfig/fontconfig.h>
#include <ft2build.h>
#include FT_FREETYPE_H
#include FT_GLYPH_H
#include FT_OUTLINE_H
#include FT_STROKER_H

#include <algorithm>
#include <cmath>
#include <cstring>
#include <list>
#include <mutex>
#include <unordered_map>

#include "vetext/vxcore.h"

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace vetext {
namespace {

// Largest mask side and area accepted; a glyph beyond them (a damaged size) draws nothing.
constexpr int32_t kMaxMaskSide = 16384;
constexpr int64_t kMaxMaskArea = int64_t(64) << 20;
constexpr size_t kDefaultBudget = size_t(64) << 20;

// ---- fonts ---------------------------------------------------------------------------------

struct Face {
  FT_Face face = nullptr;  // null: the name resolved to nothing usable
};

// FreeType objects are not safe to share between threads, so everything that touches the
// library or a face runs under this lock. It guards the face table too.
std::mutex& FontMutex() {
  static std::mutex m;
  return m;
}

// The library and every face opened from it. They belong to the module, so they are released
// when it unloads (the destructor runs at dlclose or exit), faces before the library.
struct Fonts {
  FT_Library library = nullptr;
  std::unordered_map<std::u16string, Face> faces;

  Fonts() {
    if (FT_Init_FreeType(&library) != 0) library = nullptr;
  }
  ~Fonts() {
    for (auto& [name, f] : faces)
      if (f.face != nullptr) FT_Done_Face(f.face);
    faces.clear();
    if (library != nullptr) FT_Done_FreeType(library);
  }
  Fonts(const Fonts&) = delete;
  Fonts& operator=(const Fonts&) = delete;
};

// Under FontMutex.
Fonts& TheFonts() {
  static Fonts fonts;
  return fonts;
}

FT_Library Library() {
  return TheFonts().library;
}

std::string FileOf(FcPattern* p, int* index) {
  FcChar8* file = nullptr;
  if (FcPatternGetString(p, FC_FILE, 0, &file) != FcResultMatch || file == nullptr) return {};
  int idx = 0;
  if (FcPatternGetInteger(p, FC_INDEX, 0, &idx) != FcResultMatch) idx = 0;
  *index = idx;
  return reinterpret_cast<const char*>(file);
}

// The layout names the face that drew a glyph by its family, with the style appended when it
// is not the regular one ("Liberation Sans Bold"). Exact full names are tried first, then the
// family through the configuration (which applies aliases), so both forms come back to the
// face the layout measured.
std::string Resolve(const std::string& name, int* index) {
  std::string found;
  const FcChar8* n = reinterpret_cast<const FcChar8*>(name.c_str());
  {
    FcPattern* pat = FcPatternCreate();
    FcPatternAddString(pat, FC_FULLNAME, n);
    FcObjectSet* os = FcObjectSetBuild(FC_FILE, FC_INDEX, nullptr);
    FcFontSet* set = FcFontList(nullptr, pat, os);
    if (set != nullptr && set->nfont > 0) found = FileOf(set->fonts[0], index);
    if (set != nullptr) FcFontSetDestroy(set);
    FcObjectSetDestroy(os);
    FcPatternDestroy(pat);
  }
  if (!found.empty()) return found;
  FcPattern* pat = name.find(':') != std::string::npos ? FcNameParse(n) : FcPatternCreate();
  if (pat == nullptr) return {};
  if (name.find(':') == std::string::npos) FcPatternAddString(pat, FC_FAMILY, n);
  FcConfigSubstitute(nullptr, pat, FcMatchPattern);
  FcDefaultSubstitute(pat);
  FcResult result = FcResultNoMatch;
  FcPattern* match = FcFontMatch(nullptr, pat, &result);
  if (match != nullptr) {
    found = FileOf(match, index);
    FcPatternDestroy(match);
  }
  FcPatternDestroy(pat);
  return found;
}

// Under FontMutex.
FT_Face FaceFor(const std::u16string& font_name) {
  auto& faces = TheFonts().faces;
  auto it = faces.find(font_name);
  if (it != faces.end()) return it->second.face;
  Face f;
  int index = 0;
  std::string file = Resolve(vxcore::UTF16ToUTF8(font_name), &index);
  if (!file.empty() && Library() != nullptr) {
    if (FT_New_Face(Library(), file.c_str(), index, &f.face) != 0) f.face = nullptr;
    if (f.face != nullptr && !FT_IS_SCALABLE(f.face)) {
      FT_Done_Face(f.face);
      f.face = nullptr;
    }
  }
  faces.emplace(font_name, f);
  return f.face;
}

// ---- rasterizing ---------------------------------------------------------------------------

FT_Pos ToPos(double px) {
  return static_cast<FT_Pos>(std::lround(px * 64.0));
}

void Render(FT_Outline* outline, int32_t xmin, int32_t ymin, int32_t w, int32_t h,
            std::vector<uint8_t>& out) {
  out.assign(size_t(w) * size_t(h), 0);
  FT_Outline_Translate(outline, -FT_Pos(xmin) * 64, -FT_Pos(ymin) * 64);
  FT_Bitmap bm;
  std::memset(&bm, 0, sizeof bm);
  bm.rows = unsigned(h);
  bm.width = unsigned(w);
  bm.pitch = w;
  bm.buffer = out.data();
  bm.num_grays = 256;
  bm.pixel_mode = FT_PIXEL_MODE_GRAY;
  FT_Outline_Get_Bitmap(Library(), outline, &bm);
}

// Under FontMutex. Null when there is nothing to draw.
std::shared_ptr<GlyphMask> MakeMask(FT_Face face, int32_t glyph_id, float font_size,
                                    float stroke_width, int phase_x, int phase_y) {
  if (face == nullptr || glyph_id < 0 || glyph_id >= face->num_glyphs) return nullptr;
  if (!(font_size > 0.0f) || font_size > float(kMaxMaskSide)) return nullptr;
  if (FT_Load_Glyph(face, FT_UInt(glyph_id),
                    FT_LOAD_NO_SCALE | FT_LOAD_NO_HINTING | FT_LOAD_NO_BITMAP |
                        FT_LOAD_IGNORE_TRANSFORM) != 0)
    return nullptr;
  if (face->glyph->format != FT_GLYPH_FORMAT_OUTLINE) return nullptr;
  FT_Glyph fill_glyph = nullptr;
  if (FT_Get_Glyph(face->glyph, &fill_glyph) != 0) return nullptr;
  FT_Outline* fill = &reinterpret_cast<FT_OutlineGlyph>(fill_glyph)->outline;

  // Font units to 26.6 pixels, then the sub-pixel phase (y up in the outline, y down in the
  // buffer, hence the minus).
  double scale = double(font_size) * 64.0 / double(face->units_per_EM ? face->units_per_EM : 1000);
  FT_Matrix m;
  m.xx = m.yy = static_cast<FT_Fixed>(std::lround(scale * 65536.0));
  m.xy = m.yx = 0;
  FT_Outline_Transform(fill, &m);
  FT_Outline_Translate(fill, FT_Pos(phase_x) * 64 / kGlyphPhases,
                       -FT_Pos(phase_y) * 64 / kGlyphPhases);

  FT_Glyph stroke_glyph = nullptr;
  if (stroke_width > 0.0f && stroke_width < float(kMaxMaskSide)) {
    FT_Stroker stroker = nullptr;
    if (FT_Stroker_New(Library(), &stroker) == 0) {
      FT_Stroker_Set(stroker, ToPos(stroke_width / 2.0), FT_STROKER_LINECAP_BUTT,
                     FT_STROKER_LINEJOIN_MITER_FIXED, FT_Fixed(4) << 16);
      FT_Glyph copy = nullptr;
      if (FT_Glyph_Copy(fill_glyph, &copy) == 0) {
        if (FT_Glyph_Stroke(&copy, stroker, 1) == 0)
          stroke_glyph = copy;
        else
          FT_Done_Glyph(copy);
      }
      FT_Stroker_Done(stroker);
    }
  }
  FT_Outline* stroke =
      stroke_glyph ? &reinterpret_cast<FT_OutlineGlyph>(stroke_glyph)->outline : nullptr;

  FT_BBox box;
  FT_Outline_Get_CBox(stroke ? stroke : fill, &box);
  std::shared_ptr<GlyphMask> mask;
  int64_t xmin = box.xMin >> 6, ymin = box.yMin >> 6;
  int64_t xmax = (box.xMax + 63) >> 6, ymax = (box.yMax + 63) >> 6;
  int64_t w = xmax - xmin, h = ymax - ymin;
  if (w > 0 && h > 0 && w <= kMaxMaskSide && h <= kMaxMaskSide && w * h <= kMaxMaskArea) {
    mask = std::make_shared<GlyphMask>();
    mask->left = int32_t(xmin);
    mask->top = -int32_t(ymax);
    mask->width = int32_t(w);
    mask->height = int32_t(h);
    Render(fill, int32_t(xmin), int32_t(ymin), int32_t(w), int32_t(h), mask->fill);
    if (stroke) Render(stroke, int32_t(xmin), int32_t(ymin), int32_t(w), int32_t(h), mask->stroke);
  }
  if (stroke_glyph) FT_Done_Glyph(stroke_glyph);
  FT_Done_Glyph(fill_glyph);
  return mask;
}

// ---- the cache -----------------------------------------------------------------------------

// Font names are interned to small numbers once, so that a lookup hashes and compares a few
// integers: a paragraph makes two lookups a glyph every frame.
uint32_t FontId(const std::u16string& name) {
  // The last name this thread asked for, pointing into the table (whose nodes never move):
  // trivially destructible, so the module can still be unloaded while threads live on.
  thread_local const std::u16string* last_name = nullptr;
  thread_local uint32_t last_id = 0;
  if (last_name != nullptr && name == *last_name) return last_id;
  static std::mutex m;
  static std::unordered_map<std::u16string, uint32_t> ids;
  std::lock_guard<std::mutex> lock(m);
  auto it = ids.emplace(name, uint32_t(ids.size())).first;
  last_name = &it->first;
  last_id = it->second;
  return last_id;
}

struct Key {
  uint32_t font;
  int32_t glyph;
  uint32_t size_bits, stroke_bits;
  uint8_t phase_x, phase_y;
  // Reduced masks only: the mask's 4x position modulo 4 and the paint order; kFull otherwise.
  uint8_t sub_x = kFull, sub_y = kFull;
  bool fill_first = false;
  static constexpr uint8_t kFull = 255;
  bool operator==(const Key&) const = default;
};
struct KeyHash {
  size_t operator()(const Key& k) const {
    uint64_t h = (uint64_t(k.font) << 32 | uint32_t(k.glyph)) * 0x9e3779b97f4a7c15ull;
    auto mix = [&h](uint64_t v) {
      h ^= v + 0x9e3779b97f4a7c15ull + (h << 6) + (h >> 2);
      h *= 0xff51afd7ed558ccdull;
    };
    mix(uint64_t(k.size_bits) << 32 | k.stroke_bits);
    mix(k.phase_x | k.phase_y << 8 | k.sub_x << 16 | uint64_t(k.sub_y) << 24 |
        uint64_t(k.fill_first) << 32);
    return size_t(h ^ (h >> 29));
  }
};

struct Entry {
  Key key;
  std::shared_ptr<const GlyphMask> mask;  // null entries remember glyphs with nothing to draw
  size_t bytes;
};

class Cache {
 public:
  std::shared_ptr<const GlyphMask> Find(const Key& key, bool* found) {
    std::lock_guard<std::mutex> lock(mutex_);
    auto it = map_.find(key);
    if (it == map_.end()) {
      ++stats_.misses;
      *found = false;
      return nullptr;
    }
    ++stats_.hits;
    lru_.splice(lru_.begin(), lru_, it->second);
    *found = true;
    return it->second->mask;
  }
  void Add(const Key& key, std::shared_ptr<const GlyphMask> mask) {
    std::lock_guard<std::mutex> lock(mutex_);
    if (map_.count(key) != 0) return;
    size_t bytes = (mask ? mask->Bytes() : 0) + sizeof(Entry) + 64;
    lru_.push_front(Entry{key, std::move(mask), bytes});
    map_.emplace(key, lru_.begin());
    stats_.bytes += bytes;
    EvictLocked();
  }
  void SetBudget(size_t bytes) {
    std::lock_guard<std::mutex> lock(mutex_);
    stats_.budget = bytes;
    EvictLocked();
  }
  void Clear() {
    std::lock_guard<std::mutex> lock(mutex_);
    map_.clear();
    lru_.clear();
    stats_.bytes = 0;
  }
  GlyphCacheStats Stats() {
    std::lock_guard<std::mutex> lock(mutex_);
    GlyphCacheStats s = stats_;
    s.entries = map_.size();
    return s;
  }

 private:
  void EvictLocked() {
    while (stats_.bytes > stats_.budget && !lru_.empty()) {
      Entry& e = lru_.back();
      stats_.bytes -= e.bytes;
      map_.erase(e.key);
      lru_.pop_back();
      ++stats_.evictions;
    }
  }
  std::mutex mutex_;
  std::list<Entry> lru_;
  std::unordered_map<Key, std::list<Entry>::iterator, KeyHash> map_;
  GlyphCacheStats stats_{0, 0, 0, 0, 0, kDefaultBudget};
};

Cache& TheCache() {
  // Released when the module unloads. A mask still held elsewhere at that point stays alive
  // through its own reference; the cache only drops its share.
  static Cache cache;
  return cache;
}

uint32_t Bits(float f) {
  uint32_t b;
  std::memcpy(&b, &f, sizeof b);
  return b;
}

}  // namespace

std::shared_ptr<const GlyphMask> GetGlyphMask(const std::u16string& font_name, int32_t glyph_id,
                                              float font_size, float stroke_width, int phase_x,
                                              int phase_y) {
  if (!(stroke_width > 0.0f)) stroke_width = 0.0f;
  phase_x = phase_x < 0 ? 0 : phase_x >= kGlyphPhases ? kGlyphPhases - 1 : phase_x;
  phase_y = phase_y < 0 ? 0 : phase_y >= kGlyphPhases ? kGlyphPhases - 1 : phase_y;
  Key key{FontId(font_name),  glyph_id,         Bits(font_size),
          Bits(stroke_width), uint8_t(phase_x), uint8_t(phase_y)};
  bool found = false;
  auto mask = TheCache().Find(key, &found);
  if (found) return mask;
  {
    std::lock_guard<std::mutex> lock(FontMutex());
    mask = MakeMask(FaceFor(font_name), glyph_id, font_size, stroke_width, phase_x, phase_y);
  }
  TheCache().Add(key, mask);
  return mask;
}

namespace {

inline uint32_t Div255(uint32_t x) {
  x += 128;
  return (x + (x >> 8)) >> 8;
}

// Adds one row of a mask to the column sums of its block row: `acc_t` gets the upper layer's
// coverage and `acc_b` (stroked masks) the weight with which the lower layer shows through,
// Div255(ba * (255 - ta)), exactly as the literal blend computes it per 4x pixel. At most four
// rows are summed, so the sums fit in 16 bits.
void AccumulateRow(const uint8_t* __restrict up, const uint8_t* __restrict low, int32_t n,
                   uint16_t* __restrict acc_t, uint16_t* __restrict acc_b) {
  int32_t x = 0;
#if defined(__SSE2__)
  const __m128i zero = _mm_setzero_si128();
  if (low == nullptr) {
    for (; x + 16 <= n; x += 16) {
      const __m128i t = _mm_loadu_si128(reinterpret_cast<const __m128i*>(up + x));
      __m128i* a = reinterpret_cast<__m128i*>(acc_t + x);
      _mm_storeu_si128(a, _mm_add_epi16(_mm_loadu_si128(a), _mm_unpacklo_epi8(t, zero)));
      _mm_storeu_si128(a + 1, _mm_add_epi16(_mm_loadu_si128(a + 1), _mm_unpackhi_epi8(t, zero)));
    }
  } else {
    const __m128i c255 = _mm_set1_epi16(255), c128 = _mm_set1_epi16(128);
    for (; x + 16 <= n; x += 16) {
      const __m128i t = _mm_loadu_si128(reinterpret_cast<const __m128i*>(up + x));
      const __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i*>(low + x));
      __m128i* at = reinterpret_cast<__m128i*>(acc_t + x);
      __m128i* ab = reinterpret_cast<__m128i*>(acc_b + x);
      for (int h = 0; h < 2; ++h) {
        const __m128i t16 = h ? _mm_unpackhi_epi8(t, zero) : _mm_unpacklo_epi8(t, zero);
        const __m128i b16 = h ? _mm_unpackhi_epi8(b, zero) : _mm_unpacklo_epi8(b, zero);
        // Div255 of a product below 2^16: (p + 128 + ((p + 128) >> 8)) >> 8.
        __m128i p = _mm_add_epi16(_mm_mullo_epi16(b16, _mm_sub_epi16(c255, t16)), c128);
        p = _mm_srli_epi16(_mm_add_epi16(p, _mm_srli_epi16(p, 8)), 8);
        _mm_storeu_si128(at + h, _mm_add_epi16(_mm_loadu_si128(at + h), t16));
        _mm_storeu_si128(ab + h, _mm_add_epi16(_mm_loadu_si128(ab + h), p));
      }
    }
  }
#endif
  for (; x < n; ++x) {
    acc_t[x] = uint16_t(acc_t[x] + up[x]);
    if (low != nullptr) acc_b[x] = uint16_t(acc_b[x] + Div255(uint32_t(low[x]) * (255u - up[x])));
  }
}

// The 4 x 4 reduction of a mask placed at (sub_x, sub_y) within its first block. Per 4x pixel
// the upper layer covers `ta` and the lower shows through with weight ba (255 - ta) / 255, as
// the literal blend paints them; the reduction is the mean of each over the block. Each block
// row is summed down its columns first (the mask's row shifted right by sub_x, so that every
// group of four columns is one block), then across.
}  // namespace

std::shared_ptr<GlyphMask> ReduceMask(const GlyphMask& m, int sub_x, int sub_y, bool fill_first) {
  auto r = std::make_shared<GlyphMask>();
  r->width = (sub_x + m.width + 3) / 4;
  r->height = (sub_y + m.height + 3) / 4;
  const bool stroked = !m.stroke.empty();
  const size_t rw = size_t(r->width);
  r->fill.assign(rw * size_t(r->height), 0);
  if (stroked) r->stroke.assign(r->fill.size(), 0);
  const std::vector<uint8_t>& upper = stroked && fill_first ? m.stroke : m.fill;
  const std::vector<uint8_t>& lower = stroked && fill_first ? m.fill : m.stroke;
  std::vector<uint16_t> acc_t(rw * 4), acc_b(stroked ? rw * 4 : 0);
  for (int32_t ry = 0; ry < r->height; ++ry) {
    std::fill(acc_t.begin(), acc_t.end(), uint16_t(0));
    std::fill(acc_b.begin(), acc_b.end(), uint16_t(0));
    const int32_t y0 = std::max(0, ry * 4 - sub_y), y1 = std::min(m.height, ry * 4 - sub_y + 4);
    for (int32_t y = y0; y < y1; ++y) {
      const size_t off = size_t(y) * size_t(m.width);
      AccumulateRow(upper.data() + off, stroked ? lower.data() + off : nullptr, m.width,
                    acc_t.data() + sub_x, stroked ? acc_b.data() + sub_x : nullptr);
    }
    uint8_t* f = r->fill.data() + size_t(ry) * rw;
    for (size_t i = 0; i < rw; ++i) {
      const uint16_t* a = acc_t.data() + 4 * i;
      f[i] = uint8_t((uint32_t(a[0]) + a[1] + a[2] + a[3] + 8) >> 4);
    }
    if (!stroked) continue;
    // The two rounded means may together exceed full coverage by one; the blend relies on
    // their sum being a coverage.
    uint8_t* st = r->stroke.data() + size_t(ry) * rw;
    for (size_t i = 0; i < rw; ++i) {
      const uint16_t* a = acc_b.data() + 4 * i;
      st[i] =
          uint8_t(std::min<uint32_t>((uint32_t(a[0]) + a[1] + a[2] + a[3] + 8) >> 4, 255u - f[i]));
    }
  }
  return r;
}

std::shared_ptr<const GlyphMask> GetReducedGlyphMask(const std::u16string& font_name,
                                                     int32_t glyph_id, float font_size,
                                                     float stroke_width, int phase_x, int phase_y,
                                                     int sub_x, int sub_y, bool fill_first) {
  if (!(stroke_width > 0.0f)) stroke_width = 0.0f;
  phase_x = std::clamp(phase_x, 0, kGlyphPhases - 1);
  phase_y = std::clamp(phase_y, 0, kGlyphPhases - 1);
  sub_x = sub_x & 3;
  sub_y = sub_y & 3;
  if (stroke_width == 0.0f) fill_first = false;  // one layer: the order does not matter
  Key key{FontId(font_name), glyph_id,       Bits(font_size), Bits(stroke_width), uint8_t(phase_x),
          uint8_t(phase_y),  uint8_t(sub_x), uint8_t(sub_y),  fill_first};
  bool found = false;
  auto reduced = TheCache().Find(key, &found);
  if (found) return reduced;
  auto full = GetGlyphMask(font_name, glyph_id, font_size, stroke_width, phase_x, phase_y);
  std::shared_ptr<const GlyphMask> made;
  if (full) made = ReduceMask(*full, sub_x, sub_y, fill_first);
  TheCache().Add(key, made);
  return made;
}

std::string ResolveFontFile(const std::u16string& font_name, int* face_index) {
  std::lock_guard<std::mutex> lock(FontMutex());
  int index = 0;
  std::string file = Resolve(vxcore::UTF16ToUTF8(font_name), &index);
  if (face_index) *face_index = index;
  return file;
}

GlyphCacheStats GetGlyphCacheStats() {
  return TheCache().Stats();
}
void SetGlyphCacheBudget(size_t bytes) {
  TheCache().SetBudget(bytes);
}
void ClearGlyphCache() {
  TheCache().Clear();
}

}  // namespace vetext

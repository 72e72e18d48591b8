// The host's per-frame shortcuts against the plain behaviour they stand for: cache buffers that
// are recycled come back zeroed and never while someone still reads them; a whole-frame copy in
// one block keeps the visual row order of bottom-up frames; the compositor's kernels skip only
// samples whose whole footprint is transparent, and its row extents, found four pixels at a
// time, are those of a pixel-by-pixel scan.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "host_helpers.h"
#include "image_renderer/motion.h"
#include "vetext/host/host.h"

using namespace vxhost;

namespace {

using vetext_test::CacheSuites;

bool AllEqual(const uint8_t* p, size_t n, uint8_t v) {
  for (size_t i = 0; i < n; ++i)
    if (p[i] != v) return false;
  return true;
}

TEST(CacheBufferReuse, RecycledBuffersAreZeroedAndLiveOnesAreNeverShared) {
  FrameCache cache;
  CacheSuites s(cache);
  constexpr uint64_t kBig = 1 << 20;
  // Buffers die and are made again at the same and at smaller sizes, many times over: every new
  // one reads as zeros and has exactly the size asked for.
  for (int round = 0; round < 6; ++round) {
    for (uint64_t size : {kBig, kBig * 3 / 4, kBig / 2 + 1, uint64_t(70000)}) {
      RPixHandle h = s.Make(size);
      ASSERT_NE(h, nullptr);
      ASSERT_EQ(s.RowBytes(h), int32_t(size));
      ASSERT_TRUE(AllEqual(s.Bytes(h), size, 0)) << "round " << round << " size " << size;
      std::memset(s.Bytes(h), 0xAB, size);
      ASSERT_EQ(s.pix->dispose(h), 0);
    }
  }
  // Two live buffers of one size are two buffers.
  RPixHandle a = s.Make(kBig, 0x11), b = s.Make(kBig, 0x22);
  ASSERT_NE(s.Bytes(a), s.Bytes(b));
  EXPECT_TRUE(AllEqual(s.Bytes(a), kBig, 0x11));
  s.pix->dispose(b);
  // A buffer that was evicted while still held keeps its bytes while new ones are made.
  ASSERT_EQ(s.cache->add("held", a), 0);
  cache.SetBudget(0);
  EXPECT_EQ(cache.Stats().entries, 0);
  for (int i = 0; i < 20; ++i) {
    RPixHandle n = s.Make(kBig, uint8_t(i));
    ASSERT_NE(s.Bytes(n), s.Bytes(a));
    s.pix->dispose(n);
  }
  EXPECT_TRUE(AllEqual(s.Bytes(a), kBig, 0x11));
  s.pix->dispose(a);
}

// A text that changes every frame adds one large entry a frame that no later frame looks up;
// such entries must not pile up in fresh memory until the budget is reached, but an entry that
// is looked up on the frame after it was made (an unchanged document) must stay, however many
// frames follow, and small entries are left to the budget alone.
TEST(CacheBufferReuse, UnaskedLargeEntriesMakeRoomAndAskedOnesStay) {
  FrameCache cache;  // a budget far above what this test adds
  CacheSuites s(cache);
  constexpr uint64_t kBig = 300 << 10;
  auto add = [&](const std::string& key, uint64_t size, uint8_t fill) {
    RPixHandle h = s.Make(size, fill);
    EXPECT_EQ(s.cache->add(key.c_str(), h), 0);
    return h;
  };
  auto has = [&](const std::string& key) {
    RPixHandle h = nullptr;
    EXPECT_EQ(s.cache->lookup(key.c_str(), &h), 0);
    if (!h) return false;
    s.pix->dispose(h);
    return true;
  };
  // Frame 0 of an unchanged document: its entry, asked for on the next frame.
  RPixHandle kept = add("static", kBig, 0x5A);
  s.pix->dispose(kept);
  ASSERT_TRUE(has("static"));
  std::vector<uint8_t*> seen;
  int reused = 0;
  for (int frame = 0; frame < 200; ++frame) {
    RPixHandle h = add("counter " + std::to_string(frame), kBig + uint64_t(frame % 7) * 64, 0);
    uint8_t* p = s.Bytes(h);
    if (std::find(seen.begin(), seen.end(), p) != seen.end()) ++reused;
    seen.push_back(p);
    s.pix->dispose(h);
    RPixHandle small = add("small " + std::to_string(frame), 1000, uint8_t(frame));
    s.pix->dispose(small);
    ASSERT_TRUE(has("static")) << "frame " << frame;
  }
  // The stream of unasked entries settled on recycled buffers, and the cache holds a bounded
  // number of them; the recent ones are still there to be found.
  EXPECT_GT(reused, 100);
  const CacheStats st = cache.Stats();
  EXPECT_LT(st.bytes, 64 * kBig);
  EXPECT_GT(st.evictions, 100u);
  EXPECT_EQ(st.adds - st.evictions, st.entries);
  EXPECT_TRUE(has("counter 199"));
  EXPECT_TRUE(has("counter 190"));
  EXPECT_FALSE(has("counter 0"));
  // Small entries are not on trial: every one is still there.
  for (int frame = 0; frame < 200; frame += 37) EXPECT_TRUE(has("small " + std::to_string(frame)));
  // The entry that was asked for kept its bytes.
  RPixHandle h = nullptr;
  ASSERT_EQ(s.cache->lookup("static", &h), 0);
  ASSERT_NE(h, nullptr);
  EXPECT_TRUE(AllEqual(s.Bytes(h), kBig, 0x5A));
  s.pix->dispose(h);
}

TEST(HostCopyLayer, WholeFramesKeepVisualRowsInEveryOrientation) {
  Host host;
  const UtilCallbacks* u = host.utils();
  for (bool src_up : {false, true})
    for (bool dst_up : {false, true}) {
      Frame src(7, 5, kPixelFormatBGRA, src_up), dst(7, 5, kPixelFormatBGRA, dst_up);
      for (int y = 0; y < 5; ++y)
        for (int x = 0; x < 28; ++x) src.row(y)[x] = uint8_t(y * 40 + x);
      dst.Fill(9, 9, 9, 9);
      ASSERT_EQ(u->copy_layer(nullptr, src.layer(), dst.layer(), nullptr, nullptr), kStatusOk);
      for (int y = 0; y < 5; ++y)
        for (int x = 0; x < 28; ++x)
          ASSERT_EQ(dst.row(y)[x], y * 40 + x) << src_up << dst_up << " at " << x << "," << y;
    }
  // A destination rectangle is not a whole frame: the rest of the frame is left alone.
  Frame src(4, 4, kPixelFormatBGRA, true), dst(4, 4, kPixelFormatBGRA, true);
  src.Fill(1, 2, 3, 4);
  dst.Fill(0, 0, 0, 0);
  VxRect rect{0, 1, 4, 3};
  ASSERT_EQ(u->copy_layer(nullptr, src.layer(), dst.layer(), &rect, &rect), kStatusOk);
  EXPECT_EQ(dst.row(0)[0], 0);
  EXPECT_EQ(dst.row(1)[0], 1);
  EXPECT_EQ(dst.row(2)[15], 4);
  EXPECT_EQ(dst.row(3)[15], 0);
}

// One opaque pixel in an otherwise transparent bordered reduction. A row of samples a quarter
// pixel right of the pixel grid and halfway between two rows touches it from exactly two sample
// positions; every other destination pixel must come out as it went in.
void CheckSinglePixel(ir::BlendRowFn blend, float opacity) {
  constexpr int32_t wp = 24, hp = 10, px = 9, py = 4;
  std::vector<uint8_t> src(size_t(wp) * hp * 4, 0);
  uint8_t* p = &src[(size_t(py) * wp + px) * 4];
  p[0] = 200, p[1] = 100, p[2] = 50, p[3] = 255;
  for (int32_t iy : {py - 1, py}) {  // the pixel in the lower, then the upper row of the footprint
    std::vector<uint8_t> d(size_t(wp) * 4);
    for (size_t i = 0; i < d.size(); ++i) d[i] = uint8_t(30 + i % 7);
    const std::vector<uint8_t> before = d;
    blend(src.data(), wp, hp, 0.25f, 1.0f, float(iy) + 0.5f, 0.0f, d.data(), wp - 2, opacity);
    for (int32_t i = 0; i < wp - 2; ++i) {
      const bool touches = i == px - 1 || i == px;
      const bool same = std::memcmp(&d[size_t(i) * 4], &before[size_t(i) * 4], 4) == 0;
      EXPECT_EQ(same, !touches) << "sample " << i << " row " << iy << " opacity " << opacity;
    }
  }
}

TEST(CompositorSkip, OnlySamplesWithATransparentFootprintAreLeftAlone) {
  for (float opacity : {1.0f, 0.6f}) {
    CheckSinglePixel(&ir::BlendRowScalar, opacity);
#if defined(__SSE2__)
    CheckSinglePixel(&ir::BlendRowSse2, opacity);
#endif
  }
}

#if defined(__SSE2__)
TEST(CompositorSkip, KernelsAgreeOnSparseSourcesAlongTurnedRows) {
  // Islands of coverage in a mostly transparent image, the shape of turned text: the SIMD kernel
  // must skip and blend exactly where the reference does.
  constexpr int32_t wp = 40, hp = 30;
  std::vector<uint8_t> src(size_t(wp) * hp * 4, 0);
  for (int32_t y = 1; y < hp - 1; ++y)
    for (int32_t x = 1; x < wp - 1; ++x) {
      if ((x / 5 + y / 4) % 3 != 0 || (x * 7 + y) % 4 == 0) continue;
      uint8_t* q = &src[(size_t(y) * wp + x) * 4];
      q[3] = uint8_t(40 + (x * 13 + y * 5) % 216);
      for (int c = 0; c < 3; ++c) q[c] = uint8_t(q[3] * ((x + y + c) % 4) / 3);
    }
  int changed = 0;
  for (float turn : {0.0f, 0.5f, -0.87f, 0.13f})
    for (float v0 : {-1.5f, 3.2f, 14.7f, 27.9f}) {
      std::vector<uint8_t> a(64 * 4), b;
      for (size_t i = 0; i < a.size(); ++i) a[i] = uint8_t(i * 31 + 7);
      b = a;
      const std::vector<uint8_t> before = a;
      ir::BlendRowScalar(src.data(), wp, hp, -2.3f, 0.71f, v0, turn, a.data(), 64, 0.8f);
      ir::BlendRowSse2(src.data(), wp, hp, -2.3f, 0.71f, v0, turn, b.data(), 64, 0.8f);
      EXPECT_EQ(a, b) << turn << " " << v0;
      changed += a != before;
    }
  EXPECT_GT(changed, 8);  // the rows do cross the islands
}
#endif

TEST(CompositorSkip, RowExtentsMatchAPixelByPixelScan) {
  // Rows of every width from 0 to 40 with zero, one or two marked pixels anywhere, including
  // the first and last pixel and pixels inside one 4-pixel group; a marked pixel has a single
  // non-zero byte, so that a test of only some channels would miss it.
  std::mt19937 rng(17);
  for (int32_t n = 0; n <= 40; ++n)
    for (int trial = 0; trial < 60; ++trial) {
      // Pixels past the end are not zero: a scan that reads beyond the row finds them.
      std::vector<uint8_t> row(size_t(n) * 4 + 16, 0);
      std::fill(row.end() - 16, row.end(), uint8_t{0xee});
      const int marks = n == 0 ? 0 : trial % 3;
      for (int k = 0; k < marks; ++k) {
        const int32_t x = trial < 6 ? (k ? n - 1 : 0) : int32_t(rng() % uint32_t(n));
        row[size_t(x) * 4 + rng() % 4] = uint8_t(1 + rng() % 255);
      }
      int32_t want_a = 0, want_b = n;
      auto zero = [&](int32_t x) {
        return !(row[x * 4] | row[x * 4 + 1] | row[x * 4 + 2] | row[x * 4 + 3]);
      };
      while (want_a < n && zero(want_a)) ++want_a;
      while (want_b > want_a && zero(want_b - 1)) --want_b;
      int32_t a = -1, b = -1;
      ir::RowExtent(row.data(), n, &a, &b);
      ASSERT_EQ(a, want_a) << "width " << n << " trial " << trial;
      ASSERT_EQ(b, want_b) << "width " << n << " trial " << trial;
    }
}

}  // namespace

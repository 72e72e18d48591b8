// The whole effect through the reference host: where the text lands under each transform
// parameter, formats, failure statuses, reference pictures, resampling quality, the raster
// cache and concurrent renders while the frame cache evicts.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <thread>

#include "document/document_json.h"
#include "host_helpers.h"
#include "image_diff.h"
#include "ink.h"
#include "vetext/host/host.h"

namespace {

using vxhost::Frame;
using vxhost::ParamValue;

struct TextSpec {
  std::u16string text;
  float size = 40;
  float fill[3] = {1, 1, 1};
  float stroke[3] = {0, 0, 0};
  float stroke_width = 0;
  uint32_t alignment = 2;  // centred
};

std::vector<uint8_t> Document(const std::vector<TextSpec>& runs) {
  vetext::DocumentRecord doc;
  for (const TextSpec& r : runs) {
    vetext::TextRun tr;
    tr.mText = r.text;
    tr.mStyleParam.mFontName = u"Liberation Sans";
    tr.mStyleParam.mFontSize = r.size;
    tr.mStyleParam.mFillRed = r.fill[0];
    tr.mStyleParam.mFillGreen = r.fill[1];
    tr.mStyleParam.mFillBlue = r.fill[2];
    tr.mStyleParam.mStrokeRed = r.stroke[0];
    tr.mStyleParam.mStrokeGreen = r.stroke[1];
    tr.mStyleParam.mStrokeBlue = r.stroke[2];
    tr.mStyleParam.mStrokeWidth = r.stroke_width;
    tr.mParaParam.mAlignment = r.alignment;
    doc.mTextParam.mTextRuns.push_back(tr);
  }
  return vetext::WriteDocumentBlock(doc);
}

using vetext_test::Ink;

// Ink: pixels that differ from the uniform background.
Ink InkOf(const Frame& f, const uint8_t bg[4], int threshold = 24) {
  return vetext_test::InkAgainst(
      f.width(), f.height(), [&](int32_t x, int32_t y) { return f.row(y) + x * 4; },
      [&](int32_t, int32_t) { return bg; }, threshold);
}

// Centroid of pixels whose channel `c` dominates (a coloured run's position).
void Centroid(const Frame& f, int c, double* cx, double* cy) {
  double sx = 0, sy = 0, n = 0;
  for (int32_t y = 0; y < f.height(); ++y)
    for (int32_t x = 0; x < f.width(); ++x) {
      const uint8_t* p = f.row(y) + x * 4;
      if (p[c] > 128 && p[(c + 1) % 3] < 64 && p[(c + 2) % 3] < 64) {
        sx += x;
        sy += y;
        ++n;
      }
    }
  *cx = n ? sx / n : -1;
  *cy = n ? sy / n : -1;
}

vetext_test::Buffer ToBuffer(const Frame& f) {
  vetext_test::Buffer b(f.width(), f.height());
  for (int32_t y = 0; y < f.height(); ++y)
    std::memcpy(&b.px[size_t(y) * f.width() * 4], f.row(y), size_t(f.width()) * 4);
  return b;
}

int MaxDifference(const Frame& a, const Frame& b) {
  int worst = 0;
  for (int32_t y = 0; y < a.height(); ++y)
    for (int32_t i = 0; i < a.width() * 4; ++i)
      worst = std::max(worst, std::abs(int(a.row(y)[i]) - int(b.row(y)[i])));
  return worst;
}

class RenderHost : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    host_ = new vxhost::Host();
    module_ = vetext_test::LoadModule(*host_, vxhost::DefaultModulePath()).release();
    ASSERT_NE(module_, nullptr);
    ASSERT_EQ(module_->Setup(), 0);
  }
  static void TearDownTestSuite() {
    delete module_;
    module_ = nullptr;
    delete host_;
    host_ = nullptr;
  }
  void SetUp() override {
    ASSERT_NE(module_, nullptr);
    inst_ = module_->CreateInstance();
    ASSERT_NE(inst_, nullptr);
  }
  void SetDoc(const std::vector<TextSpec>& runs) { SetBytes(Document(runs)); }
  void SetBytes(std::vector<uint8_t> bytes) {
    ParamValue v;
    v.bytes = std::move(bytes);
    inst_->SetValue(1, v);
  }
  void Set(int32_t index, double x, double y = 0) {
    ParamValue v;
    v.x = x;
    v.y = y;
    v.flag = x != 0;
    inst_->SetValue(index, v);
  }
  Frame Render(int32_t w = 640, int32_t h = 360, uint32_t format = kPixelFormatBGRA,
               VxStatus* status = nullptr) {
    Frame in(w, h, format), out(w, h, format);
    in.Fill(bg_[0], bg_[1], bg_[2], bg_[3]);
    out.Fill(1, 2, 3, 4);
    VxStatus s = inst_->Render(0, in, out);
    if (status)
      *status = s;
    else
      EXPECT_EQ(s, 0);
    return out;
  }
  Ink RenderInk() { return InkOf(Render(), bg_); }

  static vxhost::Host* host_;
  static vxhost::Module* module_;
  std::unique_ptr<vxhost::Instance> inst_;
  uint8_t bg_[4] = {0, 0, 0, 255};
};
vxhost::Host* RenderHost::host_ = nullptr;
vxhost::Module* RenderHost::module_ = nullptr;

TEST_F(RenderHost, DefaultsCentreTheTextAndPositionMovesItsAlignmentPoint) {
  SetDoc({{u"Centred text"}});
  Ink ink = RenderInk();
  ASSERT_GT(ink.count, 500);
  EXPECT_NEAR(ink.cx(), 320, 2.0);
  EXPECT_NEAR(ink.cy(), 180, 2.0);
  EXPECT_GT(ink.width(), 150);
  Set(3, 200, 100);
  Set(9, 200, 100);  // the anchor follows so scale and rotation would act about the text
  Ink moved = RenderInk();
  EXPECT_NEAR(moved.cx(), 200, 2.0);
  EXPECT_NEAR(moved.cy(), 100, 2.0);
  EXPECT_EQ(moved.width(), ink.width());
  // Left-aligned point text hangs to the right of its alignment point.
  SetDoc({{u"Left", 40, {1, 1, 1}, {0, 0, 0}, 0, 0}});
  Ink left = RenderInk();
  EXPECT_NEAR(left.left, 200, 4.0);
  EXPECT_NEAR(left.cy(), 100, 2.0);
}

TEST_F(RenderHost, ScaleKeepsTheAlignmentPointRotationTurnsAboutTheAnchor) {
  SetDoc({{u"Scaled"}});
  Ink base = RenderInk();
  Set(4, 200);
  Ink twice = RenderInk();
  EXPECT_NEAR(twice.width(), 2 * base.width(), 3);
  EXPECT_NEAR(twice.height(), 2 * base.height(), 3);
  EXPECT_NEAR(twice.cx(), 320, 2.0);
  Set(5, 50);  // uniform scale is on: no effect
  Ink still = RenderInk();
  EXPECT_EQ(still.width(), twice.width());
  Set(6, 0);  // now the sliders are vertical 200 % and horizontal 50 %
  Ink squeezed = RenderInk();
  EXPECT_NEAR(squeezed.width(), base.width() / 2.0, 3);
  EXPECT_NEAR(squeezed.height(), 2 * base.height(), 3);
  // The renderer maps the anchor's buffer point for the current scale onto the anchor, so the
  // alignment point stays on Position whatever the scale and the anchor ...
  Set(6, 1);
  Set(4, 50);
  Set(9, 0, 0);
  Ink corner = RenderInk();
  EXPECT_NEAR(corner.cx(), 320, 2.0);
  EXPECT_NEAR(corner.cy(), 180, 2.0);
  EXPECT_NEAR(corner.width(), base.width() / 2.0, 3);
  // ... while rotation turns the text about the anchor: Position 100 px left of the anchor,
  // turned 90 degrees clockwise, ends up 100 px above it.
  Set(9, 420, 180);
  Set(7, 90);
  Ink turned = RenderInk();
  EXPECT_NEAR(turned.cx(), 420, 2.0);
  EXPECT_NEAR(turned.cy(), 80, 2.0);
  EXPECT_GT(turned.height(), turned.width());
}

TEST_F(RenderHost, PositiveRotationTurnsClockwiseOnScreen) {
  // Red run first, blue run second: the text's start is red.
  SetDoc({{u"HHH", 40, {1, 0, 0}}, {u"HHH", 40, {0, 0, 1}}});
  Frame upright = Render();
  double rx, ry, bx, by;
  Centroid(upright, 2, &rx, &ry);  // red is byte 2 in B,G,R,A
  Centroid(upright, 0, &bx, &by);
  ASSERT_LT(rx, bx - 40);
  Set(7, 90);
  Frame cw = Render();
  Centroid(cw, 2, &rx, &ry);
  Centroid(cw, 0, &bx, &by);
  EXPECT_LT(ry, by - 40);  // the start turned from left to top: clockwise
  EXPECT_NEAR(rx, bx, 4);
  Ink ink = InkOf(cw, bg_);
  EXPECT_GT(ink.height(), ink.width());
  EXPECT_NEAR(ink.cx(), 320, 3.0);
  EXPECT_NEAR(ink.cy(), 180, 3.0);
  Set(7, -90);
  Frame ccw = Render();
  Centroid(ccw, 2, &rx, &ry);
  Centroid(ccw, 0, &bx, &by);
  EXPECT_GT(ry, by + 40);
}

TEST_F(RenderHost, OpacityBlendsOverTheInput) {
  bg_[0] = bg_[1] = bg_[2] = 0;
  SetDoc({{u"I", 160}});
  Frame full = Render();
  Set(8, 50);
  Frame half = Render();
  int counted = 0;
  for (int32_t y = 0; y < 360; ++y)
    for (int32_t x = 0; x < 640; ++x)
      if (full.row(y)[x * 4 + 1] == 255) {
        ++counted;
        EXPECT_NEAR(half.row(y)[x * 4 + 1], 128, 2);
      }
  EXPECT_GT(counted, 500);
  Set(8, 0);
  Frame none = Render();
  EXPECT_EQ(InkOf(none, bg_, 0).count, 0);
}

TEST_F(RenderHost, UnsupportedFormatAndEmptyDocument) {
  SetDoc({{u"Text"}});
  Frame in(64, 32, kPixelFormatBGRA16), out(64, 32, kPixelFormatBGRA16);
  in.Fill(9, 9, 9, 9);
  out.Fill(1, 2, 3, 4);
  Frame before = out;
  EXPECT_EQ(inst_->Render(0, in, out), kStatusUnsupportedPixelFormat);
  for (int32_t y = 0; y < 32; ++y) ASSERT_EQ(0, std::memcmp(out.row(y), before.row(y), 64 * 8));
  SetBytes({});
  VxStatus s = 0;
  Frame empty = Render(64, 32, kPixelFormatBGRA, &s);
  EXPECT_EQ(s, kStatusStructDamaged);
  for (int32_t y = 0; y < 32; ++y)
    for (int32_t x = 0; x < 64; ++x) ASSERT_EQ(0, std::memcmp(empty.row(y) + x * 4, bg_, 4));
  // Only spaces: nothing to draw, status 0, the input shows.
  SetDoc({{u"   "}});
  Frame spaces = Render(64, 32, kPixelFormatBGRA, &s);
  EXPECT_EQ(s, 0);
  EXPECT_EQ(InkOf(spaces, bg_, 0).count, 0);
}

TEST_F(RenderHost, VuyaAndBgraAgreeAfterConversion) {
  SetDoc({{u"Colour", 48, {1.0f, 0.6f, 0.1f}, {0.1f, 0.2f, 0.9f}, 3}});
  Set(7, 20);
  bg_[0] = 40;  // B
  bg_[1] = 90;  // G
  bg_[2] = 30;  // R
  Frame rgb = Render();
  VxYUV yuv = ColorRGBtoYUV(30 | 90 << 8 | 40 << 16);
  bg_[0] = uint8_t(yuv.v + 128);
  bg_[1] = uint8_t(yuv.u + 128);
  bg_[2] = yuv.y;
  Frame vuya = Render(640, 360, kPixelFormatVUYA);
  // BT.709 full range back to R, G, B.
  int max_diff = 0;
  double sum = 0;
  for (int32_t y = 0; y < 360; ++y)
    for (int32_t x = 0; x < 640; ++x) {
      const uint8_t* p = vuya.row(y) + x * 4;
      double Y = p[2], U = p[1] - 128.0, V = p[0] - 128.0;
      double r = Y + 1.5748 * V, g = Y - 0.1873 * U - 0.4681 * V, b = Y + 1.8556 * U;
      const uint8_t* q = rgb.row(y) + x * 4;
      double c[3] = {b, g, r};
      for (int k = 0; k < 3; ++k) {
        int d = std::abs(int(std::lround(std::clamp(c[k], 0.0, 255.0))) - int(q[k]));
        max_diff = std::max(max_diff, d);
        sum += d;
      }
    }
  EXPECT_LE(max_diff, 8);
  EXPECT_LT(sum / (640.0 * 360 * 3), 0.5);
  EXPECT_GT(InkOf(rgb, std::array<uint8_t, 4>{40, 90, 30, 255}.data()).count, 1000);
}

TEST_F(RenderHost, MatchesTheReviewedReferencePicture) {
  bg_[0] = 60;
  bg_[1] = 40;
  bg_[2] = 20;
  SetDoc({{u"Vetext ", 60, {1, 0.85f, 0.2f}, {0.9f, 0.1f, 0.1f}, 6},
          {u"Wgij", 60, {0.3f, 0.8f, 1}, {1, 1, 1}, 4}});
  Set(7, 12);
  Frame out = Render(480, 200);
  vetext_test::Buffer got = ToBuffer(out);
  std::string path = std::string(VETEXT_SOURCE_DIR) + "/tests/render/data/title.png";
  std::string error;
  if (std::getenv("VETEXT_WRITE_REFERENCES") != nullptr) {
    ASSERT_TRUE(vetext_test::WritePng(path, got, &error)) << error;
  }
  vetext_test::Buffer want(0, 0);
  ASSERT_TRUE(vetext_test::ReadPng(path, &want, &error)) << error;
  vetext_test::DiffStats d = vetext_test::Diff(got, want, 3);
  // The reduction is assembled from reduced glyphs: where the edges of two glyphs of different
  // colours cross inside one 4 x 4 block, the product of their mean coverages stands in for
  // the mean of the product, which may differ there by up to a quarter of the colours'
  // contrast. Everywhere else the picture is the reviewed one within rounding.
  EXPECT_LE(d.max_abs, 32);
  EXPECT_GT(d.psnr, 60.0);
}

// The text drawn at 4x (the normal path) against the same text laid out 4x larger and shown at
// a quarter of the scale (a 16x raster reduced by area in the compositor): upright and turned.
TEST_F(RenderHost, QualityAgainstASixteenTimesReference) {
  bg_[0] = bg_[1] = bg_[2] = 0;
  for (double angle : {0.0, 30.0}) {
    Set(7, angle);
    Set(4, 100);
    SetDoc({{u"Quality Wg", 36, {1, 1, 1}, {0.2f, 0.4f, 1}, 2}});
    vetext_test::Buffer normal = ToBuffer(Render());
    Set(4, 25);
    SetDoc({{u"Quality Wg", 144, {1, 1, 1}, {0.2f, 0.4f, 1}, 8}});
    vetext_test::Buffer reference = ToBuffer(Render());
    double psnr = vetext_test::Diff(normal, reference, 3).psnr;
    EXPECT_GT(psnr, 30.0) << "angle " << angle;
  }
}

TEST_F(RenderHost, AnUnchangedDocumentIsRasterizedOnce) {
  SetDoc({{u"Cached title", 50, {1, 1, 1}, {0, 0, 0}, 3}});
  Frame first = Render();
  vxhost::CacheStats s1 = host_->cache().Stats();
  Frame second = Render();
  vxhost::CacheStats s2 = host_->cache().Stats();
  EXPECT_EQ(s2.adds, s1.adds);  // nothing composed or rasterized again
  EXPECT_GT(s2.hits, s1.hits);
  for (int32_t y = 0; y < 360; ++y) ASSERT_EQ(0, std::memcmp(first.row(y), second.row(y), 640 * 4));
  // After eviction everything is made again, identically.
  host_->cache().Clear();
  Frame third = Render();
  EXPECT_GT(host_->cache().Stats().adds, s2.adds);
  for (int32_t y = 0; y < 360; ++y) ASSERT_EQ(0, std::memcmp(first.row(y), third.row(y), 640 * 4));
}

TEST_F(RenderHost, ATurnedTextThatStaysIsResampledOnceThenBlended) {
  SetDoc({{u"Turned title", 50, {1, 1, 1}, {0, 0, 0}, 3}});
  Set(7, 30);
  auto adds = [] { return host_->cache().Stats().adds; };
  const uint64_t a0 = adds();
  Frame first = Render();  // composited directly; the placement is marked
  const uint64_t a1 = adds();
  Frame second = Render();  // the placed layer is made
  const uint64_t a2 = adds();
  Frame third = Render();  // and blended
  EXPECT_GT(a1, a0);
  EXPECT_EQ(a2, a1 + 1);
  EXPECT_EQ(adds(), a2);
  EXPECT_EQ(MaxDifference(second, third), 0);
  EXPECT_LE(MaxDifference(first, third), 1);
  EXPECT_GT(InkOf(third, bg_).count, 1000);
  // Fading reuses the layer; turning further starts over with a mark.
  Set(8, 50);
  Frame faded = Render();
  EXPECT_EQ(adds(), a2);
  EXPECT_GT(InkOf(faded, bg_).count, 500);
  Set(7, 31);
  Render();
  EXPECT_EQ(adds(), a2 + 1);
}

TEST_F(RenderHost, FourThreadsRenderWhileTheCacheEvicts) {
  std::vector<std::unique_ptr<vxhost::Instance>> insts;
  std::vector<Frame> expected;
  const char16_t* texts[4] = {u"first thread", u"second thread", u"third one", u"fourth"};
  for (int i = 0; i < 4; ++i) {
    insts.push_back(module_->CreateInstance());
    ParamValue v;
    v.bytes = Document({{texts[i], 30.0f + 6 * i, {1, 1, 1}, {0, 0, 0}, float(i)}});
    insts.back()->SetValue(1, v);
    ParamValue rot;
    rot.x = 10.0 * i;
    insts.back()->SetValue(7, rot);
    Frame in(320, 180), out(320, 180);
    in.Fill(0, 0, 0, 255);
    ASSERT_EQ(insts.back()->Render(0, in, out), 0);
    expected.push_back(out);
  }
  host_->cache().SetBudget(8 << 10);  // smaller than two entries: constant eviction
  uint64_t evictions = host_->cache().Stats().evictions;
  std::atomic<int> bad{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t)
    threads.emplace_back([&, t] {
      Frame in(320, 180), out(320, 180);
      in.Fill(0, 0, 0, 255);
      for (int round = 0; round < 12; ++round) {
        int i = (t + round) % 4;
        if (insts[i]->Render(0, in, out) != 0) ++bad;
        // A turned text may come from its placed layer, which is within one unit of the
        // direct composite that made the expected frame.
        if (MaxDifference(out, expected[i]) > 1) ++bad;
      }
    });
  for (auto& th : threads) th.join();
  EXPECT_EQ(bad.load(), 0);
  EXPECT_GT(host_->cache().Stats().evictions, evictions);
  host_->cache().SetBudget(512ull << 20);
}

}  // namespace

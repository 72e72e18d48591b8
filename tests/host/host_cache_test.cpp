// The frame cache: LRU eviction under a byte budget, references that outlive eviction, recycled
// buffers, counters, and many threads at once.
#include <algorithm>
#include <atomic>
#include <random>
#include <thread>

#include "host_test_util.h"

using namespace vxhost;
using namespace vxhost_test;

namespace {

using Suites = vetext_test::CacheSuites;

bool AllEqual(const uint8_t* p, size_t n, uint8_t v) {
  return std::all_of(p, p + n, [v](uint8_t b) { return b == v; });
}

TEST(FrameCache, EvictsLeastRecentlyUsedBeyondTheBudget) {
  FrameCache fc(250), other;
  Suites s(fc);
  s.Put("a", 100, 1);
  s.Put("b", 100, 2);
  EXPECT_TRUE(s.Has("a"));  // a is now more recent than b
  s.Put("c", 100, 3);       // 300 bytes > 250: b goes
  EXPECT_FALSE(s.Has("b"));
  EXPECT_TRUE(s.Has("a"));
  EXPECT_TRUE(s.Has("c"));
  const CacheStats st = fc.Stats();
  EXPECT_EQ(
      (std::vector<uint64_t>{st.hits, st.misses, st.adds, st.evictions, st.bytes, st.entries}),
      (std::vector<uint64_t>{3, 1, 3, 1, 200, 2}));
  EXPECT_FALSE(Suites(other).Has("a"));  // each cache has its own suite table

  // A buffer larger than the whole budget is still kept while it is the newest.
  s.Put("huge", 1000, 4);
  EXPECT_TRUE(s.Has("huge"));
  EXPECT_EQ(fc.Stats().entries, 1u);
  fc.SetBudget(0);
  EXPECT_EQ(fc.Stats().entries, 0u);
  EXPECT_EQ(fc.Stats().bytes, 0u);
}

TEST(FrameCache, ReferenceOutlivesEvictionAndRecycledBuffersComeBackZeroed) {
  FrameCache fc;
  Suites s(fc);
  constexpr uint64_t kBig = 1 << 20;
  s.Put("k", kBig, 0xAB);
  s.Put("k", kBig, 0xCD);  // already present: the earlier buffer stays, this one is recycled
  EXPECT_EQ(fc.Stats().adds, 1u);
  RPixHandle held = nullptr;
  ASSERT_EQ(s.cache->lookup("k", &held), 0);
  fc.Clear();
  EXPECT_FALSE(s.Has("k"));
  // Buffers made and dropped while the evicted one is held, at its size and at just over half
  // of it: each is a buffer of its own, of exactly the size asked for, and reads as zeros.
  for (int i = 0; i < 24; ++i) {
    const uint64_t size = i % 2 ? kBig : kBig / 2 + 1;
    RPixHandle h = s.Make(size);
    ASSERT_NE(s.Bytes(h), s.Bytes(held));
    ASSERT_EQ(s.RowBytes(h), int32_t(size));
    ASSERT_TRUE(AllEqual(s.Bytes(h), size, 0)) << i;
    std::memset(s.Bytes(h), 0x11, size);
    s.pix->dispose(h);
  }
  EXPECT_TRUE(AllEqual(s.Bytes(held), kBig, 0xAB));
  uint32_t format = 0;
  EXPECT_EQ(s.pix->get_pixel_format(held, &format), 0);
  EXPECT_EQ(format, kPixelFormatRaw);
  EXPECT_EQ(s.pix->dispose(held), 0);
}

TEST(FrameCache, RefusesBadSizesAndGivesPixelBuffersTheirRows) {
  FrameCache fc;
  Suites s(fc);
  RPixHandle h = reinterpret_cast<RPixHandle>(1);
  EXPECT_LT(s.creator->create(&h, kRPixKindRaw, kPixelFormatRaw, 0, 1, 1, 1, 8), 0);
  EXPECT_EQ(h, nullptr);
  EXPECT_LT(s.creator->create(&h, kRPixKindRaw, kPixelFormatRaw, 1, 1, 1, 1, uint64_t(1) << 40), 0);
  EXPECT_LT(s.creator->create(&h, 0, kPixelFormatBGRA, 1 << 30, 4, 1, 1, 0), 0);
  // A pixel buffer: rows of width * 4 bytes.
  ASSERT_EQ(s.creator->create(&h, 0, kPixelFormatBGRA, 10, 3, 1, 1, 0), 0);
  EXPECT_EQ(s.RowBytes(h), 40);
  VxRect b{};
  EXPECT_EQ(s.pix->get_bounds(h, &b), 0);
  EXPECT_EQ(std::tuple(b.left, b.top, b.right, b.bottom), std::tuple(0, 0, 10, 3));
  EXPECT_EQ(s.pix->dispose(h), 0);
  EXPECT_EQ(fc.Stats().adds, 0u);
}

// A text that changes every frame adds one large entry a frame that no later frame looks up;
// such entries must not pile up in fresh memory until the budget is reached, but an entry that
// is looked up on the frame after it was made (an unchanged document) must stay, however many
// frames follow, and small entries are left to the budget alone.
TEST(FrameCache, UnaskedLargeEntriesMakeRoomAndAskedOnesStay) {
  FrameCache cache;  // a budget far above what this test adds
  Suites s(cache);
  constexpr uint64_t kBig = 300 << 10;
  s.Put("static", kBig, 0x5A);  // frame 0 of an unchanged document, asked for on the next
  ASSERT_TRUE(s.Has("static"));
  std::vector<uint8_t*> seen;
  int reused = 0;
  for (int frame = 0; frame < 200; ++frame) {
    RPixHandle h = s.Make(kBig + uint64_t(frame % 7) * 64);
    EXPECT_EQ(s.cache->add(("counter " + std::to_string(frame)).c_str(), h), 0);
    reused += std::find(seen.begin(), seen.end(), s.Bytes(h)) != seen.end();
    seen.push_back(s.Bytes(h));
    s.pix->dispose(h);
    s.Put("small " + std::to_string(frame), 1000, uint8_t(frame));
    ASSERT_TRUE(s.Has("static")) << "frame " << frame;
  }
  // The stream of unasked entries settled on recycled buffers, and the cache holds a bounded
  // number of them; the recent ones are still there to be found.
  EXPECT_GT(reused, 100);
  const CacheStats st = cache.Stats();
  EXPECT_LT(st.bytes, 64 * kBig);
  EXPECT_EQ(st.adds - st.evictions, st.entries);
  EXPECT_TRUE(s.Has("counter 199"));
  EXPECT_TRUE(s.Has("counter 190"));
  EXPECT_FALSE(s.Has("counter 0"));
  // Small entries are not on trial: every one is still there.
  for (int frame = 0; frame < 200; frame += 37)
    EXPECT_TRUE(s.Has("small " + std::to_string(frame)));
  // The entry that was asked for kept its bytes.
  RPixHandle h = nullptr;
  ASSERT_EQ(s.cache->lookup("static", &h), 0);
  ASSERT_NE(h, nullptr);
  EXPECT_TRUE(AllEqual(s.Bytes(h), kBig, 0x5A));
  s.pix->dispose(h);
}

TEST(FrameCache, EightThreadsLookUpAddAndDisposeConcurrently) {
  // A budget of about 20 of the 64 keys keeps eviction busy.
  constexpr uint64_t kSize = 256;
  FrameCache fc(20 * kSize);
  Suites s(fc);
  std::atomic<int64_t> wrong{0}, failures{0}, hits{0};
  auto worker = [&](unsigned seed) {
    std::mt19937 rng(seed);
    for (int i = 0; i < 4000; ++i) {
      const int k = int(rng() % 64);
      const std::string key = "key-" + std::to_string(k);
      RPixHandle h = nullptr;
      void* p = nullptr;
      if (s.cache->lookup(key.c_str(), &h) != 0) failures++;
      if (h) {
        hits++;
      } else if (s.creator->create(&h, kRPixKindRaw, kPixelFormatRaw, 1, 1, 1, 1, kSize) != 0 ||
                 s.pix->get_pixels(h, kRPixAccessWrite, &p) != 0) {
        failures++;
        continue;
      } else {
        std::memset(p, k, kSize);
        if (s.cache->add(key.c_str(), h) != 0) failures++;  // h stays ours for the read below
      }
      if (s.pix->get_pixels(h, kRPixAccessRead, &p) != 0) failures++;
      for (uint64_t j = 0; j < kSize; j += 17)
        if (static_cast<const uint8_t*>(p)[j] != k) wrong++;
      if (s.pix->dispose(h) != 0) failures++;
    }
  };
  std::vector<std::thread> threads;
  for (unsigned t = 0; t < 8; ++t) threads.emplace_back(worker, t + 1);
  for (auto& t : threads) t.join();
  EXPECT_EQ(wrong.load(), 0);
  EXPECT_EQ(failures.load(), 0);
  CacheStats st = fc.Stats();
  EXPECT_EQ(st.hits, uint64_t(hits.load()));
  EXPECT_EQ(st.hits + st.misses, 8u * 4000u);
  EXPECT_LE(st.bytes, 20 * kSize);
  EXPECT_EQ(st.bytes, st.entries * kSize);
  EXPECT_EQ(st.adds - st.evictions, st.entries);
  EXPECT_GT(st.evictions, 0u);
}

using HostThreads = StandInInstance;

TEST_F(HostThreads, ConcurrentRendersShareOneInstance) {
  host_.cache().SetBudget(6);  // room for one of the two documents: they evict each other
  Keys(kScale, {{0, {10}}, {100, {110}}});
  Keys(kDoc, {{0, Doc("early")}, {50, Doc("late")}});
  const int64_t live = host_.stats().live_handles.load();
  std::atomic<int> bad{0};
  auto worker = [&](int t) {
    Frame in(32, 8), out(32, 8);
    for (int i = 0; i < 200; ++i) {
      const int sec = (t * 13 + i) % 100;
      if (inst_->Render(sec, in, out) != kStatusOk) bad++;
      if (out.row(0)[0] != 10 + sec) bad++;
      if (out.row(0)[3] != (sec < 50 ? 'e' : 'l')) bad++;
    }
  };
  std::vector<std::thread> threads;
  for (int t = 0; t < 8; ++t) threads.emplace_back(worker, t);
  for (auto& t : threads) t.join();
  EXPECT_EQ(bad.load(), 0);
  EXPECT_EQ(host_.stats().live_handles.load(), live);
}

}  // namespace

// The frame cache: LRU eviction under a byte budget, references that outlive eviction, counters,
// and many threads at once.
#include <atomic>
#include <cstring>
#include <random>
#include <thread>

#include "host_test_util.h"

using namespace vxhost;
using namespace vxhost_test;

using Suites = vetext_test::CacheSuites;

TEST(FrameCache, EvictsLeastRecentlyUsedBeyondTheBudget) {
  FrameCache fc(250);
  Suites s(fc);
  s.Put("a", 100, 1);
  s.Put("b", 100, 2);
  EXPECT_TRUE(s.Has("a"));  // a is now more recent than b
  s.Put("c", 100, 3);       // 300 bytes > 250: b goes
  CacheStats st = fc.Stats();
  EXPECT_EQ(st.adds, 3u);
  EXPECT_EQ(st.evictions, 1u);
  EXPECT_EQ(st.entries, 2u);
  EXPECT_EQ(st.bytes, 200u);
  EXPECT_FALSE(s.Has("b"));
  EXPECT_TRUE(s.Has("a"));
  EXPECT_TRUE(s.Has("c"));
  st = fc.Stats();
  EXPECT_EQ(st.hits, 3u);
  EXPECT_EQ(st.misses, 1u);

  // A buffer larger than the whole budget is still kept while it is the newest.
  s.Put("huge", 1000, 4);
  EXPECT_TRUE(s.Has("huge"));
  EXPECT_EQ(fc.Stats().entries, 1u);
  fc.SetBudget(0);
  EXPECT_EQ(fc.Stats().entries, 0u);
  EXPECT_EQ(fc.Stats().bytes, 0u);
}

TEST(FrameCache, ReferenceOutlivesEvictionAndFirstAddWins) {
  FrameCache fc(1000);
  Suites s(fc);
  s.Put("k", 64, 0xAB);
  s.Put("k", 64, 0xCD);  // already present: the earlier buffer stays
  EXPECT_EQ(fc.Stats().adds, 1u);
  RPixHandle held = nullptr;
  ASSERT_EQ(s.cache->lookup("k", &held), 0);
  ASSERT_NE(held, nullptr);
  fc.Clear();
  EXPECT_FALSE(s.Has("k"));
  void* p = nullptr;
  ASSERT_EQ(s.pix->get_pixels(held, kRPixAccessRead, &p), 0);
  const auto* bytes = static_cast<const uint8_t*>(p);
  for (int i = 0; i < 64; ++i) ASSERT_EQ(bytes[i], 0xAB) << i;
  uint32_t format = 0;
  EXPECT_EQ(s.pix->get_pixel_format(held, &format), 0);
  EXPECT_EQ(format, kPixelFormatRaw);
  EXPECT_EQ(s.pix->dispose(held), 0);
}

TEST(FrameCache, RejectsBadRequests) {
  FrameCache fc;
  Suites s(fc);
  RPixHandle h = reinterpret_cast<RPixHandle>(1);
  EXPECT_LT(s.creator->create(&h, kRPixKindRaw, kPixelFormatRaw, 0, 1, 1, 1, 8), 0);
  EXPECT_EQ(h, nullptr);
  EXPECT_LT(s.creator->create(&h, kRPixKindRaw, kPixelFormatRaw, 1, 1, 1, 1, uint64_t(1) << 40), 0);
  EXPECT_LT(s.creator->create(&h, 0, kPixelFormatBGRA, 1 << 30, 4, 1, 1, 0), 0);
  EXPECT_LT(s.creator->create(nullptr, kRPixKindRaw, kPixelFormatRaw, 1, 1, 1, 1, 8), 0);
  // A pixel buffer: rows of width * 4 bytes.
  ASSERT_EQ(s.creator->create(&h, 0, kPixelFormatBGRA, 10, 3, 1, 1, 0), 0);
  int32_t row_bytes = 0;
  VxRect bounds{};
  EXPECT_EQ(s.pix->get_row_bytes(h, &row_bytes), 0);
  EXPECT_EQ(row_bytes, 40);
  EXPECT_EQ(s.pix->get_bounds(h, &bounds), 0);
  EXPECT_EQ(bounds.right, 10);
  EXPECT_EQ(bounds.bottom, 3);
  EXPECT_LT(s.cache->add(nullptr, h), 0);
  EXPECT_LT(s.cache->add("x", nullptr), 0);
  RPixHandle found = h;
  EXPECT_LT(s.cache->lookup(nullptr, &found), 0);
  EXPECT_EQ(found, nullptr);
  EXPECT_LT(s.pix->dispose(nullptr), 0);
  EXPECT_EQ(s.pix->dispose(h), 0);
  EXPECT_EQ(fc.Stats().adds, 0u);
}

TEST(FrameCache, EachCacheHasItsOwnSuiteTable) {
  FrameCache one, two;
  Suites a(one), b(two);
  EXPECT_NE(a.cache, b.cache);
  a.Put("only-in-one", 8, 1);
  EXPECT_TRUE(a.Has("only-in-one"));
  EXPECT_FALSE(b.Has("only-in-one"));
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
      if (s.cache->lookup(key.c_str(), &h) != 0) failures++;
      if (!h) {
        RPixHandle made = nullptr;
        if (s.creator->create(&made, kRPixKindRaw, kPixelFormatRaw, 1, 1, 1, 1, kSize) != 0) {
          failures++;
          continue;
        }
        void* p = nullptr;
        s.pix->get_pixels(made, kRPixAccessWrite, &p);
        std::memset(p, k, kSize);
        if (s.cache->add(key.c_str(), made) != 0) failures++;
        h = made;  // keep the creation reference for the read below
      } else {
        hits++;
      }
      void* p = nullptr;
      if (s.pix->get_pixels(h, kRPixAccessRead, &p) != 0) failures++;
      const auto* bytes = static_cast<const uint8_t*>(p);
      for (uint64_t j = 0; j < kSize; j += 17)
        if (bytes[j] != k) wrong++;
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

TEST(FrameCache, ConcurrentRendersShareOneInstance) {
  Host host(6);  // room for one of the two documents: they evict each other
  auto module = LoadTestModule(host);
  ASSERT_EQ(module->Setup(), kStatusOk);
  auto inst = module->CreateInstance();
  ASSERT_NE(inst, nullptr);
  ASSERT_EQ(inst->SetValue(kScale, {10}, 0.0), kStatusOk);
  ASSERT_EQ(inst->SetValue(kScale, {110}, 100.0), kStatusOk);
  ASSERT_EQ(inst->SetValue(kDoc, {0, 0, false, Bytes("early")}, 0.0), kStatusOk);
  ASSERT_EQ(inst->SetValue(kDoc, {0, 0, false, Bytes("late")}, 50.0), kStatusOk);
  const int64_t live = host.stats().live_handles.load();
  std::atomic<int> bad{0};
  auto worker = [&](int t) {
    Frame in(32, 8), out(32, 8);
    for (int i = 0; i < 200; ++i) {
      const int sec = (t * 13 + i) % 100;
      if (inst->Render(sec, in, out) != kStatusOk) bad++;
      if (out.row(0)[0] != 10 + sec) bad++;
      if (out.row(0)[3] != (sec < 50 ? 'e' : 'l')) bad++;
    }
  };
  std::vector<std::thread> threads;
  for (int t = 0; t < 8; ++t) threads.emplace_back(worker, t);
  for (auto& t : threads) t.join();
  EXPECT_EQ(bad.load(), 0);
  EXPECT_EQ(host.stats().live_handles.load(), live);
}

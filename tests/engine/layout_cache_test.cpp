// The layout cache against the reference host's frame cache: keys, one composition per distinct
// block (also under contention), eviction, missing suites, hostile entries, and the parameter and
// editing paths.
#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "document/layout_cache.h"
#include "engine/compose_internal.h"
#include "engine/kte.h"
#include "vetext/host/host.h"
#include "vetext/suites.h"
#include "vetext/vxcore.h"

namespace {

using vetext::LayoutRecord;

std::vector<uint8_t> Block(const std::u16string& text, float size = 40.0f) {
  KTE::Document doc;
  vetext::TextRun run;
  run.mText = text;
  run.mStyleParam.mFontName = u"Liberation Sans";
  run.mStyleParam.mFontSize = size;
  doc.data.mTextParam.mTextRuns.push_back(run);
  return KTE::WriteDocument(doc);
}

std::string Key(const std::vector<uint8_t>& block) {
  char key[37];
  vetext::MakeLayoutKey(block.data(), block.size(), key);
  return key;
}

LayoutRecord Direct(const std::vector<uint8_t>& block) {
  LayoutRecord l;
  KTE::Compose(*KTE::MakeDocument(block.data(), block.size()), l);
  return l;
}

// Handles as the host hands them over: cell 0 the bytes, cell 1 their size.
uint64_t HandleSize(VxHandle h) {
  return *reinterpret_cast<uint64_t*>(h[1]);
}

class LayoutCacheTest : public ::testing::Test {
 protected:
  LayoutCacheTest() {
    in_.suites = host_.suite_services();
    in_.utils = &utils_;
    utils_.get_handle_size = &HandleSize;
  }
  // The layout of `block`, into a record that starts as `l`.
  LayoutRecord Build(const std::vector<uint8_t>& block, LayoutRecord l = {}) {
    vetext::BuildTextLayout(block.data(), block.size(), l, &in_, &out_);
    return l;
  }
  // Stores the live document's layout under a handle holding `bytes`.
  VxStatus Store(const KTE::Document& doc, std::vector<uint8_t>& bytes) {
    size_ = bytes.size();
    cells_[0] = bytes.data();
    return vetext::StoreLayoutForDocument(doc, cells_, &in_, &out_);
  }
  // Puts a raw buffer of `size` bytes that begins with `count` and is tagged `format` under the
  // key of `block`, as another writer might.
  void Plant(const std::vector<uint8_t>& block, uint64_t count, size_t size, uint32_t format) {
    RPixHandle h = nullptr;
    void* p = nullptr;
    ASSERT_GE(host_.cache().creator_suite()->create(&h, kRPixKindRaw, format, 1, 1, 1, 1, size), 0);
    ASSERT_GE(host_.cache().pix_suite()->get_pixels(h, kRPixAccessWrite, &p), 0);
    std::memset(p, 0, size);
    std::memcpy(p, &count, sizeof count);
    ASSERT_GE(host_.cache().cache_suite()->add(Key(block).c_str(), h), 0);
    host_.cache().pix_suite()->dispose(h);
  }
  uint64_t Traffic() {
    const vxhost::CacheStats s = host_.cache().Stats();
    return s.hits + s.misses + s.adds;
  }

  vxhost::Host host_;
  UtilCallbacks utils_{};
  InputRecord in_{};
  OutputRecord out_{};
  uint64_t size_ = 0;
  void* cells_[2] = {nullptr, &size_};
};

TEST(LayoutKey, HashOfTheSaltAndTheWholeBlockWithTheFirstThreeGroupsByteReversed) {
  uint8_t hash[16];
  for (int i = 0; i < 16; ++i) hash[i] = uint8_t(i == 0 ? 0xF0 : i);
  char key[37];
  std::memset(key, 'x', sizeof key);
  vetext::FormatLayoutKey(hash, key);
  EXPECT_STREQ(key, "030201f0-0504-0706-0809-0a0b0c0d0e0f");

  std::vector<uint8_t> block = Block(u"Key");
  vxcore::MixHash h;
  h.MixInData("KTEDocument", 11);
  h.MixInData(block.data(), block.size());
  h.Finish(hash);
  vetext::FormatLayoutKey(hash, key);
  EXPECT_EQ(Key(block), key);
  // One changed byte anywhere, the length prefix included, gives another key.
  for (size_t at : {size_t(0), size_t(7), block.size() - 1}) {
    std::vector<uint8_t> changed(block);
    changed[at] ^= 1;
    EXPECT_NE(Key(changed), Key(block)) << at;
  }
  EXPECT_EQ(Key({}).size(), 36u);
}

TEST_F(LayoutCacheTest, ComposesOnceAndServesHitsFromTheCache) {
  const std::vector<uint8_t> block = Block(u"Cached once");
  uint64_t before = KTE::ComposeCount();
  const LayoutRecord first = Build(block);
  EXPECT_EQ(Build(block), first);
  EXPECT_EQ(KTE::ComposeCount() - before, 1u);
  EXPECT_EQ(first, Direct(block));
  EXPECT_EQ(host_.cache().Stats().adds, 1u);
  EXPECT_GE(host_.cache().Stats().hits, 1u);
  // Blocks differing in one byte get an entry each; the record a miss hands out is the one hits
  // read back, also for fallback fonts, right to left text and fractional positions.
  const std::vector<uint8_t> mixed =
      Block(u"Mixed \u0645\u0631\u062D\u0628\u0627 \u65E5 0.5", 37.3f);
  const std::vector<uint8_t> twin =
      Block(u"Mixed \u0645\u0631\u062D\u0628\u0627 \u65E5 0.6", 37.3f);
  before = KTE::ComposeCount();
  const LayoutRecord miss = Build(mixed), twin_miss = Build(twin);
  EXPECT_EQ(KTE::ComposeCount() - before, 2u);
  EXPECT_EQ(host_.cache().Stats().entries, 3u);
  EXPECT_NE(miss, twin_miss);
  EXPECT_EQ(Build(mixed), miss);
  EXPECT_EQ(Build(twin), twin_miss);
  // After eviction the next request composes again, to an equal layout.
  host_.cache().Clear();
  before = KTE::ComposeCount();
  EXPECT_EQ(Build(block), first);
  EXPECT_EQ(KTE::ComposeCount() - before, 1u);
}

TEST_F(LayoutCacheTest, ManyThreadsAskingForANewDocumentComposeItOnce) {
  const std::vector<uint8_t> block = Block(u"Raced by eight threads, composed by one", 30);
  const LayoutRecord expected = Direct(block);
  const uint64_t before = KTE::ComposeCount();
  std::atomic<int> ready{0};
  std::vector<LayoutRecord> got(8);
  std::vector<std::thread> threads;
  for (int t = 0; t < 8; ++t)
    threads.emplace_back([&, t] {
      ready.fetch_add(1);
      while (ready.load() < 8) std::this_thread::yield();
      got[size_t(t)] = Build(block);
    });
  for (auto& t : threads) t.join();
  EXPECT_EQ(KTE::ComposeCount() - before, 1u);
  EXPECT_EQ(host_.cache().Stats().adds, 1u);
  for (const auto& l : got) EXPECT_EQ(l, expected);
}

TEST_F(LayoutCacheTest, MalformedBlockFailsAndReleasesTheMutex) {
  const std::u16string bad = u"{\"mVersion\": 1, ";
  std::vector<uint8_t> block(8 + bad.size() * 2);
  const uint64_t n = bad.size() * 2;
  std::memcpy(block.data(), &n, 8);
  std::memcpy(block.data() + 8, bad.data(), n);
  try {
    Build(block);
    FAIL() << "no error";
  } catch (const KTE::Error& e) {
    EXPECT_STREQ(e.what(), "JSON not well-formed");
  }
  EXPECT_EQ(host_.cache().Stats().entries, 0u);
  // Another thread can still compose: the lock was given back.
  std::thread other([&] { EXPECT_FALSE(Build(Block(u"after")).mCharacters.empty()); });
  other.join();
}

TEST_F(LayoutCacheTest, MissingSuitesOrAnEmptyHandleLeaveEverythingAsItWas) {
  std::vector<uint8_t> block = Block(u"No suites");
  const KTE::DocumentPtr live = KTE::MakeDocument(block.data(), block.size());
  for (const char* name : {kRPixCacheSuiteName, kRPixCreatorSuiteName, kRPixSuiteName}) {
    for (bool null : {false, true}) {
      SCOPED_TRACE(testing::Message() << name << (null ? " null" : " missing"));
      (null ? host_.faults().null_suites : host_.faults().missing_suites) = {name};
      const int64_t acquired = host_.stats().suites_acquired;
      const int64_t released = host_.stats().suites_released;
      const uint64_t before = KTE::ComposeCount();
      EXPECT_EQ(Build(block, {.mLeft = 123.0f}), LayoutRecord{.mLeft = 123.0f});
      EXPECT_EQ(Store(*live, block), kStatusOk);
      EXPECT_EQ(KTE::ComposeCount(), before);
      EXPECT_EQ(host_.cache().Stats().entries, 0u);
      // Every suite taken is given back, but for the null ones of the two requests, which hold
      // nothing.
      EXPECT_EQ(host_.stats().suites_acquired - acquired - host_.stats().suites_released + released,
                null ? 2 : 0);
      EXPECT_EQ(out_.out_flags & kOutFlagDisplayMessage, 0u);
      host_.faults().missing_suites.clear();
      host_.faults().null_suites.clear();
    }
  }
  // An empty or missing handle is damaged input and causes no cache traffic.
  std::vector<uint8_t> empty;
  empty.reserve(1);  // bytes, but none of them
  const uint64_t traffic = Traffic();
  EXPECT_EQ(Store(*live, empty), kStatusStructDamaged);
  EXPECT_EQ(vetext::StoreLayoutForDocument(*live, nullptr, &in_, &out_), kStatusStructDamaged);
  ParamDef def{};
  def.param_type = kParamTypeArbitrary;
  def.u.arb_d.value = cells_;
  ParamDef* defs[2] = {&def, &def};
  ParamList params{2, defs};
  LayoutRecord l;
  EXPECT_EQ(vetext::GetLayoutFromParam(&in_, &out_, &params, l), kStatusStructDamaged);
  EXPECT_TRUE(l.mCharacters.empty());
  EXPECT_EQ(Traffic(), traffic);
  // The Source Text parameter's handle is read, copied and laid out.
  cells_[0] = block.data();
  size_ = block.size();
  EXPECT_EQ(vetext::GetLayoutFromParam(&in_, &out_, &params, l), kStatusOk);
  EXPECT_EQ(l, Direct(block));
}

TEST_F(LayoutCacheTest, ForeignOrOversizedEntriesUnderTheKeyAreNotRead) {
  const std::vector<uint8_t> pixels = Block(u"Planted"), liar = Block(u"Oversized");
  Plant(pixels, 40, 64, kPixelFormatBGRA);              // a plausible count, but tagged as pixels
  Plant(liar, uint64_t(1) << 40, 16, kPixelFormatRaw);  // a count beyond the buffer
  EXPECT_EQ(Build(pixels, {.mTop = 7.0f}), LayoutRecord{.mTop = 7.0f});
  EXPECT_EQ(Build(liar, {.mTop = 7.0f}), LayoutRecord{.mTop = 7.0f});
}

TEST_F(LayoutCacheTest, StoresTheLiveDocumentsLayoutUnderTheHandlesKeyOnce) {
  // The handle still holds the block from before the edit; the live document is newer.
  std::vector<uint8_t> old_block = Block(u"Before the edit");
  const std::vector<uint8_t> new_block = Block(u"After the edit", 60.0f);
  const KTE::DocumentPtr live = KTE::MakeDocument(new_block.data(), new_block.size());
  EXPECT_EQ(Store(*live, old_block), kStatusOk);
  EXPECT_EQ(host_.cache().Stats().adds, 1u);
  // The next request for the block is a hit that gives the live document's layout.
  const LayoutRecord expected = Direct(new_block);
  ASSERT_NE(expected, Direct(old_block));
  const uint64_t before = KTE::ComposeCount();
  EXPECT_EQ(Build(old_block), expected);
  // Present already: neither composed nor added again.
  EXPECT_EQ(Store(*live, old_block), kStatusOk);
  EXPECT_EQ(KTE::ComposeCount(), before);
  EXPECT_EQ(host_.cache().Stats().adds, 1u);
  EXPECT_EQ(host_.cache().Stats().entries, 1u);
}

}  // namespace

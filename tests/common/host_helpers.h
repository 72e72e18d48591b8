// Driving modules and the frame cache through the reference host from a test.
#pragma once

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>

#include "vetext/host/host.h"

namespace vetext_test {

// Loads the module at `path`; a failure is reported with the loader's message.
inline std::unique_ptr<vxhost::Module> LoadModule(vxhost::Host& host, const std::string& path) {
  std::string error;
  auto module = host.Load(path, &error);
  EXPECT_NE(module, nullptr) << error;
  return module;
}

// The frame cache's suites, with the few steps the tests repeat.
struct CacheSuites {
  explicit CacheSuites(vxhost::FrameCache& c)
      : pix(c.pix_suite()), cache(c.cache_suite()), creator(c.creator_suite()) {}
  const RPixSuite1* pix;
  const RPixCacheSuite6* cache;
  const RPixCreatorSuite3* creator;

  // A new raw buffer of `size` bytes, as the host hands it out.
  RPixHandle Make(uint64_t size) {
    RPixHandle h = nullptr;
    EXPECT_EQ(creator->create(&h, kRPixKindRaw, kPixelFormatRaw, 1, 1, 1, 1, size), 0);
    return h;
  }
  RPixHandle Make(uint64_t size, uint8_t fill) {
    RPixHandle h = Make(size);
    if (h) std::memset(Bytes(h), fill, size);
    return h;
  }
  uint8_t* Bytes(RPixHandle h) {
    void* p = nullptr;
    EXPECT_EQ(pix->get_pixels(h, kRPixAccessWrite, &p), 0);
    return static_cast<uint8_t*>(p);
  }
  int32_t RowBytes(RPixHandle h) {
    int32_t r = 0;
    EXPECT_EQ(pix->get_row_bytes(h, &r), 0);
    return r;
  }
  // Creates a raw buffer of `size` bytes filled with `fill` and adds it under `key`.
  void Put(const std::string& key, uint64_t size, uint8_t fill) {
    RPixHandle h = Make(size, fill);
    ASSERT_NE(h, nullptr);
    ASSERT_EQ(cache->add(key.c_str(), h), 0);
    ASSERT_EQ(pix->dispose(h), 0);
  }
  bool Has(const std::string& key) {
    RPixHandle h = nullptr;
    EXPECT_EQ(cache->lookup(key.c_str(), &h), 0);
    if (!h) return false;
    pix->dispose(h);
    return true;
  }
};

}  // namespace vetext_test

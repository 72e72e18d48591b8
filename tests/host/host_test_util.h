// Shared set-up of the host tests: a Host with the stand-in effect loaded and set up.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "host_helpers.h"
#include "vetext/host/host.h"

namespace vxhost_test {

// Parameter indices of the stand-in effect.
enum { kDoc = 1, kScale = 2, kAngle = 3, kCheck = 4, kPoint = 5, kCount = 6 };

inline std::unique_ptr<vxhost::Module> LoadTestModule(vxhost::Host& host) {
  return vetext_test::LoadModule(host, HOST_TEST_MODULE);
}

// The stand-in effect set up, and one instance of it on a 200 x 100 layer; every handle is
// given back by the end of the test.
class StandInInstance : public ::testing::Test {
 protected:
  void SetUp() override {
    module_ = LoadTestModule(host_);
    ASSERT_NE(module_, nullptr);
    ASSERT_EQ(module_->Setup(), kStatusOk);
    inst_ = module_->CreateInstance();
    ASSERT_NE(inst_, nullptr);
    inst_->SetLayerSize(200, 100);
  }
  // Sets each (time, value) as a keyframe of parameter `index`, in the order given.
  void Keys(int32_t index, std::initializer_list<std::pair<double, vxhost::ParamValue>> keys) {
    for (const auto& [time, value] : keys)
      EXPECT_EQ(inst_->SetValue(index, value, time), kStatusOk) << index << " at " << time;
  }
  void TearDown() override {
    inst_.reset();
    module_.reset();
    EXPECT_EQ(host_.stats().live_handles.load(), 0);
  }
  vxhost::Host host_;
  std::unique_ptr<vxhost::Module> module_;
  std::unique_ptr<vxhost::Instance> inst_;
};

inline std::string Text(const std::vector<uint8_t>& bytes) {
  return std::string(bytes.begin(), bytes.end());
}
// A document value holding `text`.
inline vxhost::ParamValue Doc(const std::string& text) {
  return {0, 0, false, std::vector<uint8_t>(text.begin(), text.end())};
}

}  // namespace vxhost_test

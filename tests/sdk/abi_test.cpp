// The records the host and the module exchange keep the layouts that both sides were built
// against: offsets fixed by the wire format, and the four-character codes spelling their bytes.
#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>

#include "vetext/effect.h"
#include "vetext/gpu_filter.h"
#include "vetext/labels.h"

namespace {

std::string FourCC(uint32_t code) {
  char b[4];
  std::memcpy(b, &code, 4);
  return std::string(b, 4);
}

TEST(SdkLayout, PixelFormatCodesSpellTheirBytesInMemory) {
  EXPECT_EQ(FourCC(kPixelFormatBGRA), "bgra");
  EXPECT_EQ(FourCC(kPixelFormatVUYA), "vuya");
  EXPECT_EQ(FourCC(kPixelFormatRaw), "@kte");
  EXPECT_EQ(FourCC(kPixelFormatBad), "badf");
}

TEST(SdkLayout, ArbitraryDataRequestOperandsSitAtTheirWireOffsets) {
  EXPECT_EQ(offsetof(ArbRequestRecord, selector), 0u);
  EXPECT_EQ(offsetof(ArbRequestRecord, refcon), 8u);
  EXPECT_EQ(offsetof(ArbRequestRecord, u.create.dst), 16u);
  EXPECT_EQ(offsetof(ArbRequestRecord, u.flat_size.flat_size), 24u);
  EXPECT_EQ(offsetof(ArbRequestRecord, u.flatten.buf_size), 24u);
  EXPECT_EQ(offsetof(ArbRequestRecord, u.flatten.buf), 32u);
  EXPECT_EQ(offsetof(ArbRequestRecord, u.unflatten.buf), 24u);
  EXPECT_EQ(offsetof(ArbRequestRecord, u.interpolate.t), 32u);
  EXPECT_EQ(offsetof(ArbRequestRecord, u.interpolate.dst), 40u);
}

TEST(SdkLayout, GpuInstanceSlotFollowsTheThreeIntegersUnaligned) {
  EXPECT_EQ(offsetof(GPUInstanceRecord, device_index), sizeof(void*));
  EXPECT_EQ(offsetof(GPUInstanceRecord, private_slot), sizeof(void*) + 12);
}

TEST(SdkLayout, ParamDefNameIsAThirtyTwoByteField) {
  ParamDef def{};
  EXPECT_EQ(sizeof(def.name), 32u);
  EXPECT_EQ(offsetof(ParamDef, ui_width), 8u);
  EXPECT_EQ(offsetof(ParamDef, param_type), 12u);
  EXPECT_EQ(offsetof(ParamDef, name), 16u);
  EXPECT_EQ(offsetof(ParamDef, flags), 48u);
}

TEST(SdkLayout, GlobalFlagsAreTheThreeDeclaredBits) {
  EXPECT_EQ(kEffectGlobalOutFlags,
            uint32_t(kOutFlagIExpandBuffer | kOutFlagCustomUI | kOutFlagSendUpdateParamsUI));
}

}  // namespace

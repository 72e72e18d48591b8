// The effect's parameters: declaration (command 4) and keeping their controls consistent
// (commands 13 and 14).
#pragma once

#include "vetext/effect.h"

namespace vetext {

// Parameter indices; each parameter's id equals its index.
enum ParamIndex : int32_t {
  kParamInput = 0,
  kParamSourceText = 1,
  kParamTransformGroup = 2,
  kParamPosition = 3,
  kParamScale = 4,
  kParamHorizontalScale = 5,
  kParamUniformScale = 6,
  kParamRotation = 7,
  kParamOpacity = 8,
  kParamAnchorPoint = 9,
  kParamTransformGroupEnd = 10,
  kParamCount = 11
};

// The GPU filter numbers the same parameters without the input layer.
constexpr int32_t GpuParamIndex(ParamIndex index) {
  return int32_t(index) - 1;
}

// A 16.16 fixed-point parameter value as the render uses it: scaled in double precision, then
// rounded to single.
inline float FixedToFloat(VxFixed v) {
  return float(double(v) * 1.52587890625e-5);
}

// The Transform group's values in the units the placement works in. Every reader of the
// parameters (the CPU render, the GPU path, the overlay) fills one of these and hands it to
// PlaceText (render/geometry.h), so they cannot disagree on where the text goes.
struct TransformValues {
  float position_x = 0, position_y = 0;  // layer pixels, as the host gives them
  float scale_x = 1, scale_y = 1;        // fractions (1 = 100 %), Uniform Scale applied
  float rotation = 0;                    // degrees, clockwise on screen
  float opacity = 1;                     // 0 to 1
  float anchor_x = 0, anchor_y = 0;      // layer pixels
};

// Reads the Transform group from the records of a render or event call. Returns false, leaving
// *t alone, when the list is too short or a record is missing.
bool ReadTransform(const ParamList* params, TransformValues* t);

// The Source Text parameter's reference constant and those the document handler accepts.
constexpr uint64_t kSourceTextRefcon = 2;
inline bool IsOwnRefcon(uint64_t refcon) {
  return refcon == 1 || refcon == 2;
}

// Command 4. Returns 0, the host's status of a failing add (the count is then not written), or 4
// when the default document's handle cannot be had. Throws std::bad_alloc and KTE::Error.
VxStatus ParamsSetup(InputRecord* in, OutputRecord* out, ParamList* params, OutputLayer* layer);
// Command 13: confirms the parameter-utility suite; changes nothing. Throws SuiteError{13} when
// the suite cannot be acquired.
VxStatus UserChangedParam(InputRecord* in, OutputRecord* out, ParamList* params, OutputLayer* layer,
                          ExtraRecord* extra);
// Command 14: relabels "Scale"/"Vertical Scale" and enables or disables "Horizontal Scale" after
// "Uniform Scale". Throws SuiteError{13} when the suite cannot be acquired.
VxStatus UpdateParamsUI(InputRecord* in, OutputRecord* out, ParamList* params, OutputLayer* layer);

}  // namespace vetext

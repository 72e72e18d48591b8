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

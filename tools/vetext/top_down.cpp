#include "top_down.h"

#include <vector>

#include "params/params.h"

namespace vetext_tool {
namespace {

void Negate(vxhost::Instance& instance, int32_t param) {
  auto negated = [&](double t) {
    vxhost::ParamValue v = instance.ValueAt(param, t);
    if (param == vetext::kParamPosition)
      v.y = -v.y;
    else
      v.x = -v.x;
    return v;
  };
  const std::vector<double> times = instance.KeyTimes(param);
  if (times.empty()) {
    instance.SetValue(param, negated(0));
    return;
  }
  // Read every keyframe before writing any: a value between keyframes depends on both.
  std::vector<vxhost::ParamValue> values;
  for (double t : times) values.push_back(negated(t));
  for (size_t i = 0; i < times.size(); ++i) instance.SetValue(param, values[i], times[i]);
}

}  // namespace

void StateForTopDownFrames(vxhost::Instance& instance) {
  Negate(instance, vetext::kParamPosition);
  Negate(instance, vetext::kParamRotation);
}

}  // namespace vetext_tool

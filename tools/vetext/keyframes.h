// Keyframed values of the render command's transform options.
//
// Each transform option takes either a constant ("--scale 150") or keyframes: "T=V" with T in
// seconds, repeated ("--position 0=100,200 --position 2.5=800,200") or as a list in one value
// ("--position '0=100,200;2.5=800,200'"). Values between keyframes are linear; before the
// first and after the last the nearest keyframe holds. Points are "X,Y" in layer pixels.
#pragma once

#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace vetext_tool {

struct KeyValue {
  double x = 0, y = 0;
  bool operator==(const KeyValue&) const = default;
};

struct Track {
  std::optional<KeyValue> constant;
  std::vector<std::pair<double, KeyValue>> keys;  // ascending times, no duplicates
  bool empty() const { return !constant && keys.empty(); }
};

// Adds one occurrence of an option's value to `track`. `components` is 1 (numbers) or 2
// (points). `option` names the option in messages. Fails on malformed numbers, a wrong number
// of components, negative or repeated times, and on mixing a constant with keyframes.
bool ParseTrackValue(const std::string& option, const std::string& text, int components,
                     Track* track, std::string* error);

// Checks every value (constant or keyframe x) lies in [lo, hi].
bool CheckTrackRange(const std::string& option, const Track& track, double lo, double hi,
                     std::string* error);

}  // namespace vetext_tool

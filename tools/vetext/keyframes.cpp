#include "keyframes.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <sstream>

namespace vetext_tool {
namespace {

std::string Trim(const std::string& s) {
  size_t a = s.find_first_not_of(" \t");
  if (a == std::string::npos) return "";
  size_t b = s.find_last_not_of(" \t");
  return s.substr(a, b - a + 1);
}

// A whole string as one finite number.
bool ParseNumber(const std::string& text, double* out) {
  std::string t = Trim(text);
  if (t.empty()) return false;
  errno = 0;
  char* end = nullptr;
  double v = std::strtod(t.c_str(), &end);
  if (end != t.c_str() + t.size() || errno == ERANGE || !std::isfinite(v)) return false;
  *out = v;
  return true;
}

bool ParseValue(const std::string& text, int components, KeyValue* out) {
  if (components == 1) return ParseNumber(text, &out->x);
  size_t comma = text.find(',');
  if (comma == std::string::npos || text.find(',', comma + 1) != std::string::npos) return false;
  return ParseNumber(text.substr(0, comma), &out->x) &&
         ParseNumber(text.substr(comma + 1), &out->y);
}

std::string FormatValue(const KeyValue& v, int components) {
  std::ostringstream s;
  s << v.x;
  if (components == 2) s << ',' << v.y;
  return s.str();
}

}  // namespace

bool ParseTrackValue(const std::string& option, const std::string& text, int components,
                     Track* track, std::string* error) {
  const char* expect = components == 2 ? "X,Y" : "a number";
  auto fail = [&](const std::string& what) {
    *error = "bad value '" + text + "' for " + option + ": " + what;
    return false;
  };
  if (Trim(text).empty()) return fail(std::string("expected ") + expect);
  if (text.find('=') == std::string::npos) {
    KeyValue v;
    if (!ParseValue(text, components, &v)) return fail(std::string("expected ") + expect);
    if (!track->keys.empty() || track->constant)
      return fail("a constant cannot be combined with other values");
    track->constant = v;
    return true;
  }
  if (track->constant) return fail("keyframes cannot be combined with a constant");
  std::vector<std::pair<double, KeyValue>> added;
  std::string rest = text;
  size_t start = 0;
  while (start <= rest.size()) {
    size_t semi = rest.find(';', start);
    std::string item =
        rest.substr(start, semi == std::string::npos ? std::string::npos : semi - start);
    start = semi == std::string::npos ? rest.size() + 1 : semi + 1;
    if (Trim(item).empty()) {
      if (semi == std::string::npos && !added.empty()) break;  // a trailing ';' is harmless
      return fail("empty keyframe");
    }
    size_t eq = item.find('=');
    if (eq == std::string::npos)
      return fail("keyframe '" + Trim(item) + "' is not T=" + (components == 2 ? "X,Y" : "V"));
    double t;
    KeyValue v;
    if (!ParseNumber(item.substr(0, eq), &t))
      return fail("keyframe time '" + Trim(item.substr(0, eq)) + "' is not a number of seconds");
    if (t < 0) return fail("keyframe time must not be negative");
    if (!ParseValue(item.substr(eq + 1), components, &v))
      return fail("keyframe value '" + Trim(item.substr(eq + 1)) + "' is not " + expect);
    added.emplace_back(t, v);
  }
  for (const auto& [t, v] : added) {
    auto it = std::lower_bound(track->keys.begin(), track->keys.end(), t,
                               [](const auto& k, double time) { return k.first < time; });
    if (it != track->keys.end() && it->first == t) {
      std::ostringstream s;
      s << "two keyframes at " << t << " s";
      return fail(s.str());
    }
    track->keys.insert(it, {t, v});
  }
  return true;
}

bool CheckTrackRange(const std::string& option, const Track& track, double lo, double hi,
                     std::string* error) {
  auto check = [&](const KeyValue& v) {
    if (v.x >= lo && v.x <= hi) return true;
    std::ostringstream s;
    s << option << " " << FormatValue(v, 1) << " is out of range (" << lo << " to " << hi << ")";
    *error = s.str();
    return false;
  };
  if (track.constant && !check(*track.constant)) return false;
  for (const auto& k : track.keys)
    if (!check(k.second)) return false;
  return true;
}

}  // namespace vetext_tool

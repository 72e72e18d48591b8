// The Text effect as a frei0r filter: one TextFilter per frei0r instance, driving its own
// instance of the real module through the reference host. The host and the module (with its
// layout and glyph caches) are loaded once per process and shared by every TextFilter.
//
// Units are frei0r's, so that a value means the same in every program that loads the filter:
// positions and sizes are fractions of the frame (x of its width, y and font sizes of its
// height), scales and opacity are fractions (1 = 100 %), angles are degrees clockwise. Frames
// are RGBA8888, top row first, packed (frei0r has no stride).
//
// Thread safety: separate TextFilters may be used from separate threads at once; one TextFilter
// belongs to one thread at a time (frei0r calls an instance from one thread at a time).
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace vxhost {
class Instance;
}

namespace vetext_frei0r {

enum class ParamKind { kString, kDouble, kColor, kPosition };

struct ParamInfo {
  const char* name;
  ParamKind kind;
  const char* explanation;
};

// The filter's parameters in frei0r's order (index = position in the table).
const std::vector<ParamInfo>& Params();

// A parameter value as frei0r passes it (f0r_param_color and f0r_param_position share the
// layout of the first two or three doubles here; strings are kept as text).
struct Value {
  double v[3] = {0, 0, 0};
  std::string text;
  bool operator==(const Value&) const = default;
};

// The module the filter runs, loaded once: $VETEXT_MODULE, then the module installed beside the
// filter (<libdir>/vetext/VEText.so for <libdir>/frei0r-1/vetext.so), then the build tree's.
// False with a message when none loads or it fails to start.
bool LoadSharedModule(const std::string& filter_path, std::string* error);
// Drops the shared module once no TextFilter uses it (frei0r's deinit).
void UnloadSharedModule();

class TextFilter {
 public:
  // Null with a message when the module is not loaded or refuses to make an instance.
  static std::unique_ptr<TextFilter> Create(uint32_t width, uint32_t height, std::string* error);
  ~TextFilter();

  // Out-of-range indices are ignored, as frei0r asks.
  void Set(int index, const Value& value);
  Value Get(int index) const;
  // A string parameter's text, owned by the filter until that parameter is set again.
  const char* Text(int index) const;
  size_t frame_bytes() const { return size_t(width_) * height_ * 4; }

  // Draws the text at `time` (seconds) over `in` into `out`, both width x height RGBA pixels
  // (they may be the same buffer). When the settings cannot be drawn (a missing file, a font
  // that is not installed, a frame the effect refuses) `out` receives `in` unchanged and the
  // reason goes to stderr, once per reason.
  void Update(double time, const uint32_t* in, uint32_t* out);

 private:
  TextFilter(uint32_t width, uint32_t height, std::unique_ptr<vxhost::Instance> instance);
  bool Prepare(bool rebuild, std::string* error);
  bool ApplyDocument(std::string* error);
  void ApplyTransform();
  void Report(const std::string& message);

  uint32_t width_, height_;
  std::unique_ptr<vxhost::Instance> instance_;
  std::vector<Value> values_;   // what the client set, in frei0r units
  std::vector<Value> applied_;  // what the instance holds (empty: nothing yet)
  bool has_project_ = false;    // the text names a project: it brings its own transform
  std::string failure_;         // why the current settings cannot be drawn ("" if they can)
  std::string reported_;        // the last reason written to stderr
};

}  // namespace vetext_frei0r

#include "text_filter.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <stdexcept>

#include "doc_options.h"
#include "document/document_json.h"
#include "engine/kte.h"
#include "files.h"
#include "media_image.h"
#include "params/params.h"
#include "top_down.h"
#include "vetext/host/host.h"
#include "vetext/vxcore.h"

namespace vetext_frei0r {
namespace {

using vetext::kParamAnchorPoint;
using vetext::kParamHorizontalScale;
using vetext::kParamOpacity;
using vetext::kParamPosition;
using vetext::kParamRotation;
using vetext::kParamScale;
using vetext::kParamSourceText;
using vetext::kParamUniformScale;

enum Index {
  kText,
  kFont,
  kSize,
  kFill,
  kStroke,
  kStrokeWidth,
  kAlign,
  kBox,
  kPosition,
  kAnchor,
  kScale,
  kHScale,
  kRotation,
  kOpacity,
  kCount
};
// The parameters that make the document; the rest make the transform.
constexpr bool IsDocument(int i) {
  return i <= kBox;
}

Value Number(double x, double y = 0, double z = 0) {
  Value v;
  v.v[0] = x, v.v[1] = y, v.v[2] = z;
  return v;
}

// Defaults leave the effect's own defaults in place: the default document ("TEXT Wgij",
// centred, white) at the frame's centre, unscaled, upright and opaque.
const std::vector<Value>& Defaults() {
  static const std::vector<Value> d = {
      Value{},   Value{},   Number(0),    Number(1, 1, 1),  Number(1, 1, 1),
      Number(0), Value{},   Number(0, 0), Number(0.5, 0.5), Number(0.5, 0.5),
      Number(1), Number(0), Number(0),    Number(1)};
  return d;
}

// The process-wide host and module. Instances are made and destroyed under the mutex, since the
// module's instance list belongs to one thread at a time; rendering needs no lock.
struct Shared {
  std::mutex mutex;
  std::unique_ptr<vxhost::Host> host;
  std::unique_ptr<vxhost::Module> module;
  int users = 0;  // live TextFilters
};
Shared& TheShared() {
  static Shared* shared = new Shared;  // never destroyed: a filter may outlive static teardown
  return *shared;
}

std::string Lower(std::string s) {
  for (char& c : s) c = char(std::tolower(static_cast<unsigned char>(c)));
  return s;
}

// The effect draws in 'bgra'; frei0r frames are RGBA. Rather than convert every frame twice, the
// filter hands the effect the RGBA bytes as they are and swaps red and blue in the colours it
// asks for: the composite treats the three colour channels alike, so the text lands in the
// right channels and no pixel is copied for the colour order.
void SwapRedBlue(vetext::DocumentRecord& doc) {
  for (vetext::TextRun& run : doc.mTextParam.mTextRuns) {
    vetext::StyleParam& s = run.mStyleParam;
    std::swap(s.mFillRed, s.mFillBlue);
    std::swap(s.mStrokeRed, s.mStrokeBlue);
  }
}

// Short names for the alignments; the effect's own names ("Justify Last Left", ...) also work.
std::string AlignmentName(const std::string& name) {
  const std::string l = Lower(name);
  if (l == "left") return "Left Align";
  if (l == "right") return "Right Align";
  if (l == "center" || l == "centre") return "Center Align";
  return name;
}

// A family fontconfig does not have resolves to its fallback family; a request for a family
// it has (or an alias of one) resolves to something else.
bool FontInstalled(const std::string& family, std::string* resolved) {
  const std::u16string found = KTE::FindFont(vxcore::UTF8ToUTF16(family));
  *resolved = vxcore::UTF16ToUTF8(found);
  if (Lower(*resolved) == Lower(family)) return true;
  return found != KTE::FindFont(u"vetext no such family \x01");
}

}  // namespace

const std::vector<ParamInfo>& Params() {
  static const std::vector<ParamInfo> table = {
      {"text", ParamKind::kString,
       "Text to draw (\\n breaks lines), or @FILE: a project or document file written by vetext"},
      {"font", ParamKind::kString, "Font family; empty keeps the document's"},
      {"size", ParamKind::kDouble,
       "Font size as a fraction of the frame height; 0 keeps the document's"},
      {"fill", ParamKind::kColor, "Fill colour"},
      {"stroke", ParamKind::kColor, "Stroke colour"},
      {"stroke_width", ParamKind::kDouble,
       "Stroke width as a fraction of the frame height; 0 keeps the document's"},
      {"align", ParamKind::kString,
       "left, center or right (with a box also the justified alignments); empty keeps the "
       "document's"},
      {"box", ParamKind::kPosition,
       "Text box width and height as fractions of the frame; 0,0 is point text"},
      {"position", ParamKind::kPosition, "Position as a fraction of the frame (0.5,0.5: centre)"},
      {"anchor", ParamKind::kPosition,
       "Anchor point, about which the text scales and turns, as a fraction of the frame"},
      {"scale", ParamKind::kDouble, "Scale (1 = 100 %, 0.25 to 4)"},
      {"hscale", ParamKind::kDouble,
       "Horizontal scale (1 = 100 %, 0.25 to 4); 0 follows the scale"},
      {"rotation", ParamKind::kDouble, "Rotation in degrees, clockwise"},
      {"opacity", ParamKind::kDouble, "Opacity (0 to 1)"},
  };
  return table;
}

bool LoadSharedModule(const std::string& filter_path, std::string* error) {
  Shared& s = TheShared();
  std::lock_guard<std::mutex> lock(s.mutex);
  if (s.module) return true;
  std::vector<std::string> candidates;
  if (const char* env = std::getenv("VETEXT_MODULE"); env && *env) candidates.push_back(env);
  if (const size_t slash = filter_path.rfind('/'); slash != std::string::npos)
    candidates.push_back(filter_path.substr(0, slash) + "/../vetext/VEText.so");
  candidates.push_back(vxhost::DefaultModulePath());
  auto host = std::make_unique<vxhost::Host>();
  std::string reasons;
  for (const std::string& path : candidates) {
    std::string why;
    std::unique_ptr<vxhost::Module> module = host->Load(path, &why);
    if (!module) {
      reasons += "\n  " + path + ": " + why;
      continue;
    }
    if (VxStatus st = module->Setup(); st != 0) {
      *error =
          "the effect module '" + path + "' failed to start (status " + std::to_string(st) + ")";
      return false;
    }
    s.host = std::move(host);
    s.module = std::move(module);
    return true;
  }
  *error =
      "cannot load the effect module; set VETEXT_MODULE to the path of VEText.so. Tried:" + reasons;
  return false;
}

void UnloadSharedModule() {
  Shared& s = TheShared();
  std::lock_guard<std::mutex> lock(s.mutex);
  if (s.users > 0) return;  // a client that deinits before destructing keeps the module
  s.module.reset();
  s.host.reset();
}

std::unique_ptr<TextFilter> TextFilter::Create(uint32_t width, uint32_t height,
                                               std::string* error) {
  Shared& s = TheShared();
  std::lock_guard<std::mutex> lock(s.mutex);
  if (!s.module) {
    *error = "the effect module is not loaded";
    return nullptr;
  }
  VxStatus st = 0;
  std::unique_ptr<vxhost::Instance> instance = s.module->CreateInstance(&st);
  if (!instance) {
    *error = "the effect could not make an instance (status " + std::to_string(st) + ")";
    return nullptr;
  }
  ++s.users;
  return std::unique_ptr<TextFilter>(new TextFilter(width, height, std::move(instance)));
}

TextFilter::TextFilter(uint32_t width, uint32_t height, std::unique_ptr<vxhost::Instance> instance)
    : width_(width), height_(height), instance_(std::move(instance)), values_(Defaults()) {
  // Point defaults (percent of the layer) resolve against the client's frame.
  instance_->SetLayerSize(int32_t(width), int32_t(height));
}

TextFilter::~TextFilter() {
  Shared& s = TheShared();
  std::lock_guard<std::mutex> lock(s.mutex);
  instance_.reset();
  --s.users;
}

void TextFilter::Set(int index, const Value& value) {
  if (index < 0 || index >= kCount) return;
  // A number that is not finite means nothing in any unit: the parameter keeps its value.
  for (double v : value.v)
    if (!std::isfinite(v)) return;
  values_[size_t(index)] = value;
}

Value TextFilter::Get(int index) const {
  if (index < 0 || index >= kCount) return Value{};
  return values_[size_t(index)];
}

const char* TextFilter::Text(int index) const {
  if (index < 0 || index >= kCount) return "";
  return values_[size_t(index)].text.c_str();
}

void TextFilter::Report(const std::string& message) {
  if (message == reported_) return;  // once per reason, not once per frame
  reported_ = message;
  std::fprintf(stderr, "vetext frei0r filter: %s; the frames pass through without text\n",
               message.c_str());
}

bool TextFilter::ApplyDocument(std::string* error) {
  const std::vector<Value>& d = Defaults();
  const std::vector<Value>& v = values_;
  auto given = [&](int i) { return !(v[size_t(i)] == d[size_t(i)]); };
  const double h = double(height_);

  vetext_tool::DocumentOptions o;
  std::string project_file;
  const std::string& text = v[kText].text;
  if (!text.empty() && text[0] == '@') {
    const std::string path = text.substr(1);
    // The reader takes "" and "-" for standard input, which belongs to the client program.
    if (path.empty() || path == "-") {
      *error = "'" + text + "' names no file; give @FILE, a project or document file";
      return false;
    }
    std::vector<uint8_t> bytes;
    if (!vetext_tool::ReadInputFile(path, vetext_tool::kMaxDocumentFileBytes, &bytes, error)) {
      *error = "cannot read the text file: " + *error;
      return false;
    }
    size_t first = 0;
    while (first < bytes.size() && std::isspace(bytes[first])) ++first;
    if (bytes.size() >= 4 && std::memcmp(bytes.data(), "VXPJ", 4) == 0) {
      std::string why;
      if (!instance_->LoadProject(bytes.data(), bytes.size(), &why)) {
        *error = "cannot load the project '" + path + "': " + why;
        return false;
      }
      project_file = path;
      vetext_tool::StateForTopDownFrames(*instance_);
    } else if (first < bytes.size() && bytes[first] == '{') {
      o.from = path;
    } else {
      o.block_in = path;
    }
  } else if (!text.empty()) {
    o.text = text;
  }
  if (given(kFont)) {
    std::string resolved;
    if (!FontInstalled(v[kFont].text, &resolved)) {
      *error = "the font '" + v[kFont].text + "' is not installed (fontconfig would draw '" +
               resolved + "' instead; fc-list shows the installed families)";
      return false;
    }
    o.font = v[kFont].text;
  }
  if (given(kSize)) o.size = v[kSize].v[0] * h;
  if (given(kFill))
    o.fill = vetext_tool::Rgb{float(v[kFill].v[0]), float(v[kFill].v[1]), float(v[kFill].v[2])};
  if (given(kStroke))
    o.stroke =
        vetext_tool::Rgb{float(v[kStroke].v[0]), float(v[kStroke].v[1]), float(v[kStroke].v[2])};
  if (given(kStrokeWidth)) o.stroke_width = v[kStrokeWidth].v[0] * h;
  if (given(kAlign)) o.align = AlignmentName(v[kAlign].text);
  if (given(kBox))
    o.box = std::make_pair(int32_t(std::lround(std::clamp(v[kBox].v[0], 0.0, 1.0) * width_)),
                           int32_t(std::lround(std::clamp(v[kBox].v[1], 0.0, 1.0) * h)));

  try {
    // A project's Source Text may be keyframed: the options apply to every keyframe's document.
    std::vector<double> times;
    if (!project_file.empty()) times = instance_->KeyTimes(kParamSourceText);
    const bool keyed = !times.empty();
    if (!keyed) times = {0.0};
    for (double t : times) {
      vetext::DocumentRecord doc;
      if (project_file.empty()) {
        doc = vetext_tool::BuildDocument(o);
      } else {
        const vxhost::ParamValue stored = instance_->ValueAt(kParamSourceText, t);
        doc = KTE::MakeDocument(stored.bytes.data(), stored.bytes.size())->data;
        vetext_tool::ApplyDocumentOptions(o, doc);
      }
      SwapRedBlue(doc);
      vxhost::ParamValue value;
      value.bytes = vetext::WriteDocumentBlock(doc);
      const VxStatus st = keyed ? instance_->SetValue(kParamSourceText, value, t)
                                : instance_->SetValue(kParamSourceText, value);
      if (st != 0) {
        *error = "the effect refused the text (status " + std::to_string(st) + ")";
        return false;
      }
      // Box text hangs from its top-left corner: a box the user has not placed is centred, as
      // `vetext render` centres it.
      const vetext::TextParam& box = doc.mTextParam;
      if (project_file.empty() && !given(kPosition) && box.mWidth > 0 && box.mHeight > 0) {
        vxhost::ParamValue centred;
        centred.x = (double(width_) - box.mWidth) / 2;
        centred.y = -(h - box.mHeight) / 2;  // negated for a top-down frame
        instance_->SetValue(kParamPosition, centred);
      }
    }
  } catch (const vetext_tool::OptionError& e) {
    *error = e.what();
    return false;
  } catch (const std::exception& e) {
    *error = std::string("cannot make the text: ") + e.what();
    return false;
  }
  has_project_ = !project_file.empty();
  return true;
}

void TextFilter::ApplyTransform() {
  const std::vector<Value>& d = Defaults();
  const std::vector<Value>& v = values_;
  auto changed = [&](int i) { return applied_.empty() || !(v[size_t(i)] == applied_[size_t(i)]); };
  // A project brings its own transform: only what the client moved off the defaults replaces it.
  auto skip = [&](int i) { return has_project_ && v[size_t(i)] == d[size_t(i)]; };
  auto set = [&](int i, int32_t param, double x, double y = 0) {
    if (!changed(i) || skip(i)) return;
    vxhost::ParamValue value;
    value.x = x;
    value.y = y;
    instance_->SetValue(param, value);
  };
  const double w = double(width_), h = double(height_);
  // The box centring of ApplyDocument owns the position until the client gives one.
  const bool box_centred = !has_project_ && v[kPosition] == d[kPosition] && !(v[kBox] == d[kBox]);
  if (!box_centred) set(kPosition, kParamPosition, v[kPosition].v[0] * w, -v[kPosition].v[1] * h);
  set(kAnchor, kParamAnchorPoint, v[kAnchor].v[0] * w, v[kAnchor].v[1] * h);
  set(kScale, kParamScale, std::clamp(v[kScale].v[0], 0.25, 4.0) * 100);
  set(kRotation, kParamRotation, -v[kRotation].v[0]);
  set(kOpacity, kParamOpacity, std::clamp(v[kOpacity].v[0], 0.0, 1.0) * 100);
  if (changed(kHScale) && !skip(kHScale)) {
    const double hs = v[kHScale].v[0];
    vxhost::ParamValue uniform;
    uniform.flag = !(hs > 0);
    instance_->SetValue(kParamUniformScale, uniform);
    if (hs > 0) set(kHScale, kParamHorizontalScale, std::clamp(hs, 0.25, 4.0) * 100);
  }
}

bool TextFilter::Prepare(bool rebuild, std::string* error) {
  const std::vector<Value>& d = Defaults();
  bool document = rebuild || applied_.empty();
  const bool box = !(values_[kBox] == d[kBox]);
  for (int i = 0; i < kCount && !document; ++i) {
    const Value& v = values_[size_t(i)];
    // A transform value back at its default returns to what the document step decides (the
    // project's value, or a centred box): that step runs again.
    const bool back = v == d[size_t(i)] && (has_project_ || (i == kPosition && box));
    document = !(v == applied_[size_t(i)]) && (IsDocument(i) || back);
  }
  if (document) {
    if (has_project_)
      for (int32_t p = 1; p < vetext::kParamCount; ++p) instance_->ResetValue(p);
    has_project_ = false;
    applied_.clear();
    if (!ApplyDocument(error)) return false;
  }
  ApplyTransform();
  applied_ = values_;
  return true;
}

void TextFilter::Update(double time, const uint32_t* in, uint32_t* out) {
  const size_t pixels = size_t(width_) * height_;
  std::string error;
  if (width_ == 0 || height_ == 0) return;
  if (width_ > uint32_t(vetext_tool::kMaxFrameSide) ||
      height_ > uint32_t(vetext_tool::kMaxFrameSide)) {
    error = "a " + std::to_string(width_) + "x" + std::to_string(height_) +
            " frame is larger than the effect draws (at most " +
            std::to_string(vetext_tool::kMaxFrameSide) + " pixels a side)";
  } else if (applied_.empty() || !(values_ == applied_)) {
    const bool rebuild = !failure_.empty();  // a failed document step left the instance unsure
    failure_.clear();
    if (!Prepare(rebuild, &error)) {
      failure_ = error;
      applied_ = values_;  // the same settings fail the same way: do not retry every frame
    }
  }
  if (error.empty()) error = failure_;
  if (error.empty()) {
    // In place (in == out) needs no copy of its own: the effect's first step copies the input
    // layer onto the output, a no-op for one buffer, and reads only the output after it.
    const int32_t stride = int32_t(width_) * 4;
    // frei0r frames are top row first: a positive stride, which the effect takes as it is.
    const vxhost::Frame src =
        vxhost::Frame::View(const_cast<uint32_t*>(in), int32_t(width_), int32_t(height_), stride);
    vxhost::Frame dst = vxhost::Frame::View(out, int32_t(width_), int32_t(height_), stride);
    const VxStatus st = instance_->Render(time, src, dst);
    if (st == 0) return;
    error = "the effect failed with status " + std::to_string(st);
    if (const char* msg = instance_->last_output().message; msg[0] != 0)
      error += std::string(": ") + msg;
    if (st == kStatusOutOfMemory)
      error += " (out of memory: the text is too large to draw at this size)";
  }
  Report(error);
  if (in != out) std::memcpy(out, in, pixels * 4);
}

}  // namespace vetext_frei0r

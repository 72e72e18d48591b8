// The GPU render of one frame, in the three calls the host makes: a dependency per glyph record
// (the size of its image), each record's image rasterised on the CPU into a buffer the host
// uploads, and the draw of every image into the frame with the host's GF::Motion.
//
// Each image is placed so that the frame shows what the CPU render draws: the CPU render
// rasterises the whole text into one buffer, reduces it by the compositor's factors and
// resamples the reduction onto the frame. A record's image here is a window of that buffer
// starting on the reduction grid, so its reduction is exactly the whole reduction's pixels
// there, and GF::Motion maps it with the whole text's placement. For a one-to-one placement the
// CPU render draws the glyphs displaced so that they land on whole pixels; the images are drawn
// with the same displacement.
#include <algorithm>
#include <cmath>
#include <cstring>

#include "gpu/filter.h"
#include "gpu/ksl.h"
#include "render/rasterize.h"
#include "vetext/gpu_foundation.h"
#include "vetext/video_frame.h"

namespace vetext {
namespace {

// Steps per reduced pixel of the one-to-one displacement (the CPU render's).
constexpr int32_t kShiftSteps = 16;

// The three interfaces of a mapped frame, released when it goes.
class MappedFrame {
 public:
  explicit MappedFrame(GPUFrameHandle frame) {
    VF::Unknown* unknown = nullptr;
    VF::GetRPixHandFrameMapping(frame, &unknown);
    KSL::Checked(unknown);
    void* p = nullptr;
    unknown->QueryInterface(VF::kIIDFrameDevice, &p);
    device_ = static_cast<VF::FrameDevice*>(p);
    p = nullptr;
    unknown->QueryInterface(VF::kIIDFrameLayout, &p);
    layout_ = static_cast<VF::FrameLayout*>(p);
    p = nullptr;
    unknown->QueryInterface(VF::kIIDFrameAspect, &p);
    aspect_ = static_cast<VF::FrameAspect*>(p);
    unknown->Release();
    KSL::Checked(device_);
    KSL::Checked(layout_);
    KSL::Checked(aspect_);
    VxRect b{};
    device_->GetBounds(&b);
    width = b.right - b.left;
    height = b.bottom - b.top;
    device_->GetDeviceData(&data);
    layout_->GetPitch(&pitch);
    layout_->GetPixelFormat(&format);
    aspect_->GetPixelAspect(&par_num, &par_den);
  }
  ~MappedFrame() {
    if (device_) device_->Release();
    if (layout_) layout_->Release();
    if (aspect_) aspect_->Release();
  }
  MappedFrame(const MappedFrame&) = delete;
  MappedFrame& operator=(const MappedFrame&) = delete;

  int32_t width = 0, height = 0;
  void* data = nullptr;
  int64_t pitch = 0;
  uint32_t format = 0;
  int32_t par_num = 1, par_den = 1;

 private:
  VF::FrameDevice* device_ = nullptr;
  VF::FrameLayout* layout_ = nullptr;
  VF::FrameAspect* aspect_ = nullptr;
};

int32_t FloorTo(double v, int32_t step) {
  return int32_t(std::floor(v / step)) * step;
}

}  // namespace

RecordPlan PlanFrame(const LayoutRecord& layout, const TransformValues& t,
                     const GPURenderParams& params) {
  RecordPlan r;
  r.g = ComputeRasterGeometry(layout);
  r.frame.width = params.frame_width;
  r.frame.height = params.frame_height;
  r.frame.bottom_up = params.frame_bottom_up != 0;
  r.frame.downsample_x = double(params.downsample_x);
  r.frame.downsample_y = double(params.downsample_y);
  if (params.par_num > 0 && params.par_den > 0)
    r.frame.inverse_par = double(params.par_den) / double(params.par_num);
  r.p = PlaceText(r.g, t, r.frame);
  IR_PrefilterFactors(r.p.scale, &r.fx, &r.fy);
  // The CPU render assembles a 4 x 4 reduction from glyphs drawn displaced when the placement
  // is one to one; anything else it reduces as drawn.
  if (r.fx == 4 && r.fy == 4 && r.g.oversampling == 4.0f && r.g.Drawable() &&
      IR_AlignedShift(r.g.W, r.g.H, r.fx, r.fy, r.frame.width, r.frame.height, r.p.dst, r.p.src,
                      r.p.scale, double(r.p.rotation), kShiftSteps, &r.shift_x, &r.shift_y) == 1) {
    r.shift_steps = kShiftSteps;
    const float k = 4.0f / float(kShiftSteps);
    r.dx = k * float(r.shift_x);
    r.dy = k * float(r.shift_y);
  }
  return r;
}

RecordBox BoxOf(const CharacterRecord& c, const RecordPlan& r) {
  RecordBox box;
  if (!r.g.Drawable() || !(c.mWidth > 0) || !(c.mHeight > 0)) return box;
  // The stroke's miter joins reach up to twice its width beyond the outline; one pixel more
  // holds the anti-aliased edge.
  const double m = 2.0 * std::max(0.0, double(c.mStrokeWidth)) + 1.0;
  const double left = double(c.mLeft) + r.g.ox + r.dx - m;
  const double top = double(c.mTop) + r.g.oy + r.dy - m;
  const double right = double(c.mLeft) + double(c.mWidth) + r.g.ox + r.dx + m;
  const double bottom = double(c.mTop) + double(c.mHeight) + r.g.oy + r.dy + m;
  if (!(std::isfinite(left) && std::isfinite(top) && std::isfinite(right) && std::isfinite(bottom)))
    return box;
  // Cut by the text buffer as the CPU render's buffer cuts the glyph.
  const double l = std::clamp(left, 0.0, double(r.g.W)), t = std::clamp(top, 0.0, double(r.g.H));
  const double rr = std::clamp(right, 0.0, double(r.g.W));
  const double b = std::clamp(bottom, 0.0, double(r.g.H));
  if (!(rr > l && b > t)) return box;
  box.x0 = FloorTo(l, r.fx);
  box.y0 = FloorTo(t, r.fy);
  box.width = int32_t(std::ceil(rr)) - box.x0;
  box.height = int32_t(std::ceil(b)) - box.y0;
  box.empty = false;
  return box;
}

int32_t VEFilterTextGPU::QueryDependency(const GPURenderParams* params, int32_t* query_index,
                                         GPUDependency* dependency) {
  if (params == nullptr || query_index == nullptr || dependency == nullptr) return kErrGeneric;
  std::shared_ptr<const LayoutRecord> layout;
  if (GetLayoutRecords(params, &layout) < 0) return kErrGeneric;
  const int32_t index = *query_index;
  const auto count = int64_t(layout->mCharacters.size());
  if (index < 0 || index >= count) return kErrGeneric;
  TransformValues t;
  if (!ReadTransformAt(params->clip_time, &t)) return kErrGeneric;
  const RecordBox box = BoxOf(layout->mCharacters[size_t(index)], PlanFrame(*layout, t, *params));

  *dependency = GPUDependency{};
  dependency->kind = 2;  // a precompute dependency
  dependency->status = 0;
  dependency->time = params->sequence_time;
  dependency->pixel_format = kPixelFormatBGRA;
  dependency->width = box.empty ? 1 : box.width;
  dependency->height = box.empty ? 1 : box.height;
  dependency->value1 = 1;
  dependency->value2 = 1;
  dependency->value3 = 0;
  dependency->value4 = 1;
  if (index < count - 1) *query_index = index + 1;
  return kGPUOk;
}

int32_t VEFilterTextGPU::PrecomputeRecord(const GPURenderParams* params, int32_t record_index,
                                          RPixHandle buffer) {
  if (params == nullptr) return kErrGeneric;
  const RPixSuite1* pix = KSL::Checked(pix_suite_);
  VxRect bounds{};
  int32_t par_num = 1, par_den = 1, row_bytes = 0;
  void* pixels = nullptr;
  pix->get_bounds(buffer, &bounds);
  pix->get_pixel_aspect(buffer, &par_num, &par_den);
  pix->get_row_bytes(buffer, &row_bytes);
  pix->get_pixels(buffer, kRPixAccessWrite, &pixels);
  if (pixels == nullptr) return kGPUOk;
  const int64_t width = int64_t(bounds.right) - bounds.left;
  const int64_t height = int64_t(bounds.bottom) - bounds.top;
  if (width <= 0 || height <= 0 || row_bytes < width * 4) return kErrGeneric;
  std::memset(pixels, 0, size_t(height) * size_t(row_bytes));
  const bool bottom_up = IR_IsOriginBottomLeft(kIRFormatBGRA8);

  std::shared_ptr<const LayoutRecord> layout;
  if (GetLayoutRecords(params, &layout) < 0) return kErrGeneric;
  // The host only passes indices its dependency queries produced; a damaged one still reads
  // nothing outside the records.
  if (record_index < 0 || size_t(record_index) >= layout->mCharacters.size()) return kErrGeneric;
  TransformValues t;
  if (!ReadTransformAt(params->clip_time, &t)) return kErrGeneric;
  const RecordPlan plan = PlanFrame(*layout, t, *params);
  const CharacterRecord& c = layout->mCharacters[size_t(record_index)];
  const RecordBox box = BoxOf(c, plan);
  if (box.empty) return kGPUOk;
  LayoutRecord one;
  one.mCharacters.push_back(c);
  one.mOverSampling = layout->mOverSampling;
  RasterizeLayout(one, static_cast<uint8_t*>(pixels), row_bytes, bottom_up, int32_t(width),
                  int32_t(height), plan.g.ox + plan.dx - float(box.x0),
                  plan.g.oy + plan.dy - float(box.y0), kPixelFormatBGRA);
  return kGPUOk;
}

int32_t VEFilterTextGPU::RenderFrame(const GPURenderParams* params, const GPUFrameHandle* frames,
                                     uint64_t frame_count, GPUFrameHandle* out_frame) {
  if (params == nullptr || frames == nullptr || frame_count < 1) return kErrGeneric;
  std::shared_ptr<const LayoutRecord> layout;
  if (const int32_t st = GetLayoutRecords(params, &layout); st < 0) return st;

  const MappedFrame target(frames[0]);
  if (out_frame != nullptr) *out_frame = frames[0];  // drawn in place
  if (target.format != kPixelFormatBGRA || target.data == nullptr) return kErrGeneric;
  const GF::DevicePtr device = GF::GetDevice(device_index_);
  if (!device) return kErrGeneric;

  TransformValues t;
  if (!ReadTransformAt(params->clip_time, &t)) return kErrGeneric;
  // The frame as it is, whatever the host said of it before.
  GPURenderParams shown = *params;
  shown.frame_width = target.width;
  shown.frame_height = target.height;
  shown.frame_bottom_up = target.pitch < 0;
  shown.par_num = target.par_num;
  shown.par_den = target.par_den;
  const RecordPlan plan = PlanFrame(*layout, t, shown);
  const int32_t interpolation = InterpolationFor(params->quality);

  for (uint64_t i = 1; i < frame_count; ++i) {
    const MappedFrame image(frames[i]);
    if (i - 1 >= layout->mCharacters.size()) break;  // more images than records: none to place
    const RecordBox box = BoxOf(layout->mCharacters[size_t(i - 1)], plan);
    if (box.empty || image.data == nullptr) continue;
    GF::MotionArgs a;
    a.src = image.data;
    a.src_pitch = image.pitch;
    a.src_width = image.width;
    a.src_height = image.height;
    a.dst = target.data;
    a.dst_pitch = target.pitch;
    a.dst_width = target.width;
    a.dst_height = target.height;
    a.format = kIRFormatBGRA8;
    a.dst_point = plan.p.dst;
    // The whole text's source point, moved into this window of its buffer.
    a.src_point = {float((double(plan.p.src.x) * plan.g.W - box.x0) / image.width),
                   float((double(plan.p.src.y) * plan.g.H - box.y0) / image.height)};
    a.scale = plan.p.scale;
    a.rotation_deg = double(plan.p.rotation);
    a.opacity = plan.p.opacity;
    a.shift_steps = plan.shift_steps;
    a.shift_x = plan.shift_x;
    a.shift_y = plan.shift_y;
    a.interpolation = interpolation;
    if (const int32_t st = GF::Motion(device, a); st < 0) return st;
  }
  return kGPUOk;
}

}  // namespace vetext

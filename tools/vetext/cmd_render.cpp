// `vetext render`: the Text effect over a generated background, a picture, an image sequence or
// a video, through the reference host, into a PNG, a PNG sequence or a video.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <memory>
#include <new>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "commands.h"
#include "doc_options.h"
#include "document/document_json.h"
#include "files.h"
#include "interrupt.h"
#include "keyframes.h"
#include "media_background.h"
#include "media_convert.h"
#include "media_decode.h"
#include "media_encode.h"
#include "media_image.h"
#include "media_progress.h"
#include "overlay_output.h"
#include "params/params.h"
#include "top_down.h"
#include "vetext/host/host.h"

extern "C" {
#include <libavcodec/avcodec.h>
}

namespace vetext_tool {
namespace {

using vetext::kParamAnchorPoint;
using vetext::kParamHorizontalScale;
using vetext::kParamOpacity;
using vetext::kParamPosition;
using vetext::kParamRotation;
using vetext::kParamScale;
using vetext::kParamSourceText;
using vetext::kParamUniformScale;

struct RenderArgs {
  std::string input;
  std::string output = "vetext.png";
  std::string background = "pattern";
  std::string size = "1920x1080";
  double duration = 5.0;
  double fps = 30.0;
  double time = 0.0;
  std::string project;
  std::string save_project;
  std::string format = "bgra";
  std::string module;
  int threads = 1;
  std::string gpu;  // "" (the CPU render), "auto", "cpu" or "cuda"
  std::vector<std::string> position, scale, hscale, rotation, opacity, anchor;
  bool no_uniform = false;
  bool keep_partial = false;
  // `vetext overlay`: one frame with the Transform overlay over it, after scripted drags.
  bool overlay = false;
  std::vector<std::string> drags;
  double zoom = 1;
  DocumentOptions doc;
  // Set after parsing: which options the user gave.
  std::set<std::string> given;
  bool doc_given = false;
};

struct Tracks {
  Track position, scale, hscale, rotation, opacity, anchor;
};

// Frames in flight (--threads of them, each an input, an output and the picture around them)
// may hold at most this many pixels together: about 3 GiB, and one frame of the largest size.
constexpr int64_t kMaxPixelsInFlight = int64_t(kMaxFrameSide) * kMaxFrameSide;
// Without a moving input, a generated video is at most an hour long.
constexpr double kMaxDuration = 3600;

bool ParseSize(const std::string& text, int32_t* w, int32_t* h) {
  return ParseWxH(text, 1, kMaxFrameSide, w, h);
}

bool ParseTracks(const RenderArgs& a, Tracks* t, std::string* error) {
  struct TrackOption {
    const char* name;
    const std::vector<std::string>* values;
    int components;
    Track* track;
  } options[] = {
      {"--position", &a.position, 2, &t->position}, {"--scale", &a.scale, 1, &t->scale},
      {"--hscale", &a.hscale, 1, &t->hscale},       {"--rotation", &a.rotation, 1, &t->rotation},
      {"--opacity", &a.opacity, 1, &t->opacity},    {"--anchor", &a.anchor, 2, &t->anchor}};
  for (const TrackOption& s : options)
    for (const std::string& v : *s.values)
      if (!ParseTrackValue(s.name, v, s.components, s.track, error)) return false;
  return CheckTrackRange("--scale", t->scale, 25, 400, error) &&
         CheckTrackRange("--hscale", t->hscale, 25, 400, error) &&
         CheckTrackRange("--opacity", t->opacity, 0, 100, error);
}

void ApplyTrack(vxhost::Instance& inst, int32_t index, const Track& track) {
  auto value = [](const KeyValue& k) {
    vxhost::ParamValue v;
    v.x = k.x;
    v.y = k.y;
    return v;
  };
  if (track.constant) inst.SetValue(index, value(*track.constant));
  for (const auto& [time, k] : track.keys) inst.SetValue(index, value(k), time);
}

// Renders frames through one instance, several at a time when asked. Each slot keeps its own
// host frames so that nothing is allocated per frame.
class FrameRenderer {
 public:
  // `gpu_device` >= 0 renders through the GPU path on that device (one frame at a time: the
  // GPU path keeps one device frame per instance).
  //
  // `in_place` renders 'bgra' pictures where they lie, as top-down frames (the instance must
  // hold its values stated for them, see top_down.h): no copy into a host frame, none for the
  // effect's output, none back.
  FrameRenderer(vxhost::Instance& inst, int32_t w, int32_t h, uint32_t format, int threads,
                int32_t gpu_device, bool in_place)
      : inst_(inst), gpu_device_(gpu_device), in_place_(in_place) {
    if (gpu_device >= 0) threads = 1;
    for (int i = 0; i < threads; ++i)
      slots_.push_back(std::make_unique<Slot>(in_place ? 0 : w, in_place ? 0 : h, format));
  }
  size_t capacity() const { return slots_.size(); }

  // Renders `images[i]` at `times[i]` in place, for i < images.size() <= capacity().
  bool Render(std::vector<Image>& images, const std::vector<double>& times, std::string* error) {
    const size_t n = images.size();
    std::vector<std::thread> workers;
    for (size_t i = 1; i < n; ++i)
      workers.emplace_back([&, i] { RenderOne(*slots_[i], images[i], times[i]); });
    RenderOne(*slots_[0], images[0], times[0]);
    for (auto& w : workers) w.join();
    for (size_t i = 0; i < n; ++i) {
      if (slots_[i]->status != 0) {
        char buf[96];
        if (slots_[i]->status < 0)  // the GPU filter's statuses read best in hex
          std::snprintf(buf, sizeof buf,
                        "the effect's GPU filter failed at %.3f s with status 0x%08x", times[i],
                        unsigned(slots_[i]->status));
        else
          std::snprintf(buf, sizeof buf, "the effect failed at %.3f s with status %d", times[i],
                        int(slots_[i]->status));
        *error = buf;
        const char* msg = inst_.last_output().message;
        if (msg[0] != 0) *error += std::string(": ") + msg;
        if (slots_[i]->status == kStatusOutOfMemory)
          *error +=
              " (out of memory: the text is too large to draw at this size; use a smaller "
              "--size, a --box to wrap it, or less text)";
        return false;
      }
    }
    return true;
  }

 private:
  struct Slot {
    Slot(int32_t w, int32_t h, uint32_t format) : in(w, h, format), out(w, h, format) {}
    vxhost::Frame in, out;
    VxStatus status = 0;
  };
  void RenderOne(Slot& s, Image& image, double time) {
    if (in_place_) {
      vxhost::Frame view =
          vxhost::Frame::View(image.row(0), image.width, image.height, int32_t(image.stride()));
      s.status = inst_.Render(time, view, view);
      return;
    }
    ImageToFrame(image, s.in);
    s.status = gpu_device_ >= 0 ? inst_.RenderGPU(time, s.in, s.out, gpu_device_)
                                : inst_.Render(time, s.in, s.out);
    if (s.status == 0) FrameToImage(s.out, &image);
  }
  vxhost::Instance& inst_;
  int32_t gpu_device_;
  bool in_place_;
  std::vector<std::unique_ptr<Slot>> slots_;
};

// The device of `--gpu NAME`: auto (the first GPU, else the cpu device), cpu or cuda.
bool ResolveGpuDevice(const std::string& name, int32_t* index, std::string* error) {
  if (name.empty() || name == "auto") {
    const GF::DevicePtr primary = GF::GetPrimaryDevice();
    *index = primary ? primary->Index() : 0;
    return true;
  }
  if (name == "cpu") {
    *index = 0;
    return true;
  }
  if (name == "cuda") {
    const GF::DevicePtr primary = GF::GetPrimaryDevice();
    if (!primary) {
      *error = "--gpu cuda: no CUDA device (" + GF::CudaUnavailableReason() + ")";
      return false;
    }
    *index = primary->Index();
    return true;
  }
  *error = "bad --gpu '" + name + "': expected auto, cpu or cuda";
  return false;
}

int RunRender(RenderArgs& a) {
  std::string error;
  // ---- options ------------------------------------------------------------------------------
  Tracks tracks;
  if (!ParseTracks(a, &tracks, &error)) return FailOption(error);
  uint32_t format;
  if (a.format == "bgra") {
    format = kPixelFormatBGRA;
  } else if (a.format == "vuya") {
    format = kPixelFormatVUYA;
  } else {
    return FailOption("bad --format '" + a.format + "': expected bgra or vuya");
  }
  if (a.threads < 1 || a.threads > 64) return FailOption("--threads must be 1 to 64");
  int32_t gpu_device = -1;
  if (a.given.count("--gpu")) {
    if (format != kPixelFormatBGRA) return FailOption("--gpu renders 'bgra' frames only");
    if (a.overlay) return FailOption("the overlay is drawn over the CPU render; leave out --gpu");
    if (!ResolveGpuDevice(a.gpu, &gpu_device, &error)) return FailOption(error);
  }
  if (!(a.fps > 0 && a.fps <= 1000)) return FailOption("--fps must be above 0 and at most 1000");
  if (!(a.duration > 0 && a.duration <= 86400))
    return FailOption("--duration must be above 0 and at most 86400 s");
  if (!(a.time >= 0 && a.time <= 86400)) return FailOption("--time must be 0 to 86400 s");
  OutputKind kind = OutputKind::kStill;
  std::vector<OverlayDrag> drags;
  if (a.overlay) {
    const std::string ext = FileExtension(a.output);
    if (ext != "svg" && ext != "png")
      return FailOption("the overlay is written as .svg or .png, not '" + a.output + "'");
    if (!(a.zoom >= 0.05 && a.zoom <= 16)) return FailOption("--zoom must be 0.05 to 16");
    for (const std::string& d : a.drags) {
      drags.emplace_back();
      if (!ParseDrag(d, &drags.back(), &error)) return FailOption(error);
    }
  } else if (!ClassifyOutput(a.output, &kind, &error)) {
    return FailOption(error);
  }
  if (a.given.count("--time") && kind != OutputKind::kStill)
    return FailOption("--time picks the picture of a single-picture output; use a .png output");
  Background bg;
  if (!ParseBackground(a.background, &bg, &error)) return FailOption(error);
  int32_t width = 0, height = 0;
  if (!ParseSize(a.size, &width, &height))
    return FailOption("bad frame size '" + a.size + "': expected WxH, 1 to " +
                      std::to_string(kMaxFrameSide) + " each");

  // ---- input --------------------------------------------------------------------------------
  std::unique_ptr<MediaReader> reader;
  if (!a.input.empty()) {
    if (a.given.count("background")) return FailOption("--background applies only without --input");
    if (a.given.count("size"))
      return FailOption("the frame size comes from --input; leave out the size");
    if (SameFile(a.input, a.output) ||
        (kind == OutputKind::kSequence && SameFile(a.input, SequenceFileName(a.output, 1))))
      return FailOption("the output '" + a.output + "' is the input; write to another file");
    reader = std::make_unique<MediaReader>();
    if (!reader->Open(a.input, &error)) return Fail(error);
    width = reader->width();
    height = reader->height();
    if (!reader->is_still() && a.given.count("--fps"))
      return FailOption("the frame rate comes from --input; leave out --fps");
  }
  const bool moving_input = reader != nullptr && !reader->is_still();
  if (!moving_input && kind != OutputKind::kStill && a.duration > kMaxDuration)
    return FailOption("--duration is at most " + std::to_string(int(kMaxDuration)) +
                      " s for a generated video; render longer videos in parts");
  // Memory is bounded by the frames in flight: fewer threads for large frames.
  const int64_t max_threads = std::max<int64_t>(1, kMaxPixelsInFlight / (int64_t(width) * height));
  if (a.threads > max_threads)
    return FailOption("--threads " + std::to_string(a.threads) + " with " + std::to_string(width) +
                      "x" + std::to_string(height) +
                      " frames holds too many pixels at once; at this size use at most " +
                      std::to_string(max_threads));

  // ---- the effect ---------------------------------------------------------------------------
  vxhost::Host host;
  std::string module_path = a.module.empty() ? vxhost::DefaultModulePath() : a.module;
  std::unique_ptr<vxhost::Module> module = host.Load(module_path, &error);
  if (!module) return Fail("cannot load the effect module '" + module_path + "': " + error);
  if (VxStatus st = module->Setup(); st != 0) {
    std::string msg = module->last_output().message;
    return Fail("the effect module failed to start (status " + std::to_string(st) + ")" +
                (msg.empty() ? "" : ": " + msg));
  }
  std::unique_ptr<vxhost::Instance> inst = module->CreateInstance();
  if (!inst) return Fail("the effect module could not create an instance");

  if (!a.project.empty()) {
    std::vector<uint8_t> bytes;
    if (!ReadInputFile(a.project, kMaxDocumentFileBytes, &bytes, &error))
      return Fail("cannot load project: " + error);
    if (!inst->LoadProject(bytes.data(), bytes.size(), &error))
      return Fail("cannot load project '" + a.project + "': " + error);
  }
  if (a.project.empty() || a.doc_given) {
    try {
      vetext::DocumentRecord doc = BuildDocument(a.doc);
      vxhost::ParamValue v;
      v.bytes = vetext::WriteDocumentBlock(doc);
      inst->SetValue(kParamSourceText, v);
      // Box text hangs from its top-left corner, so the default position (the frame's centre)
      // would put the box's corner there and run the text off the frame: a box the user has
      // not placed is centred instead. A project's own position stays.
      const vetext::TextParam& box = doc.mTextParam;
      if (a.project.empty() && tracks.position.empty() && box.mWidth > 0 && box.mHeight > 0) {
        vxhost::ParamValue centred;
        centred.x = (double(width) - box.mWidth) / 2;
        centred.y = (double(height) - box.mHeight) / 2;
        inst->SetValue(kParamPosition, centred);
      }
    } catch (const OptionError& e) {
      return FailOption(e.what());
    } catch (const std::exception& e) {
      return Fail(e.what());
    }
  }
  ApplyTrack(*inst, kParamPosition, tracks.position);
  ApplyTrack(*inst, kParamScale, tracks.scale);
  ApplyTrack(*inst, kParamHorizontalScale, tracks.hscale);
  ApplyTrack(*inst, kParamRotation, tracks.rotation);
  ApplyTrack(*inst, kParamOpacity, tracks.opacity);
  ApplyTrack(*inst, kParamAnchorPoint, tracks.anchor);
  if (a.no_uniform || !tracks.hscale.empty()) {
    vxhost::ParamValue off;
    off.flag = false;
    inst->SetValue(kParamUniformScale, off);
  }
  if (a.overlay) {
    // The viewer shows the layer at --zoom; the drags go through it as a user's would, so a
    // saved project holds what they did.
    inst->SetLayerSize(width, height);
    host.viewer() = vxhost::ViewerTransform{a.zoom, 0, 0};
    for (const OverlayDrag& d : drags)
      if (!ApplyDrag(host, *inst, d, a.time, &error)) return Fail(error);
  }
  if (!a.save_project.empty()) {
    const std::vector<uint8_t> project = inst->SaveProject();
    if (!WriteOutputFile(a.save_project, project.data(), project.size(), &error))
      return Fail(error);
  }
  // The CPU render of 'bgra' pictures draws into them where they lie; the overlay (drawn from
  // the values as the user gave them) and the GPU path keep host frames.
  const bool in_place = format == kPixelFormatBGRA && !a.overlay && gpu_device < 0;
  if (in_place) {
    inst->SetLayerSize(width, height);  // defaults in percent of the layer become pixels
    StateForTopDownFrames(*inst);
  }

  // ---- frames -------------------------------------------------------------------------------
  AVRational fps = moving_input ? reader->frame_rate() : av_d2q(a.fps, 100000);
  int64_t total;  // frames to produce; 0 when the input does not say
  if (kind == OutputKind::kStill) {
    total = 1;
  } else if (moving_input) {
    int64_t cap = a.given.count("--duration") ? int64_t(std::llround(a.duration * av_q2d(fps))) : 0;
    total = reader->frame_count();
    if (cap > 0) total = total > 0 ? std::min(total, cap) : cap;
  } else {
    total = std::max<int64_t>(1, std::llround(a.duration * av_q2d(fps)));
  }
  const int64_t limit = moving_input && !a.given.count("--duration") ? INT64_MAX : total;

  // The still picture (input or generated) under every frame when nothing moves.
  Image still;
  double still_time = 0;
  if (reader && reader->is_still()) {
    int got = reader->Next(&still, &still_time, &error);
    if (got <= 0) return Fail(got < 0 ? error : "cannot read a picture from '" + a.input + "'");
  } else if (!reader) {
    still.Resize(width, height);
    DrawBackground(bg, &still);
  }

  std::unique_ptr<VideoWriter> writer;
  if (kind == OutputKind::kVideo) {
    writer = std::make_unique<VideoWriter>();
    if (!writer->Open(a.output, width, height, fps, moving_input ? reader->audio_stream() : nullptr,
                      &error, moving_input ? reader->start_time() : 0))
      return Fail(error);
    if (writer->audio_dropped())
      std::fprintf(stderr,
                   "vetext: warning: the input's audio cannot go into '%s' (%s) and is left out\n",
                   a.output.c_str(), writer->audio_drop_reason().c_str());
  }

  auto pass_audio = [&]() {
    if (!writer || !reader) return true;
    auto& q = reader->audio_packets();
    while (!q.empty()) {
      AVPacket* p = q.front();
      q.pop_front();
      if (!writer->WriteAudio(p, &error)) return false;
    }
    return true;
  };

  // A single picture: the frame at --time.
  if (kind == OutputKind::kStill) {
    Image frame;
    double t = a.time;
    if (moving_input) {
      // The last frame that starts at or before the time asked for (within half a frame).
      const double slack = 0.5 / av_q2d(fps);
      Image next;
      double nt = 0;
      bool have = false;
      for (;;) {
        int got = reader->Next(&next, &nt, &error);
        if (got < 0) return Fail(error);
        if (got == 0) break;
        if (have && nt > a.time + slack) break;
        std::swap(frame, next);
        t = nt;
        have = true;
        if (nt >= a.time - slack) break;
      }
      if (!have) return Fail("no picture in '" + a.input + "'");
    } else {
      frame = still;
    }
    FrameRenderer renderer(*inst, width, height, format, 1, gpu_device, in_place);
    std::vector<Image> batch{std::move(frame)};
    if (!renderer.Render(batch, {t}, &error)) return Fail(error);
    if (a.overlay) {
      if (!WriteOverlay(a.output, batch[0], DrawOverlay(host, *inst, t), a.zoom, &error))
        return Fail(error);
    } else if (!WritePng(a.output, batch[0], &error)) {
      return Fail(error);
    }
    return 0;
  }

  // Many pictures: batches of --threads frames rendered in parallel, written in order. Ctrl-C
  // stops at the next batch; the destination stays as it was unless --keep-partial asks for
  // the frames so far.
  InterruptScope interrupt;
  FrameRenderer renderer(*inst, width, height, format, a.threads, gpu_device, in_place);
  ProgressBar progress(total, ProgressBar::StderrIsTerminal());
  int64_t done = 0;
  bool end = false;
  std::vector<Image> batch;
  std::vector<double> times;
  while (!end && done < limit && !InterruptScope::Requested()) {
    batch.clear();
    times.clear();
    while (batch.size() < renderer.capacity() && done + int64_t(batch.size()) < limit) {
      Image img;
      double t;
      if (moving_input) {
        int got = reader->Next(&img, &t, &error);
        if (got < 0) return Fail(error);
        if (got == 0) {
          end = true;
          break;
        }
      } else {
        img = still;
        t = double(done + int64_t(batch.size())) / av_q2d(fps);
      }
      batch.push_back(std::move(img));
      times.push_back(t);
    }
    if (batch.empty()) break;
    if (!renderer.Render(batch, times, &error)) return Fail(error);
    for (size_t i = 0; i < batch.size(); ++i) {
      if (writer) {
        if (!pass_audio() || !writer->WriteFrame(batch[i], &error)) return Fail(error);
      } else if (kind == OutputKind::kSequence &&
                 !WritePng(SequenceFileName(a.output, done + 1), batch[i], &error)) {
        return Fail(error);
      }
      ++done;
      progress.Update(done);
    }
  }
  progress.Finish();
  if (InterruptScope::Requested()) {
    if (!writer) {
      std::fprintf(stderr, "vetext: interrupted after %lld pictures\n",
                   static_cast<long long>(done));
    } else if (a.keep_partial && done > 0 && pass_audio() && writer->Finish(&error)) {
      std::fprintf(stderr, "vetext: interrupted; '%s' holds the first %lld frames\n",
                   a.output.c_str(), static_cast<long long>(done));
    } else {
      std::fprintf(stderr, "vetext: interrupted; '%s' is left as it was\n", a.output.c_str());
    }
    return kExitInterrupted;
  }
  if (done == 0) return Fail("no picture in '" + a.input + "'");
  if (writer && (!pass_audio() || !writer->Finish(&error))) return Fail(error);
  if (writer && writer->audio_packets_skipped() > 0)
    std::fprintf(stderr,
                 "vetext: warning: %lld audio packets of '%s' did not decode and are silent\n",
                 static_cast<long long>(writer->audio_packets_skipped()), a.input.c_str());
  return 0;
}

// `render` and `overlay` share every option; the overlay adds its drags and zoom.
void AddCommand(CLI::App& app, bool overlay) {
  auto args = std::make_shared<RenderArgs>();
  args->overlay = overlay;
  CLI::App* sub =
      overlay ? app.add_subcommand(
                    "overlay",
                    "Render one frame as `render` does and write it with the Transform overlay the "
                    "effect draws in a viewer (the box, its handles, the rotation knob and the "
                    "anchor) as overlay.svg or a .png, optionally after scripted drags")
              : app.add_subcommand(
                    "render",
                    "Render the Text effect over a generated background, a picture, an image "
                    "sequence or a video, into a PNG, a PNG sequence (out_%04d.png) or a video "
                    "(.mp4, .mkv, .mov).");
  if (overlay) {
    args->output = "overlay.svg";
    sub->add_option("--drag", args->drags,
                    "ZONE:DX,DY: press a zone of the box and drag it by DX,DY viewer pixels "
                    "(top-left, top-right, bottom-left, bottom-right, left, right, top, bottom, "
                    "inside, anchor, rotate, knob); repeatable, applied in order before the "
                    "frame is drawn and the project saved")
        ->group("Overlay");
    sub->add_option("--zoom", args->zoom, "Viewer zoom (1: one viewer pixel per layer pixel)")
        ->capture_default_str()
        ->group("Overlay");
  }
  AddDocumentOptions(*sub, args->doc);
  std::set<const CLI::Option*> doc_options;
  for (const CLI::Option* o : sub->get_options()) doc_options.insert(o);

  const std::string media = "Input and output";
  sub->add_option("-i,--input", args->input,
                  "Picture, image sequence (frame_%04d.png) or video to draw over; none: a "
                  "generated background")
      ->group(media);
  sub->add_option("-o,--output", args->output,
                  "vetext.png (one picture), a pattern like out_%04d.png, a video file, or null: "
                  "(render every frame and write nothing, for timing)")
      ->capture_default_str()
      ->group(media);
  sub->add_option("--background", args->background,
                  "Without --input: pattern (colour bars and a grid), color:#RRGGBB, gradient or "
                  "gradient:#RRGGBB,#RRGGBB")
      ->capture_default_str()
      ->group(media);
  // "--size" is the document options' font size; given as WxH it is the frame size too.
  sub->add_option("--frame-size", args->size, "Without --input: frame size WxH (also --size WxH)")
      ->capture_default_str()
      ->group(media);
  sub->add_option("--duration", args->duration,
                  "Seconds of video without a moving input; with one, stop after this long")
      ->capture_default_str()
      ->group(media);
  sub->add_option("--fps", args->fps, "Frames per second without a moving input")
      ->capture_default_str()
      ->group(media);
  sub->add_option("--time", args->time, "Seconds: the moment a single-picture output shows")
      ->capture_default_str()
      ->group(media);
  sub->add_option("--format", args->format,
                  "Pixel format handed to the effect: bgra or vuya (BT.709 full range)")
      ->capture_default_str()
      ->group(media);
  sub->add_option("--threads", args->threads, "Frames rendered at once")
      ->capture_default_str()
      ->group(media);
  if (!overlay)
    sub->add_option("--gpu", args->gpu,
                    "Render through the effect's GPU path on a device: auto (a GPU when there is "
                    "one, else the cpu device), cpu or cuda; 'bgra' frames, one at a time")
        ->expected(0, 1);
  sub->add_option("--module", args->module, "The effect module to load (default: the built one)")
      ->group(media);
  sub->add_flag("--keep-partial", args->keep_partial,
                "On Ctrl-C, finish the video with the frames so far instead of leaving the "
                "output as it was")
      ->group(media);

  const std::string project = "Project";
  sub->add_option("--project", args->project,
                  "Start from a saved project; options given here override its values")
      ->group(project);
  sub->add_option("--save-project", args->save_project, "Save the parameters and document here")
      ->group(project);

  const std::string transform =
      "Transform (each a constant, or keyframes T=V in seconds, repeated or as 'T=V;T=V', linear "
      "between keys)";
  sub->add_option("--position", args->position,
                  "X,Y layer pixels where the text's alignment point goes: the line's start, "
                  "centre or end for point text, the box's top-left corner for box text "
                  "(default: the frame's centre; an unplaced box is centred)")
      ->group(transform);
  sub->add_option("--scale", args->scale, "Percent, 25 to 400 (vertical when not uniform)")
      ->group(transform);
  sub->add_option("--hscale", args->hscale, "Horizontal percent, 25 to 400 (implies --no-uniform)")
      ->group(transform);
  sub->add_flag("--no-uniform", args->no_uniform, "Scale the axes separately")->group(transform);
  sub->add_option("--rotation", args->rotation, "Degrees, clockwise")->group(transform);
  sub->add_option("--opacity", args->opacity, "Percent, 0 to 100")->group(transform);
  sub->add_option("--anchor", args->anchor,
                  "X,Y layer pixels about which rotation turns the text (default: the centre); "
                  "scale keeps the alignment point on --position")
      ->group(transform);
  for (CLI::Option* o :
       {sub->get_option("--position"), sub->get_option("--scale"), sub->get_option("--hscale"),
        sub->get_option("--rotation"), sub->get_option("--opacity"), sub->get_option("--anchor")})
    o->allow_extra_args(false)->take_all()->type_size(1)->expected(1);

  sub->final_callback([sub, args, doc_options]() {
    if (args->doc.frame_size) {
      if (sub->get_option("--frame-size")->count() > 0) {
        SetExitStatus(FailOption("--size WxH and --frame-size both give the frame size; keep one"));
        return;
      }
      args->size = *args->doc.frame_size;
      args->doc.frame_size.reset();
      args->given.insert("size");
    }
    for (const CLI::Option* o : sub->get_options()) {
      if (o->count() == 0) continue;
      if (doc_options.count(o)) {
        // A frame size given as --size WxH leaves the document alone.
        const bool font_size = o->get_name() != "--size" || args->doc.size.has_value();
        if (o->get_name() != "--help" && font_size) args->doc_given = true;
      } else {
        args->given.insert(o->get_name());
      }
    }
    if (args->given.count("--size") || args->given.count("--frame-size"))
      args->given.insert("size");
    if (args->given.count("--background")) args->given.insert("background");
    try {
      SetExitStatus(RunRender(*args));
    } catch (const std::bad_alloc&) {
      SetExitStatus(Fail("out of memory at frame size " + args->size + " with " +
                         std::to_string(args->threads) +
                         (args->threads == 1 ? " thread" : " threads") +
                         "; use fewer --threads, a smaller frame or less text"));
    }
  });
}

void Register(CLI::App& app) {
  AddCommand(app, false);
}
void RegisterOverlay(CLI::App& app) {
  AddCommand(app, true);
}

const Registrar registrar("render", 10, Register);
const Registrar overlay_registrar("overlay", 11, RegisterOverlay);

}  // namespace
}  // namespace vetext_tool

// The frei0r entry points of vetext.so. Each one catches everything: a client (ffmpeg, melt,
// GStreamer) must never see an exception, so failures become a message on stderr and, in
// f0r_update, the input frame passed through unchanged.
#include <dlfcn.h>
// frei0r.h declares the entry points without C linkage of its own.
extern "C" {
#include <frei0r.h>
}

#include <cstdio>
#include <cstring>
#include <exception>
#include <new>
#include <string>

#include "text_filter.h"

#define VETEXT_FREI0R_EXPORT extern "C" __attribute__((visibility("default")))

namespace {

using vetext_frei0r::ParamKind;
using vetext_frei0r::TextFilter;
using vetext_frei0r::Value;

void Complain(const char* what, const char* reason) {
  std::fprintf(stderr, "vetext frei0r filter: %s: %s\n", what, reason);
}

std::string FilterPath() {
  Dl_info info{};
  if (dladdr(reinterpret_cast<void*>(&f0r_init), &info) != 0 && info.dli_fname != nullptr)
    return info.dli_fname;
  return "";
}

// Runs `fn`, turning any exception into a message; false when one was thrown.
template <typename Fn>
bool Guard(const char* what, Fn&& fn) {
  try {
    fn();
    return true;
  } catch (const std::bad_alloc&) {
    Complain(what, "out of memory");
  } catch (const std::exception& e) {
    Complain(what, e.what());
  }
  return false;
}

// frei0r gives the time in seconds, and MLT and GStreamer keep to that; FFmpeg's frei0r filter
// has always passed milliseconds. The caller is told apart by the library the call comes from.
double ClientSeconds(double time, const void* caller) {
  Dl_info info{};
  if (dladdr(caller, &info) != 0 && info.dli_fname != nullptr &&
      std::strstr(info.dli_fname, "libavfilter") != nullptr)
    return time / 1000.0;
  return time;
}

bool ValidIndex(int index) {
  return index >= 0 && size_t(index) < vetext_frei0r::Params().size();
}

}  // namespace

VETEXT_FREI0R_EXPORT int f0r_init(void) {
  bool loaded = false;
  Guard("init", [&] {
    std::string error;
    loaded = vetext_frei0r::LoadSharedModule(FilterPath(), &error);
    if (!loaded) Complain("init", error.c_str());
  });
  return loaded ? 1 : 0;
}

VETEXT_FREI0R_EXPORT void f0r_deinit(void) {
  Guard("deinit", [] { vetext_frei0r::UnloadSharedModule(); });
}

VETEXT_FREI0R_EXPORT void f0r_get_plugin_info(f0r_plugin_info_t* info) {
  if (info == nullptr) return;
  info->name = "vetext";
  info->author = "vetext developers";
  info->plugin_type = F0R_PLUGIN_TYPE_FILTER;
  info->color_model = F0R_COLOR_MODEL_RGBA8888;
  info->frei0r_version = FREI0R_MAJOR_VERSION;
  info->major_version = 0;
  info->minor_version = 1;
  info->num_params = int(vetext_frei0r::Params().size());
  info->explanation = "Styled text over the frame, drawn by the vetext Text effect";
}

VETEXT_FREI0R_EXPORT void f0r_get_param_info(f0r_param_info_t* info, int index) {
  if (info == nullptr || !ValidIndex(index)) return;
  const vetext_frei0r::ParamInfo& p = vetext_frei0r::Params()[size_t(index)];
  info->name = p.name;
  info->explanation = p.explanation;
  switch (p.kind) {
    case ParamKind::kString:
      info->type = F0R_PARAM_STRING;
      break;
    case ParamKind::kDouble:
      info->type = F0R_PARAM_DOUBLE;
      break;
    case ParamKind::kColor:
      info->type = F0R_PARAM_COLOR;
      break;
    case ParamKind::kPosition:
      info->type = F0R_PARAM_POSITION;
      break;
  }
}

VETEXT_FREI0R_EXPORT f0r_instance_t f0r_construct(unsigned int width, unsigned int height) {
  TextFilter* filter = nullptr;
  Guard("construct", [&] {
    std::string error;
    filter = TextFilter::Create(width, height, &error).release();
    if (filter == nullptr) Complain("construct", error.c_str());
  });
  return filter;
}

VETEXT_FREI0R_EXPORT void f0r_destruct(f0r_instance_t instance) {
  Guard("destruct", [&] { delete static_cast<TextFilter*>(instance); });
}

VETEXT_FREI0R_EXPORT void f0r_set_param_value(f0r_instance_t instance, f0r_param_t param,
                                              int index) {
  if (instance == nullptr || param == nullptr || !ValidIndex(index)) return;
  Guard("set parameter", [&] {
    Value v;
    switch (vetext_frei0r::Params()[size_t(index)].kind) {
      case ParamKind::kString: {
        const char* text = *static_cast<f0r_param_string*>(param);
        v.text = text != nullptr ? text : "";
        break;
      }
      case ParamKind::kDouble:
        v.v[0] = *static_cast<f0r_param_double*>(param);
        break;
      case ParamKind::kColor: {
        const auto* c = static_cast<f0r_param_color_t*>(param);
        v.v[0] = c->r, v.v[1] = c->g, v.v[2] = c->b;
        break;
      }
      case ParamKind::kPosition: {
        const auto* p = static_cast<f0r_param_position_t*>(param);
        v.v[0] = p->x, v.v[1] = p->y;
        break;
      }
    }
    static_cast<TextFilter*>(instance)->Set(index, v);
  });
}

VETEXT_FREI0R_EXPORT void f0r_get_param_value(f0r_instance_t instance, f0r_param_t param,
                                              int index) {
  if (instance == nullptr || param == nullptr || !ValidIndex(index)) return;
  Guard("get parameter", [&] {
    auto* filter = static_cast<TextFilter*>(instance);
    switch (vetext_frei0r::Params()[size_t(index)].kind) {
      case ParamKind::kString:
        // The text stays owned by the filter, valid until the parameter is set again.
        *static_cast<f0r_param_string*>(param) = const_cast<char*>(filter->Text(index));
        break;
      case ParamKind::kDouble:
        *static_cast<f0r_param_double*>(param) = filter->Get(index).v[0];
        break;
      case ParamKind::kColor: {
        const Value v = filter->Get(index);
        *static_cast<f0r_param_color_t*>(param) = {float(v.v[0]), float(v.v[1]), float(v.v[2])};
        break;
      }
      case ParamKind::kPosition: {
        const Value v = filter->Get(index);
        *static_cast<f0r_param_position_t*>(param) = {v.v[0], v.v[1]};
        break;
      }
    }
  });
}

VETEXT_FREI0R_EXPORT void f0r_update(f0r_instance_t instance, double time, const uint32_t* inframe,
                                     uint32_t* outframe) {
  if (instance == nullptr || inframe == nullptr || outframe == nullptr) return;
  auto* filter = static_cast<TextFilter*>(instance);
  const double seconds = ClientSeconds(time, __builtin_return_address(0));
  if (!Guard("update", [&] { filter->Update(seconds, inframe, outframe); }) && inframe != outframe)
    std::memcpy(outframe, inframe, filter->frame_bytes());
}

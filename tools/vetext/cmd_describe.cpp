// `vetext describe`: the effect as a host sees it after setup: its name, category and parameters.
#include <cstdio>
#include <memory>
#include <string>

#include "commands.h"
#include "vetext/host/host.h"
#include "vetext/vxcore.h"

namespace vetext_tool {
namespace {

struct DescribeArgs {
  std::string module;
  bool json = false;
};

const char* TypeName(ParamType t, bool json) {
  switch (t) {
    case kParamTypeLayer:
      return "layer";
    case kParamTypeFixedSlider:
      return "slider";
    case kParamTypeAngle:
      return "angle";
    case kParamTypeCheckbox:
      return "checkbox";
    case kParamTypePoint:
      return "point";
    case kParamTypeArbitrary:
      return json ? "arbitraryData" : "arbitrary data";
    case kParamTypeGroupStart:
      return json ? "groupStart" : "group start";
    case kParamTypeGroupEnd:
      return json ? "groupEnd" : "group end";
    default:
      return "unknown";
  }
}

double Fixed(VxFixed v) {
  return v / 65536.0;
}

std::string Num(double v) {
  char buf[32];
  std::snprintf(buf, sizeof buf, "%g", v);
  return buf;
}

std::string Label(const ParamDef& p) {
  std::string name(p.name, strnlen(p.name, sizeof p.name));
  // A checkbox carries its name beside the box; its row label may be blank.
  if (name.empty() && p.param_type == kParamTypeCheckbox && p.u.bd.name != nullptr)
    name = p.u.bd.name;
  return name;
}

vxcore::VariantPtr V(double v) {
  return vxcore::MakeVariant(v);
}
vxcore::VariantPtr V(int64_t v) {
  return vxcore::MakeVariant(v);
}
vxcore::VariantPtr V(bool v) {
  return vxcore::MakeVariant(v);
}
vxcore::VariantPtr V(const std::string& v) {
  return vxcore::MakeVariant(v);
}
vxcore::VariantPtr Pair(double a, double b) {
  vxcore::VariantPtr arr = vxcore::MakeArray();
  vxcore::AppendToArray(arr, V(a));
  vxcore::AppendToArray(arr, V(b));
  return arr;
}

int RunDescribe(const DescribeArgs& a) {
  vxhost::Host host;
  std::string error;
  const std::string path = a.module.empty() ? vxhost::DefaultModulePath() : a.module;
  std::unique_ptr<vxhost::Module> m = host.Load(path, &error);
  if (!m) return Fail("cannot load the effect module '" + path + "': " + error);
  if (VxStatus st = m->Setup(); st != kStatusOk) {
    const OutputRecord& out = m->last_output();
    std::string message(out.message, strnlen(out.message, sizeof out.message));
    return Fail("the effect failed to set up (status " + std::to_string(st) + ")" +
                (message.empty() ? "" : ": " + message));
  }
  std::unique_ptr<vxhost::Instance> inst = m->CreateInstance();
  const std::vector<ParamDef>& params = m->params();

  // The module's own description: its name is a string resource (English text after the last
  // '='), the category where hosts list it.
  std::string name = m->Info("name"), category = m->Info("category");
  name = name.substr(name.rfind('=') + 1);  // the whole string when it has no '='
  if (name.empty() || category.empty())
    return Fail("the effect module '" + path + "' does not say its name and category");
  if (a.json) {
    vxcore::VariantPtr root = vxcore::MakeObject();
    vxcore::AddToObject(root, "name", V(name));
    vxcore::AddToObject(root, "category", V(category));
    vxcore::VariantPtr list = vxcore::MakeArray();
    for (size_t i = 0; i < params.size(); ++i) {
      const ParamDef& p = params[i];
      vxcore::VariantPtr o = vxcore::MakeObject();
      vxcore::AddToObject(o, "index", V(int64_t(i)));
      vxcore::AddToObject(o, "id", V(int64_t(p.id)));
      vxcore::AddToObject(o, "label", V(Label(p)));
      vxcore::AddToObject(o, "type", V(std::string(TypeName(p.param_type, true))));
      vxcore::AddToObject(o, "flags", V(int64_t(p.flags)));
      vxcore::AddToObject(o, "uiFlags", V(int64_t(p.ui_flags)));
      switch (p.param_type) {
        case kParamTypeFixedSlider:
          vxcore::AddToObject(o, "default", V(Fixed(p.u.fd.dephault)));
          vxcore::AddToObject(o, "validRange",
                              Pair(Fixed(p.u.fd.valid_min), Fixed(p.u.fd.valid_max)));
          vxcore::AddToObject(o, "sliderRange",
                              Pair(Fixed(p.u.fd.slider_min), Fixed(p.u.fd.slider_max)));
          vxcore::AddToObject(o, "precision", V(int64_t(p.u.fd.precision)));
          vxcore::AddToObject(o, "percent", V(p.u.fd.display_flags == 1));
          break;
        case kParamTypeAngle:
          vxcore::AddToObject(o, "default", V(Fixed(p.u.ad.dephault)));
          break;
        case kParamTypeCheckbox:
          vxcore::AddToObject(o, "default", V(p.u.bd.dephault != 0));
          break;
        case kParamTypePoint:
          vxcore::AddToObject(o, "default",
                              Pair(Fixed(p.u.td.x_dephault), Fixed(p.u.td.y_dephault)));
          vxcore::AddToObject(o, "restrictToBounds", V(p.u.td.restrict_bounds != 0));
          break;
        case kParamTypeArbitrary:
          if (inst)
            vxcore::AddToObject(o, "defaultBytes",
                                V(int64_t(inst->ValueAt(int32_t(i), 0).bytes.size())));
          break;
        default:
          break;
      }
      vxcore::AppendToArray(list, o);
    }
    vxcore::AddToObject(root, "params", list);
    vxcore::VariantPtr devices = vxcore::MakeArray();
    for (const GF::DevicePtr& d : GF::Devices()) {
      vxcore::VariantPtr o = vxcore::MakeObject();
      vxcore::AddToObject(o, "index", V(int64_t(d->Index())));
      vxcore::AddToObject(o, "kind", V(std::string(d->Kind())));
      vxcore::AddToObject(o, "name", V(d->Name()));
      vxcore::AppendToArray(devices, o);
    }
    vxcore::AddToObject(root, "gpuDevices", devices);
    const std::string text = vxcore::UTF16ToUTF8(vxcore::GetJSONString(root, true));
    std::printf("%s\n", text.c_str());
    return 0;
  }

  std::printf("name: %s\ncategory: %s\n\n", name.c_str(), category.c_str());
  std::printf("%-5s %-3s %-18s %-15s %-6s %-8s %-14s %-16s %-16s %s\n", "index", "id", "label",
              "type", "flags", "ui flags", "default", "valid range", "slider range", "precision");
  for (size_t i = 0; i < params.size(); ++i) {
    const ParamDef& p = params[i];
    std::string def = "-", valid = "-", slider = "-", precision = "-";
    switch (p.param_type) {
      case kParamTypeFixedSlider:
        def = Num(Fixed(p.u.fd.dephault)) + (p.u.fd.display_flags == 1 ? "%" : "");
        valid = Num(Fixed(p.u.fd.valid_min)) + " .. " + Num(Fixed(p.u.fd.valid_max));
        slider = Num(Fixed(p.u.fd.slider_min)) + " .. " + Num(Fixed(p.u.fd.slider_max));
        precision = std::to_string(p.u.fd.precision);
        break;
      case kParamTypeAngle:
        def = Num(Fixed(p.u.ad.dephault)) + " deg";
        break;
      case kParamTypeCheckbox:
        def = p.u.bd.dephault ? "on" : "off";
        break;
      case kParamTypePoint:
        def = Num(Fixed(p.u.td.x_dephault)) + "%, " + Num(Fixed(p.u.td.y_dephault)) + "%";
        break;
      case kParamTypeArbitrary:
        if (inst) def = std::to_string(inst->ValueAt(int32_t(i), 0).bytes.size()) + " bytes";
        break;
      default:
        break;
    }
    char flags[16], ui[16];
    std::snprintf(flags, sizeof flags, "0x%x", p.flags);
    std::snprintf(ui, sizeof ui, "0x%x", p.ui_flags);
    std::printf("%-5zu %-3d %-18s %-15s %-6s %-8s %-14s %-16s %-16s %s\n", i, p.id,
                Label(p).c_str(), TypeName(p.param_type, false), flags, ui, def.c_str(),
                valid.c_str(), slider.c_str(), precision.c_str());
  }
  // The devices `vetext render --gpu` can draw on.
  std::printf("\nGPU devices%s:\n", m->gpu_entry() ? "" : " (the module has no GPU filter)");
  for (const GF::DevicePtr& d : GF::Devices())
    std::printf("  %d  %-5s %s\n", d->Index(), d->Kind(), d->Name().c_str());
  if (!GF::GetPrimaryDevice())
    std::printf("  no CUDA device: %s\n", GF::CudaUnavailableReason().c_str());
  return 0;
}

void Register(CLI::App& app) {
  auto args = std::make_shared<DescribeArgs>();
  CLI::App* sub = app.add_subcommand(
      "describe", "Load the effect module, set it up and list its name, category and parameters.");
  sub->add_option("--module", args->module, "The effect module (default: the built VEText.so)");
  sub->add_flag("--json", args->json, "Print JSON");
  sub->final_callback([args]() { SetExitStatus(RunDescribe(*args)); });
}

const Registrar registrar("describe", 30, Register);

}  // namespace
}  // namespace vetext_tool

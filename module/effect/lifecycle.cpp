#include "effect/lifecycle.h"

#include <atomic>
#include <cstring>
#include <new>

#include "effect/arbitrary.h"
#include "effect/suites.h"
#include "engine/kte.h"
#include "overlay/events.h"
#include "params/labels.h"
#include "params/params.h"
#include "render/render_text.h"
#include "vetext/suites.h"

namespace vetext {
namespace {

constexpr int32_t kRegistrationCode = 4321;
constexpr const char* kInitFailedMessage = "Text could not be initialized.";

std::atomic<CorvoLookupProc> g_lookup{nullptr};
std::atomic<int> g_engine_starts{0};
std::atomic<int> g_corvo_starts{0};

// `registered`: the host accepted the token. The seed is never zero (it is the label table's
// address), so only a successful registration is undone.
VxStatus FailSetup(InputRecord* in, OutputRecord* out, bool registered, int64_t token,
                   VxStatus status) {
  if (registered && token != 0 && in->utils->unregister_token != nullptr)
    in->utils->unregister_token(&token);
  ReportMessage(in, out, kInitFailedMessage);
  return status;
}

}  // namespace

void BindComponents(CorvoLookupProc lookup) {
  g_lookup.store(lookup);
}
void UnbindComponents() {
  g_lookup.store(nullptr);
}
bool ComponentsBound() {
  return g_lookup.load() != nullptr;
}
int EngineStartsHeld() {
  return g_engine_starts.load();
}

VxStatus GlobalSetup(InputRecord* in, OutputRecord* out, ParamList*, OutputLayer*) {
  if (in == nullptr || in->utils == nullptr || out == nullptr) return kStatusStructDamaged;
  const UtilCallbacks* u = in->utils;

  int64_t token = LabelTokenSeed();
  if (u->register_token == nullptr) return FailSetup(in, out, false, 0, kStatusBadCallbackParam);
  const VxStatus reg = u->register_token(&token, kRegistrationCode);
  if (reg != 0) return FailSetup(in, out, false, token, reg);

  VxHandle global = u->new_handle != nullptr ? u->new_handle(sizeof(int64_t)) : nullptr;
  if (global == nullptr || *global == nullptr) {
    if (global != nullptr && u->dispose_handle != nullptr) u->dispose_handle(global);
    return FailSetup(in, out, true, token, kStatusOutOfMemory);
  }
  std::memset(*global, 0, sizeof(int64_t));
  std::memcpy(*global, &token, sizeof token);
  out->global_data = global;
  in->global_data = global;  // the very next command already sees it

  out->out_flags |= kEffectGlobalOutFlags;
  out->my_version = kEffectVersionWord;

  // A host without the pixel format suite has had its message; setup goes on regardless.
  const void* table = nullptr;
  if (AcquireSuite(in, out, kPixelFormatSuiteName, kPixelFormatSuiteVersion, nullptr, &table) ==
      kStatusOk) {
    const auto* pf = static_cast<const PixelFormatSuite1*>(table);
    if (pf->clear_supported_pixel_formats != nullptr)
      pf->clear_supported_pixel_formats(in->effect_ref);
    if (pf->add_supported_pixel_format != nullptr)
      pf->add_supported_pixel_format(in->effect_ref, kPixelFormatBGRA);
    ReleaseSuite(in, out, kPixelFormatSuiteName, kPixelFormatSuiteVersion, nullptr);
  }

  if (CorvoLookupProc lookup = InitCorvoComponents()) {
    g_corvo_starts.fetch_add(1);
    BindComponents(lookup);
    KTE::EngineStart();
    g_engine_starts.fetch_add(1);
  }

  SetLastClickPoint(0);
  SetEditingFlag(false);
  return kStatusOk;
}

VxStatus GlobalSetdown(InputRecord* in, OutputRecord* out) {
  if (in != nullptr && in->utils != nullptr) {
    const UtilCallbacks* u = in->utils;
    if (in->global_data != nullptr && *in->global_data != nullptr) {
      int64_t token = 0;
      std::memcpy(&token, *in->global_data, sizeof token);
      if (u->unregister_token != nullptr) u->unregister_token(&token);
    }
    if (out != nullptr && out->global_data != nullptr && *out->global_data != nullptr)
      std::memset(*out->global_data, 0, sizeof(int64_t));
    if (in->global_data != nullptr && u->dispose_handle != nullptr)
      u->dispose_handle(in->global_data);
    in->global_data = nullptr;
  }
  if (out != nullptr) out->global_data = nullptr;

  // Undo only what setup started, so a teardown after a failed setup stops nothing.
  int held = g_engine_starts.load();
  while (held > 0 && !g_engine_starts.compare_exchange_weak(held, held - 1)) {
  }
  if (held > 0) KTE::EngineStop();
  UnbindComponents();
  int corvo = g_corvo_starts.load();
  while (corvo > 0 && !g_corvo_starts.compare_exchange_weak(corvo, corvo - 1)) {
  }
  if (corvo > 0) TerminateCorvoComponents();
  return kStatusOk;
}

VxStatus SequenceSetup(InputRecord* in, OutputRecord* out) {
  if (in == nullptr || in->utils == nullptr || in->utils->new_handle == nullptr || out == nullptr)
    return kStatusStructDamaged;
  // One byte that carries nothing: the host only needs a non-null sequence handle.
  VxHandle h = in->utils->new_handle(1);
  out->sequence_data = h;
  return h != nullptr ? kStatusOk : kStatusStructDamaged;
}

VxStatus SequenceSetdown(InputRecord* in, OutputRecord*) {
  if (in == nullptr || in->sequence_data == nullptr) return kStatusOk;
  if (in->utils != nullptr && in->utils->dispose_handle != nullptr)
    in->utils->dispose_handle(in->sequence_data);
  return kStatusOk;
}

namespace {

VxStatus Route(EffectCommand cmd, InputRecord* in, OutputRecord* out, ParamList* params,
               OutputLayer* layer, ExtraRecord* extra) {
  switch (cmd) {
    case kCmdGlobalSetup:
      return GlobalSetup(in, out, params, layer);
    case kCmdGlobalSetdown:
      return GlobalSetdown(in, out);
    case kCmdParamsSetup:
      return ParamsSetup(in, out, params, layer);
    case kCmdSequenceSetup:
      return SequenceSetup(in, out);
    case kCmdSequenceSetdown:
      return SequenceSetdown(in, out);
    case kCmdRender:
      return RenderText(in, out, params, layer);
    case kCmdUserChangedParam:
      return UserChangedParam(in, out, params, layer, extra);
    case kCmdUpdateParamsUI:
      return UpdateParamsUI(in, out, params, layer);
    case kCmdEvent:
      return HandleEvent(in, out, params, layer, extra);
    case kCmdArbitraryCallback:
      return ArbitraryDataCallback(in, out, params, layer, extra);
    default:
      return kStatusOk;  // every other code, and any code past the table, is accepted silently
  }
}

}  // namespace

VxStatus Dispatch(EffectCommand cmd, InputRecord* in, OutputRecord* out, ParamList* params,
                  OutputLayer* layer, ExtraRecord* extra) noexcept {
  if (cmd >= kCmdCount) return kStatusOk;
  try {
    return Route(cmd, in, out, params, layer, extra);
  } catch (const std::bad_alloc&) {
    return kStatusOutOfMemory;
  } catch (const SuiteError& e) {
    return e.status;
  } catch (const std::exception& e) {
    ReportMessage(in, out, e.what());
    return kStatusFailed;
  } catch (...) {
    ReportMessage(in, out, "Text failed for an unknown reason.");
    return kStatusFailed;
  }
}

}  // namespace vetext

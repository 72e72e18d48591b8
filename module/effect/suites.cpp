// Suite acquisition with the effect's user-visible failure messages.
#include "effect/suites.h"

#include "vetext/suites.h"

namespace vetext {
namespace {

constexpr const char* kAcquireMessage = "Not able to acquire VEFX Suite.";
constexpr const char* kReleaseMessage = "Not able to release VEFX Suite.";

}  // namespace

void ReportMessage(const InputRecord* in, OutputRecord* out, const char* text) {
  if (out == nullptr) return;
  out->out_flags |= kOutFlagDisplayMessage;
  if (text == nullptr) text = "";
  if (in != nullptr && in->utils != nullptr && in->utils->copy_message != nullptr) {
    in->utils->copy_message(out, text);
    return;
  }
  // A host without the copy callback still gets a terminated message.
  size_t i = 0;
  for (; i + 1 < sizeof(out->message) && text[i] != '\0'; ++i) out->message[i] = text[i];
  out->message[i] = '\0';
}

VxStatus AcquireSuite(const InputRecord* in, OutputRecord* out, const char* name, int32_t version,
                      const char* message, const void** suite) {
  const void* table = nullptr;
  VxStatus st = -1;
  if (in != nullptr && in->suites != nullptr && in->suites->acquire != nullptr)
    st = in->suites->acquire(name, version, &table);
  if (suite != nullptr) *suite = table;
  if (st != 0 || table == nullptr) {
    ReportMessage(in, out, message != nullptr ? message : kAcquireMessage);
    return kStatusBadCallbackParam;
  }
  return kStatusOk;
}

VxStatus ReleaseSuite(const InputRecord* in, OutputRecord* out, const char* name, int32_t version,
                      const char* message) {
  if (in == nullptr || in->suites == nullptr || in->suites->release == nullptr) {
    ReportMessage(in, out, message != nullptr ? message : kReleaseMessage);
    return kStatusBadCallbackParam;
  }
  in->suites->release(name, version);  // the host's answer does not matter here
  return kStatusOk;
}

template <typename Table>
ScopedSuite<Table>::ScopedSuite(const InputRecord* in, OutputRecord* out, const char* name,
                                int32_t version, const char* message)
    : in_(in), name_(name), version_(version) {
  const void* table = nullptr;
  VxStatus st = -1;
  if (in != nullptr && in->suites != nullptr && in->suites->acquire != nullptr)
    st = in->suites->acquire(name, version, &table);
  if (st != 0) {
    ReportMessage(in, out, message != nullptr ? message : kAcquireMessage);
    throw SuiteError{kStatusSuiteThrew};
  }
  // Success with a null table is not an error: the holder simply has nothing to call and nothing
  // to release.
  table_ = static_cast<const Table*>(table);
}

template <typename Table>
ScopedSuite<Table>::~ScopedSuite() {
  if (table_ != nullptr && in_->suites != nullptr && in_->suites->release != nullptr)
    in_->suites->release(name_, version_);
}

// Every suite table the module holds through a ScopedSuite.
template class ScopedSuite<PixelFormatSuite1>;
template class ScopedSuite<ParamUtilsSuite3>;
template class ScopedSuite<RPixSuite1>;
template class ScopedSuite<RPixCacheSuite6>;
template class ScopedSuite<RPixCreatorSuite3>;
template class ScopedSuite<VideoSegmentSuite6>;
template class ScopedSuite<DrawbotDrawSuite1>;
template class ScopedSuite<DrawbotSupplierSuite1>;
template class ScopedSuite<DrawbotPathSuite1>;
template class ScopedSuite<DrawbotPathSuite2>;
template class ScopedSuite<DrawbotSurfaceSuite1>;

}  // namespace vetext

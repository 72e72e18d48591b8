// Acquiring host suites by name and version, with the effect's failure messages.
#pragma once

#include <cstdint>

#include "vetext/effect.h"

namespace vetext {

// Sets kOutFlagDisplayMessage on `out` and copies `text` into its message buffer through the
// host's copy-message callback (directly when the host has none). Does nothing when `out` is null.
void ReportMessage(const InputRecord* in, OutputRecord* out, const char* text);

// Returns 0 and the suite through *suite; on failure (no suite services, a failing acquire or a
// null table) sets kOutFlagDisplayMessage, copies `message` (or "Not able to acquire VEFX
// Suite.") into the output's message buffer and returns kStatusBadCallbackParam. `out` may be
// null (no message is written then).
VxStatus AcquireSuite(const InputRecord* in, OutputRecord* out, const char* name, int32_t version,
                      const char* message, const void** suite);
// Releases the suite; 516 with "Not able to release VEFX Suite." when there are no suite services.
VxStatus ReleaseSuite(const InputRecord* in, OutputRecord* out, const char* name, int32_t version,
                      const char* message);

// Thrown by ScopedSuite when the suite cannot be acquired; carries the status 13.
struct SuiteError {
  VxStatus status;
};

// Holds one suite for a scope; throws SuiteError{13} (after writing the message) when there are no
// suite services or the host's acquire fails. A host that succeeds but hands back a null table
// gives a holder whose get() is null and which releases nothing. Instantiated in suites.cpp for
// every table of vetext/suites.h.
template <typename Table>
class ScopedSuite {
 public:
  ScopedSuite(const InputRecord* in, OutputRecord* out, const char* name, int32_t version,
              const char* message = nullptr);
  ~ScopedSuite();
  ScopedSuite(const ScopedSuite&) = delete;
  ScopedSuite& operator=(const ScopedSuite&) = delete;
  const Table* get() const { return table_; }
  const Table* operator->() const { return table_; }

 private:
  const InputRecord* in_;
  const char* name_;
  int32_t version_;
  const Table* table_ = nullptr;
};

}  // namespace vetext

// The effect's string table: parameter labels looked up through the host by index.
#pragma once

#include <cstdint>

#include "vetext/effect.h"
#include "vetext/labels.h"

namespace vetext {

// Indices into the table (0-based; the host answers the text after "=").
enum LabelIndex : int32_t {
  kLabelTest = 0,
  kLabelVScale = 1,
  kLabelHScale = 2,
  kLabelScale = 3,
  kLabelUniformScale = 4,
  kLabelRotation = 5,
  kLabelSpace = 10,
  kLabelPosition = 11,
  kLabelOpacity = 37,
  kLabelSourceText = 38,
  kLabelTransformGroup = 39,
  kLabelAnchorPoint = 40,
  kLabelCount = 41  // keys, not counting the terminator
};

// The table handed to the host at global setup: 41 keys plus the terminator (count 42).
LabelTable* GetLabelTable();
// The display name resource of the effect ("Text"); the module's info note carries it too.
#define VETEXT_EFFECT_NAME_KEY "$$$/MediaHub/VEFilters/Graphics/VEText/Name=Text"
extern const char* const kEffectNameKey;

// The module-wide seed of the registration token: the table's address, never assigned after load.
int64_t LabelTokenSeed();

// The label text of `index` through the host's look-up with `token`; "" when the host has none.
const char* LookupLabel(const InputRecord* in, int64_t token, int32_t index);
// The registration token kept in the global data (the seed when there is no global data yet).
int64_t RegistrationToken(const InputRecord* in);

}  // namespace vetext

#include "params/labels.h"

#include <cstring>

namespace vetext {
namespace {

#define VETEXT_KEY(name, text) "$$$/MediaHub/VEFilters/Graphics/VEText/kStr" name "=" text

LabelEntry g_entries[kLabelCount + 1] = {
    {"$$$/MediaHub/VEFilters/Graphics/VEText/0000", 0, 0, 0},
    {VETEXT_KEY("VScaleText", "Vertical Scale"), 0, 0, 0},
    {VETEXT_KEY("HScaleText", "Horizontal Scale"), 0, 0, 0},
    {VETEXT_KEY("ScaleText", "Scale"), 0, 0, 0},
    {VETEXT_KEY("UniformScaleText", "Uniform Scale"), 0, 0, 0},
    {VETEXT_KEY("RotationText", "Rotation"), 0, 0, 0},
    {VETEXT_KEY("CharacterGroupText", "Character"), 0, 0, 0},
    {VETEXT_KEY("FontFamilyLabelText", "Font"), 0, 0, 0},
    {VETEXT_KEY("FontStyleLabelText", "Style"), 0, 0, 0},
    {VETEXT_KEY("FontSizeLabelText", "Font Size"), 0, 0, 0},
    {VETEXT_KEY("SpaceLabelText", ""), 0, 0, 0},
    {VETEXT_KEY("PositionLabelText", "Position"), 0, 0, 0},
    {VETEXT_KEY("TextFieldText", "Text"), 0, 0, 0},
    {VETEXT_KEY("FillColorText", "Fill Color"), 0, 0, 0},
    {VETEXT_KEY("StrokeColorText", "Stroke Color"), 0, 0, 0},
    {VETEXT_KEY("StrokeWidthText", "Stroke Width"), 0, 0, 0},
    {VETEXT_KEY("StrokeFillText", "Stroke/Fill"), 0, 0, 0},
    {VETEXT_KEY("LeadingText", "Leading"), 0, 0, 0},
    {VETEXT_KEY("AutoLeadingText", "Auto Leading"), 0, 0, 0},
    {VETEXT_KEY("KerningText", "Kerning"), 0, 0, 0},
    {VETEXT_KEY("TrackingText", "Tracking"), 0, 0, 0},
    {VETEXT_KEY("BaselineShiftText", "Baseline Shift"), 0, 0, 0},
    {VETEXT_KEY("TsumeCharsText", "Tsume %"), 0, 0, 0},
    {VETEXT_KEY("FauxBoldText", "faux bold"), 0, 0, 0},
    {VETEXT_KEY("FauxItalicText", "faux italic"), 0, 0, 0},
    {VETEXT_KEY("AllCapsText", "all caps"), 0, 0, 0},
    {VETEXT_KEY("SmallCapsText", "small caps"), 0, 0, 0},
    {VETEXT_KEY("SuperscriptText", "superscript"), 0, 0, 0},
    {VETEXT_KEY("SubscriptText", "subscript"), 0, 0, 0},
    {VETEXT_KEY("OptionsGroupText", "Options"), 0, 0, 0},
    {VETEXT_KEY("ParagraphGroupText", "Paragraph"), 0, 0, 0},
    {VETEXT_KEY("JustificationText", "Justification"), 0, 0, 0},
    {VETEXT_KEY("IndentLeftText", "Indent Left"), 0, 0, 0},
    {VETEXT_KEY("IndentRightText", "Indent Right"), 0, 0, 0},
    {VETEXT_KEY("IndentFirstText", "Indent First"), 0, 0, 0},
    {VETEXT_KEY("SpaceBeforeText", "Space Before"), 0, 0, 0},
    {VETEXT_KEY("SpaceAfterText", "Space After"), 0, 0, 0},
    {VETEXT_KEY("OpacityLabelText", "Opacity"), 0, 0, 0},
    {VETEXT_KEY("DocumentLabelText", "Source Text"), 0, 0, 0},
    {VETEXT_KEY("TransformGroupLabelText", "Transform"), 0, 0, 0},
    {VETEXT_KEY("AnchorLabelText", "Anchor Point"), 0, 0, 0},
    {nullptr, -1, -1, 0},
};

#undef VETEXT_KEY

LabelTable g_table = {"FX", kLabelCount + 1, g_entries};

// Seeded once at load with the table's address; the host learns the table from it.
const int64_t g_token_seed = static_cast<int64_t>(reinterpret_cast<intptr_t>(&g_table));

}  // namespace

const char* const kEffectNameKey = VETEXT_EFFECT_NAME_KEY;

LabelTable* GetLabelTable() {
  return &g_table;
}

int64_t LabelTokenSeed() {
  return g_token_seed;
}

const char* LookupLabel(const InputRecord* in, int64_t token, int32_t index) {
  if (in == nullptr || in->utils == nullptr || in->utils->lookup_string == nullptr) return "";
  const char* s = in->utils->lookup_string(token, index, 0, 0);
  return s != nullptr ? s : "";
}

int64_t RegistrationToken(const InputRecord* in) {
  if (in != nullptr && in->global_data != nullptr && *in->global_data != nullptr &&
      in->utils != nullptr && in->utils->get_handle_size != nullptr &&
      in->utils->get_handle_size(in->global_data) >= sizeof(int64_t)) {
    int64_t token = 0;
    std::memcpy(&token, *in->global_data, sizeof token);
    return token;
  }
  return g_token_seed;
}

}  // namespace vetext

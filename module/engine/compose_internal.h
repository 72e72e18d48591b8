// Engine internals shared by the composer, the facade's start/stop, the rasterizer and tests.
// Private to the module.
#pragma once

#include <cstdint>
#include <string>

namespace KTE {

// Number of Compose calls since the process started (tests and benchmarks count compositions
// with it). Thread safe.
uint64_t ComposeCount();

// The composer's font map is created on first use and kept. EngineStart retains it and
// EngineStop releases it; when the last hold goes the map and its glyph caches are freed, and
// the next Compose creates a fresh one. A release without a matching retain is ignored.
void RetainComposer();
void ReleaseComposer();

// The face that a CharacterRecord's mFontName names. Font names in layouts are the family of
// the face, followed by its style when that is not the regular one ("Liberation Sans",
// "DejaVu Sans Bold"); this resolves one through the composer's own font map, so the face is
// the one that composed the glyph.
// Returns false (and leaves the outputs alone) when no face can be found.
bool FindFontFace(const std::u16string& font_name, std::string& file, int& face_index);

}  // namespace KTE

// A text document as the engine's dictionary tree, and back.
//
// The tree holds a complete picture of the document, so that reading it back gives a document
// whose block is identical to the original's:
//
//   << /Version <mVersion>
//      /EngineDict <<
//        /Editor << /Text (all runs' text, concatenated) >>
//        /ParagraphRun << /DefaultRunData << /ParagraphSheet << /DefaultStyleSheet 0
//                                                               /Properties << >> >> >>
//                         /RunArray [ << /ParagraphSheet << /DefaultStyleSheet 0
//                                         /Properties << /Justification <mAlignment> >> >> >> ... ]
//                         /RunLengthArray [ <code units> ... ] /IsJoinable 1 >>
//        /StyleRun << /DefaultRunData << /StyleSheet << /StyleSheetData << >> >> >>
//                     /RunArray [ << /StyleSheet << /StyleSheetData << run style >> >> >> ... ]
//                     /RunLengthArray [ <code units> ... ] /IsJoinable 2 >>
//        /Rendered << /Version 1 /Shapes << /WritingDirection 0 /Children [ shape ] >> >> >>
//      /ResourceDict <<
//        /FontSet [ << /Name (font) /Script 0 /FontType 1 /Synthetic 0 >> ... ]
//        /StyleSheetSet [ << /Name (Normal) /StyleSheetData << defaults >> >> ]
//        /ParagraphSheetSet [ << /Name (Normal) /DefaultStyleSheet 0
//                               /Properties << /Justification 2 >> >> ]
//        /TheNormalStyleSheet 0 /TheNormalParagraphSheet 0 >> >>
//
// There is one style run and one paragraph run per text run, never merged (the default
// document's nine one-character runs stay nine). Run style keys: /Font (index into /FontSet),
// /FontSize, /FillColor and /StrokeColor (<< /Type 1 /Values [ alpha red green blue ] >>),
// /FillFlag, /StrokeFlag (stroke width above 0), /OutlineWidth (the stroke width), /AutoLeading,
// /Leading, /Kerning, /Tracking, /BaselineShift (reals in the document's units) and /FillFirst
// (true when the fill is painted before the stroke, i.e. not mFillOverStroke). The shape is
// << /ShapeType 0 /Procession 0 /PointBase [ 0.0 0.0 ] >> for point text (box 0 by 0) and
// << /ShapeType 1 /Procession 0 /BoxBounds [ 0 0 <mWidth> <mHeight> ] >> otherwise.
// /Justification holds the 32-bit alignment value as a signed integer of the same bits.
//
// Reading takes a key missing from a run's style from the normal style sheet, then from the
// record's defaults; every other missing part leaves the record's default. Numbers may be
// integers or reals wherever either makes sense.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "engine/kte.h"
#include "engine/slo_io.h"

namespace KTE {

// Writes the document's tree through any writer (text, binary or a TreeWriter).
void WriteDocumentDictionary(const Document& doc, SLO::PDFWriter& writer);
// The tree itself.
SLO::Value DocumentDictionary(const Document& doc);
// The dictionary as text (line mode: one key and its value a line outside arrays).
std::vector<uint8_t> WriteDocumentText(const Document& doc, int precision = 5,
                                       bool line_mode = true);
// The dictionary in the binary form.
std::vector<uint8_t> WriteDocumentBinary(const Document& doc);

// Builds a document from its tree. Throws SLO::Error (source "KTEDocumentDictionary") when the
// tree is not a document: wrong value kinds, run lengths that do not add up to the text, a font
// index outside the font set.
DocumentPtr DocumentFromDictionary(const SLO::Value& root);
// Reads text or binary bytes (told apart by the binary header) and builds the document;
// SLO::Error for malformed bytes.
DocumentPtr ReadDocumentDictionary(const uint8_t* data, size_t size);

}  // namespace KTE

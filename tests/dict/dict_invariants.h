// What must hold for any bytes given to the dictionary readers; shared by the fuzz targets and
// the test that re-runs their kept corpora.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "engine/document_dict.h"
#include "engine/slo_binary.h"
#include "engine/slo_text.h"

namespace dict_invariants {

// Equal trees, except that reals only need to be reals (the text form rounds them).
inline bool SameShape(const SLO::Value& a, const SLO::Value& b) {
  if (a.kind != b.kind) return false;
  switch (a.kind) {
    case SLO::Value::Kind::kReal:
      return true;
    case SLO::Value::Kind::kArray:
      if (a.array.size() != b.array.size()) return false;
      for (size_t i = 0; i < a.array.size(); ++i)
        if (!SameShape(a.array[i], b.array[i])) return false;
      return true;
    case SLO::Value::Kind::kDictionary:
      if (a.entries.size() != b.entries.size()) return false;
      for (size_t i = 0; i < a.entries.size(); ++i)
        if (a.entries[i].key != b.entries[i].key ||
            !SameShape(a.entries[i].value, b.entries[i].value))
          return false;
      return true;
    default:
      return a == b;
  }
}

// A tree that a reader accepted: the binary form carries it exactly, the text form keeps its
// shape, and reading it as a document either works or fails with the engine's error. Returns
// what went wrong, or "" when everything held.
inline std::string CheckAcceptedTree(const SLO::Value& tree) {
  std::vector<uint8_t> bin;
  SLO::VectorSink bin_sink(bin);
  SLO::BinaryPDFWriter bw(bin_sink);
  SLO::WriteTree(bw, tree);
  SLO::BinaryPDFReader br(bin.data(), bin.size());
  if (!(br.Parse() == tree)) return "binary form changed the tree";

  std::vector<uint8_t> text;
  SLO::VectorSink text_sink(text);
  SLO::TextPDFWriter tw(text_sink, 5, true);
  SLO::WriteTree(tw, tree);
  SLO::TextPDFReader tr(text.data(), text.size(), 7);
  if (!SameShape(tr.Parse(), tree)) return "text form changed the tree";

  try {
    KTE::DocumentPtr doc = KTE::DocumentFromDictionary(tree);
    // A document read once writes a tree that reads back to the same document (compared as
    // trees, whose reals compare by their bits, so that a NaN equals itself).
    const SLO::Value first = KTE::DocumentDictionary(*doc);
    KTE::DocumentPtr again = KTE::DocumentFromDictionary(first);
    if (!(KTE::DocumentDictionary(*again) == first)) return "document changed through its own tree";
  } catch (const SLO::Error&) {
  }
  return "";
}

// Runs `bytes` through the text reader (binary = false) or the binary reader. Reader errors are
// the expected outcome for most inputs; anything else thrown escapes to the caller.
inline std::string CheckBytes(const uint8_t* data, size_t size, bool binary) {
  SLO::Value tree;
  try {
    if (binary) {
      SLO::BinaryPDFReader reader(data, size);
      tree = reader.Parse();
    } else {
      SLO::TextPDFReader reader(data, size, 1 + size % 13);
      tree = reader.Parse();
    }
  } catch (const SLO::Error&) {
    return "";
  }
  return CheckAcceptedTree(tree);
}

}  // namespace dict_invariants

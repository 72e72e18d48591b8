// What must hold for any bytes given to the dictionary readers; shared by the fuzz targets and
// the test that re-runs their kept corpora.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "engine/document_dict.h"
#include "tree_gen.h"

namespace dict_invariants {

// Equal trees, except that reals only need to be reals (the text form rounds them).
inline bool SameShape(const SLO::Value& a, const SLO::Value& b) {
  using Kind = SLO::Value::Kind;
  if (a.kind != b.kind || a.array.size() != b.array.size() || a.entries.size() != b.entries.size())
    return false;
  if (a.kind == Kind::kReal) return true;
  if (a.kind != Kind::kArray && a.kind != Kind::kDictionary) return a == b;
  for (size_t i = 0; i < a.array.size(); ++i)
    if (!SameShape(a.array[i], b.array[i])) return false;
  for (size_t i = 0; i < a.entries.size(); ++i)
    if (a.entries[i].key != b.entries[i].key || !SameShape(a.entries[i].value, b.entries[i].value))
      return false;
  return true;
}

// A tree that a reader accepted: the binary form carries it exactly, the text form keeps its
// shape, and reading it as a document either works or fails with the engine's error. Returns
// what went wrong, or "" when everything held.
inline std::string CheckAcceptedTree(const SLO::Value& tree) {
  if (!(dict_test::FromBinary(dict_test::ToBinary(tree)) == tree))
    return "binary form changed the tree";
  if (!SameShape(dict_test::FromText(dict_test::ToText(tree), 7), tree))
    return "text form changed the tree";
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
      tree = SLO::BinaryPDFReader(data, size).Parse();
    } else {
      tree = SLO::TextPDFReader(data, size, 1 + size % 13).Parse();
    }
  } catch (const SLO::Error&) {
    return "";
  }
  return CheckAcceptedTree(tree);
}

}  // namespace dict_invariants

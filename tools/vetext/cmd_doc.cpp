// `vetext doc`: the document the document options describe, as JSON or as a document block.
#include <cstdio>
#include <memory>

#include "commands.h"
#include "doc_options.h"
#include "document/document_json.h"
#include "files.h"
#include "vetext/vxcore.h"

namespace vetext_tool {
namespace {

struct DocArgs {
  DocumentOptions doc;
  std::string block;
  bool pretty = false;
};

int RunDoc(const DocArgs& a) {
  vetext::DocumentRecord doc;
  try {
    doc = BuildDocument(a.doc);
  } catch (const OptionError& e) {
    return FailOption(e.what());
  } catch (const std::exception& e) {
    return Fail(e.what());
  }
  if (!a.block.empty()) {
    const std::vector<uint8_t> block = vetext::WriteDocumentBlock(doc);
    std::string error;
    return WriteOutputFile(a.block, block.data(), block.size(), &error) ? 0 : Fail(error);
  }
  const std::string json = vxcore::UTF16ToUTF8(vetext::DocumentToText(doc, a.pretty));
  std::fwrite(json.data(), 1, json.size(), stdout);
  std::fputc('\n', stdout);
  return std::fflush(stdout) == 0 ? 0 : 1;
}

void Register(CLI::App& app) {
  auto args = std::make_shared<DocArgs>();
  CLI::App* sub = app.add_subcommand(
      "doc", "Print the text document (a JSON document record, UTF-8) or write its block.");
  AddDocumentOptions(*sub, args->doc);
  sub->add_option("--block", args->block,
                  "Write the document block (8-byte length + UTF-16 JSON) to FILE instead");
  sub->add_flag("--pretty", args->pretty, "Indent the JSON");
  sub->final_callback([args]() { SetExitStatus(RunDoc(*args)); });
}

const Registrar registrar("doc", 40, Register);

}  // namespace
}  // namespace vetext_tool

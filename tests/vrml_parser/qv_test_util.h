#pragma once
// Helpers shared by the parser tests: inputs from strings, errors collected as text.

#include "meshcore/vrml_parser/qv_field.h"
#include "meshcore/vrml_parser/qv_graph.h"
#include "meshcore/vrml_parser/qv_nodes.h"
#include "meshcore/vrml_parser/qv_text_source.h"

#include <memory>
#include <string>

namespace meshcore::test {

inline const char* kVrmlHeader = "#VRML V1.0 ascii\n";

// An input over text that collects its messages.
struct Input {
  explicit Input(std::string text) {
    in.SetErrorSink([this](const std::string& s) { errors += s; });
    in.SetBuffer(std::move(text));
  }
  QvTextSource in;
  std::string errors;
};

// Reads one field value written after a VRML header.
struct FieldRead {
  FieldRead(QvField& field, const std::string& value) : input(kVrmlHeader + value) {
    ok = field.Read(input.in);
  }
  Input input;
  bool ok;
  const std::string& errors() const { return input.errors; }
};

struct Parsed {
  explicit Parsed(std::string text) : input(std::move(text)) { graph = QvGraph::Read(input.in); }
  Input input;
  std::unique_ptr<QvGraph> graph;
  const std::string& errors() const { return input.errors; }
  QvNode* root() const { return graph ? graph->GetRoot() : nullptr; }
  QvGroup* group() const { return static_cast<QvGroup*>(root()); }
};

// The message as posted for a read error at a line.
inline std::string ReadError(const std::string& message, int line) {
  return QvFormat("VRML read error: %s\n\tOccurred at line %3d\n", message.c_str(), line);
}

} // namespace meshcore::test

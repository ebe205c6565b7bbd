#pragma once
// Field values of VRML nodes. A field reads its value from the input and remembers
// whether the file set it; multiple-value fields share the bracket and comma rules.

#include "meshcore/vrml_parser/qv_new.h"

#include <memory>
#include <span>
#include <string_view>

namespace meshcore {

class QvTextSource;

class QvField : public QvNew {
public:
  // Reads a value in place of the current one. Errors are posted to the input.
  bool Read(QvTextSource& in);
  // True until a value has been read from a file.
  bool IsDefault() const { return isDefault_; }
  // The type's name as written in a "fields" declaration ("SFFloat", "MFVec3f", ...).
  virtual const char* GetTypeName() const = 0;

protected:
  virtual bool ReadValue(QvTextSource& in) = 0;

private:
  bool isDefault_ = true;
};

class QvSField : public QvField {};

class QvMField : public QvField {
public:
  virtual int GetNum() const = 0;

protected:
  // Resizes to n values (growing keeps the values read so far).
  virtual void AllocValues(int n) = 0;
  virtual bool Read1Value(QvTextSource& in, int index) = 0;
  bool ReadValue(QvTextSource& in) final;
};

// A name and its value in an enumeration or bit mask.
struct QvEnumEntry {
  const char* name;
  int value;
};
using QvEnumTable = std::span<const QvEnumEntry>;

// A field of the named type for a self-describing node, or null when unknown.
std::unique_ptr<QvField> QvCreateField(std::string_view typeName);

} // namespace meshcore

#pragma once
// Multiple-value field types: values live in a std::vector.

#include "meshcore/vrml_parser/qv_field.h"

#include <array>
#include <cstdint>
#include <string>
#include <vector>

namespace meshcore {

template <class T> class QvMFieldOf : public QvMField {
public:
  std::vector<T> values;
  int GetNum() const override { return static_cast<int>(values.size()); }

protected:
  void AllocValues(int n) override { values.resize(static_cast<std::size_t>(n)); }
};

class QvMFColor : public QvMFieldOf<std::array<float, 3>> {
public:
  const char* GetTypeName() const override { return "MFColor"; }

protected:
  bool Read1Value(QvTextSource& in, int index) override;
};

class QvMFFloat : public QvMFieldOf<float> {
public:
  const char* GetTypeName() const override { return "MFFloat"; }

protected:
  bool Read1Value(QvTextSource& in, int index) override;
};

class QvMFInt32 : public QvMFieldOf<std::int32_t> {
public:
  const char* GetTypeName() const override { return "MFInt32"; }

protected:
  bool Read1Value(QvTextSource& in, int index) override;
};

class QvMFLong : public QvMFieldOf<std::int32_t> {
public:
  const char* GetTypeName() const override { return "MFLong"; }

protected:
  bool Read1Value(QvTextSource& in, int index) override;
};

class QvMFString : public QvMFieldOf<std::string> {
public:
  const char* GetTypeName() const override { return "MFString"; }

protected:
  bool Read1Value(QvTextSource& in, int index) override;
};

class QvMFVec2f : public QvMFieldOf<std::array<float, 2>> {
public:
  const char* GetTypeName() const override { return "MFVec2f"; }

protected:
  bool Read1Value(QvTextSource& in, int index) override;
};

class QvMFVec3f : public QvMFieldOf<std::array<float, 3>> {
public:
  const char* GetTypeName() const override { return "MFVec3f"; }

protected:
  bool Read1Value(QvTextSource& in, int index) override;
};

// Four floats per value (Inventor's MFVec4f, MFPlane, MFRotation, MFColorRGBA).
class QvMFVec4f : public QvMFieldOf<std::array<float, 4>> {
public:
  const char* GetTypeName() const override { return "MFVec4f"; }

protected:
  bool Read1Value(QvTextSource& in, int index) override;
};

// Matrices as written: each applies to row vectors (Inventor's MultipleCopy).
class QvMFMatrix : public QvMFieldOf<std::array<float, 16>> {
public:
  const char* GetTypeName() const override { return "MFMatrix"; }

protected:
  bool Read1Value(QvTextSource& in, int index) override;
};

class QvNode;

// Nodes held by a field (Inventor's MFNode); they belong to the graph.
class QvMFNode : public QvMFieldOf<QvNode*> {
public:
  const char* GetTypeName() const override { return "MFNode"; }

protected:
  bool Read1Value(QvTextSource& in, int index) override;
};

} // namespace meshcore

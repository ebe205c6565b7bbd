#pragma once
// Single-value field types.

#include "meshcore/vrml_parser/qv_field.h"

#include <cstdint>
#include <string>
#include <vector>

namespace meshcore {

class QvSFBitMask : public QvSField {
public:
  int value = 0;
  QvEnumTable names;
  const char* GetTypeName() const override { return "SFBitMask"; }

protected:
  bool ReadValue(QvTextSource& in) override;
};

class QvSFBool : public QvSField {
public:
  bool value = false;
  const char* GetTypeName() const override { return "SFBool"; }

protected:
  bool ReadValue(QvTextSource& in) override;
};

class QvSFColor : public QvSField {
public:
  float value[3] = {0, 0, 0};
  const char* GetTypeName() const override { return "SFColor"; }

protected:
  bool ReadValue(QvTextSource& in) override;
};

class QvSFEnum : public QvSField {
public:
  int value = 0;
  QvEnumTable names;
  const char* GetTypeName() const override { return "SFEnum"; }

protected:
  bool ReadValue(QvTextSource& in) override;
};

class QvSFFloat : public QvSField {
public:
  float value = 0;
  const char* GetTypeName() const override { return "SFFloat"; }

protected:
  bool ReadValue(QvTextSource& in) override;
};

// Pixels bottom row first; each pixel's components high byte first.
class QvSFImage : public QvSField {
public:
  int size[2] = {0, 0};
  int numComponents = 0;
  std::vector<std::uint8_t> bytes;
  const char* GetTypeName() const override { return "SFImage"; }

protected:
  bool ReadValue(QvTextSource& in) override;
};

class QvSFLong : public QvSField {
public:
  std::int32_t value = 0;
  const char* GetTypeName() const override { return "SFLong"; }

protected:
  bool ReadValue(QvTextSource& in) override;
};

// The sixteen values as written: rows of a matrix applied to row vectors, so the
// translation is in the last row.
class QvSFMatrix : public QvSField {
public:
  float value[4][4] = {{1, 0, 0, 0}, {0, 1, 0, 0}, {0, 0, 1, 0}, {0, 0, 0, 1}};
  const char* GetTypeName() const override { return "SFMatrix"; }

protected:
  bool ReadValue(QvTextSource& in) override;
};

// Axis and angle in radians (right-hand rule).
class QvSFRotation : public QvSField {
public:
  float axis[3] = {0, 0, 1};
  float angle = 0;
  const char* GetTypeName() const override { return "SFRotation"; }

protected:
  bool ReadValue(QvTextSource& in) override;
};

class QvSFString : public QvSField {
public:
  std::string value;
  const char* GetTypeName() const override { return "SFString"; }

protected:
  bool ReadValue(QvTextSource& in) override;
};

class QvSFUShort : public QvSField {
public:
  std::uint16_t value = 0;
  const char* GetTypeName() const override { return "SFUShort"; }

protected:
  bool ReadValue(QvTextSource& in) override;
};

class QvSFVec2f : public QvSField {
public:
  float value[2] = {0, 0};
  const char* GetTypeName() const override { return "SFVec2f"; }

protected:
  bool ReadValue(QvTextSource& in) override;
};

class QvSFVec3f : public QvSField {
public:
  float value[3] = {0, 0, 0};
  const char* GetTypeName() const override { return "SFVec3f"; }

protected:
  bool ReadValue(QvTextSource& in) override;
};

// Four floats (Inventor's SFVec4f, SFPlane, SFColorRGBA).
class QvSFVec4f : public QvSField {
public:
  float value[4] = {0, 0, 0, 0};
  const char* GetTypeName() const override { return "SFVec4f"; }

protected:
  bool ReadValue(QvTextSource& in) override;
};

} // namespace meshcore

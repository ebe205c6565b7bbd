#include "meshcore/platform/cancel.h"
#include "meshcore/vrml_parser/qv_mfields.h"
#include "meshcore/vrml_parser/qv_node.h"
#include "meshcore/vrml_parser/qv_sfields.h"
#include "meshcore/vrml_parser/qv_text_source.h"

#include <climits>
#include <string>

namespace meshcore {

namespace {

bool ReadFloats(QvTextSource& in, float* v, int n) {
  for (int i = 0; i < n; ++i)
    if (!in.ReadFloat(v[i]))
      return false;
  return true;
}

const QvEnumEntry* FindEnum(QvEnumTable table, std::string_view name) {
  for (const auto& e : table)
    if (name == e.name)
      return &e;
  // Self-describing nodes declare enums without their names: any name is taken.
  static constexpr QvEnumEntry kAnyName{"", 0};
  if (table.empty() && !name.empty())
    return &kAnyName;
  return nullptr;
}

} // namespace

bool QvField::Read(QvTextSource& in) {
  isDefault_ = false;
  return ReadValue(in);
}

bool QvMField::ReadValue(QvTextSource& in) {
  char c;
  if (!in.Read(c))
    return false;
  if (c != '[') {
    // A single value may be written without brackets.
    in.PutBack(c);
    AllocValues(1);
    return Read1Value(in, 0);
  }
  if (in.Peek(c) && c == ']') {
    in.Get(c);
    AllocValues(0);
    return true;
  }
  int i = 1;
  CCancelCheck cancel;
  for (;; ++i) {
    // Long lists answer a cancel from another thread within a few milliseconds.
    if (cancel.Tick()) {
      AllocValues(i - 1);
      in.PostError("Reading cancelled at value %d of field", i);
      return false;
    }
    // Grown by half again each time, so long lists do not resize at every value.
    if (i > GetNum())
      AllocValues(i < 16 ? 16 : (i > INT_MAX / 3 * 2 ? INT_MAX : i / 2 * 3));
    if (!Read1Value(in, i - 1)) {
      AllocValues(i - 1);
      in.PostError("Couldn't read value %d of field", i);
      return false;
    }
    if (!in.Read(c)) {
      AllocValues(i);
      in.PostError("Expected '%c' or '%c' but got EOF while reading value %d", ',', ']', i);
      return false;
    }
    if (c == ',') {
      // A comma may close the list.
      if (in.Peek(c) && c == ']') {
        in.Get(c);
        break;
      }
    } else if (c == ']') {
      break;
    } else {
      AllocValues(i);
      in.PostError("Expected '%c' or '%c' but got '%c' while reading value %d", ',', ']', c, i);
      return false;
    }
    if (i == INT_MAX) {
      in.PostError("Too many values in field");
      return false;
    }
  }
  if (GetNum() > i)
    AllocValues(i);
  return true;
}

// Single-value fields.

bool QvSFBitMask::ReadValue(QvTextSource& in) {
  char c;
  if (!in.Read(c))
    return false;
  if (c != '(') {
    in.PutBack(c);
    std::string name(in.ReadWord());
    const QvEnumEntry* e = FindEnum(names, name);
    if (!e) {
      in.PostError("Unknown QvSFBitMask bit mask value \"%s\"", name.c_str());
      return false;
    }
    value = e->value;
    return true;
  }
  int bits = 0;
  for (;;) {
    if (!in.SkipBlanks()) {
      in.PostError("EOF reached before '%c' in QvSFBitMask value", ')');
      return false;
    }
    std::string name(in.ReadWord());
    const QvEnumEntry* e = FindEnum(names, name);
    if (!e) {
      in.PostError("Unknown QvSFBitMask bit mask value \"%s\"", name.c_str());
      return false;
    }
    bits |= e->value;
    if (!in.Read(c)) {
      in.PostError("EOF reached before '%c' in QvSFBitMask value", ')');
      return false;
    }
    if (c == ')')
      break;
    if (c != '|') {
      in.PostError("Expected '%c' or '%c', got '%c' in QvSFBitMask value", '|', ')', c);
      return false;
    }
  }
  value = bits;
  return true;
}

bool QvSFBool::ReadValue(QvTextSource& in) {
  if (!in.SkipBlanks())
    return false;
  std::int32_t n;
  if (in.ReadInt(n)) {
    if (n != 0 && n != 1) {
      in.PostError("Illegal value for QvSFBool: %d (must be 0 or 1)", n);
      return false;
    }
    value = n == 1;
    return true;
  }
  std::string word(in.ReadWord());
  if (word == "TRUE") {
    value = true;
  } else if (word == "FALSE") {
    value = false;
  } else {
    in.PostError("Unknown value (\"%s\") for QvSFBool (must be TRUE or FALSE)", word.c_str());
    return false;
  }
  return true;
}

bool QvSFColor::ReadValue(QvTextSource& in) {
  return ReadFloats(in, value, 3);
}

bool QvSFEnum::ReadValue(QvTextSource& in) {
  std::string name(in.ReadWord());
  const QvEnumEntry* e = FindEnum(names, name);
  if (!e) {
    in.PostError("Unknown QvSFEnum enumeration value \"%s\"", name.c_str());
    return false;
  }
  value = e->value;
  return true;
}

bool QvSFFloat::ReadValue(QvTextSource& in) {
  return in.ReadFloat(value);
}

bool QvSFImage::ReadValue(QvTextSource& in) {
  std::int32_t w, h, nc;
  if (!in.ReadInt(w) || !in.ReadInt(h) || !in.ReadInt(nc))
    return false;
  if (w < 0 || h < 0 || nc < 0 || nc > 4 || (nc == 0 && w > 0 && h > 0)) {
    in.PostError("Bad image size %d x %d with %d components", w, h, nc);
    return false;
  }
  const std::uint64_t pixels = static_cast<std::uint64_t>(w) * static_cast<std::uint64_t>(h);
  // Every pixel takes at least a digit and a blank, so the text bounds the count.
  if (pixels > in.Remaining() / 2 + 1) {
    in.PostError("Image of %d x %d pixels is larger than the file", w, h);
    return false;
  }
  std::vector<std::uint8_t> data(static_cast<std::size_t>(pixels) * static_cast<std::size_t>(nc));
  for (std::uint64_t p = 0; p < pixels; ++p) {
    std::uint32_t v;
    if (!in.ReadUInt32(v))
      return false;
    for (int k = 0; k < nc; ++k)
      data[static_cast<std::size_t>(p) * static_cast<std::size_t>(nc) +
           static_cast<std::size_t>(k)] = static_cast<std::uint8_t>(v >> (8 * (nc - 1 - k)));
  }
  size[0] = w;
  size[1] = h;
  numComponents = nc;
  bytes.swap(data);
  return true;
}

bool QvSFLong::ReadValue(QvTextSource& in) {
  return in.ReadInt(value);
}

bool QvSFMatrix::ReadValue(QvTextSource& in) {
  return ReadFloats(in, &value[0][0], 16);
}

bool QvSFRotation::ReadValue(QvTextSource& in) {
  return ReadFloats(in, axis, 3) && in.ReadFloat(angle);
}

bool QvSFString::ReadValue(QvTextSource& in) {
  return in.ReadString(value);
}

bool QvSFUShort::ReadValue(QvTextSource& in) {
  std::int32_t v;
  if (!in.ReadInt(v))
    return false;
  value = static_cast<std::uint16_t>(v);
  return true;
}

bool QvSFVec2f::ReadValue(QvTextSource& in) {
  return ReadFloats(in, value, 2);
}

bool QvSFVec3f::ReadValue(QvTextSource& in) {
  return ReadFloats(in, value, 3);
}

// Multiple-value fields.

bool QvMFColor::Read1Value(QvTextSource& in, int index) {
  return ReadFloats(in, values[static_cast<std::size_t>(index)].data(), 3);
}

bool QvMFFloat::Read1Value(QvTextSource& in, int index) {
  return in.ReadFloat(values[static_cast<std::size_t>(index)]);
}

bool QvMFInt32::Read1Value(QvTextSource& in, int index) {
  return in.ReadInt(values[static_cast<std::size_t>(index)]);
}

bool QvMFLong::Read1Value(QvTextSource& in, int index) {
  return in.ReadInt(values[static_cast<std::size_t>(index)]);
}

bool QvMFString::Read1Value(QvTextSource& in, int index) {
  return in.ReadString(values[static_cast<std::size_t>(index)]);
}

bool QvMFVec2f::Read1Value(QvTextSource& in, int index) {
  return ReadFloats(in, values[static_cast<std::size_t>(index)].data(), 2);
}

bool QvMFVec3f::Read1Value(QvTextSource& in, int index) {
  float* v = values[static_cast<std::size_t>(index)].data();
  return in.ReadFloat(v[0]) && in.ReadFloat(v[1]) && in.ReadFloat(v[2]);
}

bool QvMFVec4f::Read1Value(QvTextSource& in, int index) {
  return ReadFloats(in, values[static_cast<std::size_t>(index)].data(), 4);
}

bool QvMFMatrix::Read1Value(QvTextSource& in, int index) {
  return ReadFloats(in, values[static_cast<std::size_t>(index)].data(), 16);
}

bool QvSFVec4f::ReadValue(QvTextSource& in) {
  return ReadFloats(in, value, 4);
}

namespace {

// Inventor field types that share the reading of one of ours.
struct Alias {
  std::string_view inventor;
  std::string_view ours;
};
constexpr Alias kAliases[] = {
    {"SFInt32", "SFLong"},    {"SFUInt32", "SFLong"},    {"SFShort", "SFLong"},
    {"MFUInt32", "MFLong"},   {"MFShort", "MFLong"},     {"MFUShort", "MFLong"},
    {"SFName", "SFString"},   {"MFName", "MFString"},    {"SFTime", "SFFloat"},
    {"MFTime", "MFFloat"},    {"SFPlane", "SFVec4f"},    {"SFColorRGBA", "SFVec4f"},
    {"MFPlane", "MFVec4f"},   {"MFRotation", "MFVec4f"}, {"MFColorRGBA", "MFVec4f"},
    {"SFVec3d", "SFVec3f"},   {"MFVec3d", "MFVec3f"},    {"SFVec2d", "SFVec2f"},
    {"MFVec2d", "MFVec2f"},   {"SFVec2s", "SFVec2f"},    {"SFVec3s", "SFVec3f"},
    {"SFVec2i32", "SFVec2f"}, {"SFVec3i32", "SFVec3f"},  {"MFVec2s", "MFVec2f"},
    {"MFVec3s", "MFVec3f"},   {"MFVec2i32", "MFVec2f"},  {"MFVec3i32", "MFVec3f"},
    {"SFVec4d", "SFVec4f"},   {"MFVec4d", "MFVec4f"},    {"SFVec4i32", "SFVec4f"},
    {"MFVec4i32", "MFVec4f"}, {"SFDouble", "SFFloat"},   {"MFDouble", "MFFloat"},
    {"MFEnum", "MFString"},
};

} // namespace

std::unique_ptr<QvField> QvCreateField(std::string_view type) {
  for (const Alias& a : kAliases)
    if (type == a.inventor)
      return QvCreateField(a.ours);
  if (type == "SFVec4f")
    return std::make_unique<QvSFVec4f>();
  if (type == "MFVec4f")
    return std::make_unique<QvMFVec4f>();
  if (type == "MFMatrix")
    return std::make_unique<QvMFMatrix>();
  if (type == "SFNode")
    return std::make_unique<QvSFNode>();
  if (type == "MFNode")
    return std::make_unique<QvMFNode>();
  if (type == "SFBitMask")
    return std::make_unique<QvSFBitMask>();
  if (type == "SFBool")
    return std::make_unique<QvSFBool>();
  if (type == "SFColor")
    return std::make_unique<QvSFColor>();
  if (type == "SFEnum")
    return std::make_unique<QvSFEnum>();
  if (type == "SFFloat")
    return std::make_unique<QvSFFloat>();
  if (type == "SFImage")
    return std::make_unique<QvSFImage>();
  if (type == "SFLong")
    return std::make_unique<QvSFLong>();
  if (type == "SFMatrix")
    return std::make_unique<QvSFMatrix>();
  if (type == "SFRotation")
    return std::make_unique<QvSFRotation>();
  if (type == "SFString")
    return std::make_unique<QvSFString>();
  if (type == "SFUShort")
    return std::make_unique<QvSFUShort>();
  if (type == "SFVec2f")
    return std::make_unique<QvSFVec2f>();
  if (type == "SFVec3f")
    return std::make_unique<QvSFVec3f>();
  if (type == "MFColor")
    return std::make_unique<QvMFColor>();
  if (type == "MFFloat")
    return std::make_unique<QvMFFloat>();
  if (type == "MFInt32")
    return std::make_unique<QvMFInt32>();
  if (type == "MFLong")
    return std::make_unique<QvMFLong>();
  if (type == "MFString")
    return std::make_unique<QvMFString>();
  if (type == "MFVec2f")
    return std::make_unique<QvMFVec2f>();
  if (type == "MFVec3f")
    return std::make_unique<QvMFVec3f>();
  return nullptr;
}

} // namespace meshcore

#pragma once
// Numeric ids of the library's string tables (see string_table.h). Ids below
// 20000 are the library's historical resource numbers; 20000 and up are ours.

namespace meshcore {

// Format dispatch results and the error box.
inline constexpr unsigned IDS_IO_CANNOT_OPEN = 1003; // deliberately has no text
inline constexpr unsigned IDS_IO_ACCESS_DENIED = 1024;
inline constexpr unsigned IDS_IO_BAD_FORMAT = 1025;
inline constexpr unsigned IDS_IO_CANT_SAVE_OPTIONS = 1026;
inline constexpr unsigned IDS_IO_DISK_FULL = 1027;
inline constexpr unsigned IDS_IO_ERROR_TITLE = 1028;
inline constexpr unsigned IDS_IO_NO_MEMORY = 1029;
inline constexpr unsigned IDS_IO_UNKNOWN_ERROR = 1030;
inline constexpr unsigned IDS_IO_UNKNOWN_FILE_TYPE = 1031;
inline constexpr unsigned IDS_IO_CANCELED = 1032;
inline constexpr unsigned IDS_NO_PARAMETERS = 1015; // "No parameters\n"

// Default names.
inline constexpr unsigned IDS_DEFAULT_MATERIAL = 1004;
inline constexpr unsigned IDS_OBJECT = 1010;
inline constexpr unsigned IDS_UNNAMED_MATERIAL = 1022;
inline constexpr unsigned IDS_UNNAMED_OBJECT = 1023;
inline constexpr unsigned IDS_MATERIAL = 9199;

// Object kinds.
inline constexpr unsigned IDS_TYPE_CURVE = 9159;
inline constexpr unsigned IDS_TYPE_GROUP = 9162;
inline constexpr unsigned IDS_TYPE_PATCH = 9167;
inline constexpr unsigned IDS_TYPE_POLYGONAL = 9168;

// Texts without a historical id.
inline constexpr unsigned IDS_RGB_FORMAT = 20000; // printf format taking r, g, b
inline constexpr unsigned IDS_CHANNEL_UVW = 20001;
inline constexpr unsigned IDS_CHANNEL_VC = 20002;
inline constexpr unsigned IDS_CHANNEL_POINT_NORMALS = 20003;
inline constexpr unsigned IDS_CHANNEL_FACE_NORMALS = 20004;

// Warnings of the writers; "%1" is a list of file names.
inline constexpr unsigned IDS_IMAGES_NOT_FOUND = 21001;

// File prompts shown by the raw file layer; each has one "%1" for the file name.
inline constexpr unsigned IDP_INVALID_FILENAME = 0xF100;
inline constexpr unsigned IDP_FAILED_TO_OPEN_DOC = 0xF101;
inline constexpr unsigned IDP_FAILED_INVALID_FORMAT = 0xF120;
inline constexpr unsigned IDP_FAILED_INVALID_PATH = 0xF121;
inline constexpr unsigned IDP_FAILED_DISK_FULL = 0xF122;
inline constexpr unsigned IDP_FAILED_ACCESS_READ = 0xF123;
inline constexpr unsigned IDP_FAILED_ACCESS_WRITE = 0xF124;

} // namespace meshcore

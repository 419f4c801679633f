#pragma once

#include "base/windows_api.h"

#include <cstdint>
#include <string>

/// The 52 bytes of a file's fixed version information; all zero when the file has none or cannot be read.
VS_FIXEDFILEINFO GetFileVersionFixedInfo(const std::string& FileName);

/// The file version as "%d.%d.%d.%d", for example 8.1.0.38; 0.0.0.0 without version information.
std::string FormatFileVersion(const VS_FIXEDFILEINFO& Info);

/// The product version as one number, which is what the copy rules compare.
inline uint64_t ProductVersion(const VS_FIXEDFILEINFO& Info) {
  return static_cast<uint64_t>(Info.dwProductVersionMS) << 32 | Info.dwProductVersionLS;
}

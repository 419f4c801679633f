#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

/// What an update is to do, as its manifest says: a JSON file. docs/formats/update-manifest.md. Texts are UTF-8; names
/// of files are below the target, with backslashes.
struct TManifestFile {
  std::string Name, Sha256;  ///< the hash in lower-case hexadecimal digits
  uint64_t Size = 0;
  bool Register = false;  ///< a COM server
};

struct TManifestKey {
  uint32_t Root = 0;
  std::string Key;
};

struct TManifestValue {
  uint32_t Root = 0, Type = 0;
  std::string Key, Name, Data;  ///< the data as CreateValueLogged takes them
};

struct TUpdateManifest {
  std::string Name, Target;
  std::string Source;  ///< a folder below that of the manifest; empty for that one
  std::vector<TManifestFile> Files;
  std::vector<std::string> Delete;
  std::vector<TManifestKey> Keys;
  std::vector<TManifestValue> Values;
};

/// Why a manifest is refused, and in which line, from 1.
struct EManifestError {
  size_t Line;
  std::string Why;
};

inline constexpr size_t LargestManifest = 16 << 20;  ///< in bytes

/// Reads a manifest; raises EManifestError.
TUpdateManifest ReadUpdateManifest(std::string_view Text);

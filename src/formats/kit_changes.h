#pragma once

#include "base/guid_text.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

/// What one entry of the kit creates and replaces, as an item of the backup store keeps it: comma text (comma_text.h)
/// that begins with a word for the format; then, for each change in the order in which it is made, its kind and its
/// fields. Numbers are decimal, bytes hexadecimal, GUIDs in registry form, names UTF-8. docs/formats/kit-changes.md.

struct TFolderMade {
  static constexpr char Kind[] = "folder";
  std::string Name;
  void Fields(auto& Io) { Io(Name); }
};

struct TKeyMade {
  static constexpr char Kind[] = "key";
  uint32_t Root = 0;
  std::string Name;
  void Fields(auto& Io) { Io(Root), Io(Name); }
};

/// Data are the bytes as the registry stores them.
struct TValueMade {
  static constexpr char Kind[] = "value";
  uint32_t Root = 0;
  std::string Key, Name;
  uint32_t Type = 0;
  std::vector<uint8_t> Data;
  void Fields(auto& Io) { Io(Root), Io(Key), Io(Name), Io(Type), Io(Data); }
};

/// A file that is written under its name with `Ending` behind it, and then renamed. The `Depth` folders that it lies in
/// are no links.
struct TFileMade {
  static constexpr char Kind[] = "file";
  std::string Name, Ending;
  uint32_t Depth = 0;
  uint64_t Size = 0;
  uint32_t Crc = 0;  ///< of the content
  void Fields(auto& Io) { Io(Name), Io(Ending), Io(Depth), Io(Size), Io(Crc); }
};

/// One that takes the place of another, whose content is the next `Size` bytes of the pieces. Times are FILETIMEs.
struct TFileReplaced {
  static constexpr char Kind[] = "replaced";
  std::string Name, Ending;
  uint32_t Depth = 0, Attributes = 0;
  uint64_t Creation = 0, LastAccess = 0, LastWrite = 0, Size = 0;
  void Fields(auto& Io) {
    Io(Name), Io(Ending), Io(Depth), Io(Attributes), Io(Creation), Io(LastAccess), Io(LastWrite), Io(Size);
  }
};

/// An item with a piece of what the replaced files held.
struct TPieceSaved {
  static constexpr char Kind[] = "piece";
  TGuidBytes Item{};
  void Fields(auto& Io) { Io(Item); }
};

using TKitChange = std::variant<TFolderMade, TKeyMade, TValueMade, TFileMade, TFileReplaced, TPieceSaved>;
using TKitChanges = std::vector<TKitChange>;

/// The bytes of each piece but the last.
inline constexpr uint64_t PieceSize = 4 << 20;

std::string EncodeKitChanges(const TKitChanges& Changes);

/// Nothing when the text is of another format, or damaged: no change at all, an unknown kind, a field that is missing
/// or none of its type, or other pieces than the replaced files need.
std::optional<TKitChanges> DecodeKitChanges(std::string_view Text);

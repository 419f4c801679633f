#pragma once

#include "base/guid_text.h"

#include <cstdint>
#include <string>
#include <vector>

/// The layouts of backup items, and the one writer and one reader that all of them share. On disk: a 4-byte kind tag,
/// then the fields in order, little-endian, without padding. Strings are ANSI.

enum TItemKind : uint32_t {
  StringKind = 1,
  RegistryValueKind = 2,
  // One tag for three layouts; a reader cannot tell them apart and assumes its own.
  RegistryKeyKind = 3,
  RawDataKind = 3,
  SingleFileKind = 3,
  FileSetKind = 4,
  KeyRightsKind = 5,
};
constexpr int ItemTagSize = 4;

/// Collects the bytes of an item's fields.
class TItemWriter {
 public:
  void operator()(uint32_t Number);
  void operator()(uint64_t Number);
  /// 4-byte length, then the characters, no terminator. One that is longer than a reader takes leaves Good false.
  void operator()(const std::string& Text);
  /// 4-byte size, then the bytes.
  void operator()(const std::vector<uint8_t>& Data);
  /// 4-byte count, then 16 bytes each.
  void operator()(const std::vector<TGuidBytes>& List);

  std::string Bytes;
  bool Good = true;
};

/// Where an item's bytes come from.
class TByteSource {
 public:
  virtual ~TByteSource() = default;
  /// The bytes that are left.
  virtual uint64_t Remaining() const = 0;
  /// Reads exactly `Size` bytes, which are there. A failed read is raised as the retry layer's failure.
  virtual void Read(void* Buffer, uint32_t Size) = 0;
};

/// Reads an item's fields. Total: after a field that does not fit what is left, Good is false, every further field
/// stays empty, and nothing was allocated for the lie.
class TItemReader {
 public:
  explicit TItemReader(TByteSource& Source) : Source(Source) {}

  void operator()(uint32_t& Number);
  void operator()(uint64_t& Number);
  void operator()(std::string& Text);
  void operator()(std::vector<uint8_t>& Data);
  void operator()(std::vector<TGuidBytes>& List);

  bool Good() const { return Fits; }

 private:
  bool Take(void* Buffer, uint64_t Size);

  TByteSource& Source;
  bool Fits = true;
};

/// A text in the ANSI code page; it follows to the end of the item.
struct TStringItem {
  static constexpr TItemKind Kind = StringKind;
  void Fields(auto&) {}
  bool Plausible() const { return true; }
};

/// Bytes of a caller; they follow to the end of the item.
struct TRawDataItem {
  static constexpr TItemKind Kind = RawDataKind;
  void Fields(auto&) {}
  bool Plausible() const { return true; }
};

/// One saved file; the content follows to the end of the item.
struct TSingleFileItem {
  static constexpr TItemKind Kind = SingleFileKind;
  std::string Path;
  uint32_t Attributes = 0;
  uint64_t Creation = 0, LastAccess = 0, LastWrite = 0;  ///< FILETIMEs

  void Fields(auto& Io) { Io(Path), Io(Attributes), Io(Creation), Io(LastAccess), Io(LastWrite); }
  /// Whether the fields can have been saved from a file: a path without NULs, and attributes of a file.
  bool Plausible() const;
};

/// The files that a mask found, as items of their own; nothing follows.
struct TFileSetItem {
  static constexpr TItemKind Kind = FileSetKind;
  std::vector<TGuidBytes> Files;    ///< single files
  std::vector<TGuidBytes> Folders;  ///< strings: paths of folders
  std::vector<TGuidBytes> Subsets;  ///< file sets, one for each subfolder

  void Fields(auto& Io) { Io(Files), Io(Folders), Io(Subsets); }
  bool Plausible() const { return true; }
};

/// One saved registry value; nothing follows.
struct TRegistryValueItem {
  static constexpr TItemKind Kind = RegistryValueKind;
  uint32_t RootKey = 0;  ///< a predefined root's handle value
  std::string KeyName;   ///< below the root
  std::string Name;      ///< empty for the key's default value
  uint32_t Type = 0;
  std::vector<uint8_t> Data;

  void Fields(auto& Io) { Io(RootKey), Io(KeyName), Io(Name), Io(Type), Io(Data); }
  bool Plausible() const;
};

/// One saved registry key, as items of its parts; nothing follows.
struct TRegistryKeyItem {
  static constexpr TItemKind Kind = RegistryKeyKind;
  uint32_t RootKey = 0;
  std::string KeyName;
  std::vector<TGuidBytes> Values;   ///< in descending order of the index that they had
  std::vector<TGuidBytes> Subkeys;  ///< the same; empty when saved without recursion

  void Fields(auto& Io) { Io(RootKey), Io(KeyName), Io(Values), Io(Subkeys); }
  bool Plausible() const;
};

/// The access rights of one registry key; nothing follows.
struct TKeyRightsItem {
  static constexpr TItemKind Kind = KeyRightsKind;
  uint32_t RootKey = 0;
  std::string KeyName;
  std::string Rights;  ///< the access list, in the security descriptor definition language

  void Fields(auto& Io) { Io(RootKey), Io(KeyName), Io(Rights); }
  bool Plausible() const;
};

/// The bytes of an item up to the end of its fields, tag included.
template <class TItem>
std::string EncodeItem(TItem Item) {
  TItemWriter Writer;
  Writer(static_cast<uint32_t>(TItem::Kind));
  Item.Fields(Writer);
  return Writer.Bytes;
}

/// Whether a reader would take the bytes of an item.
template <class TItem>
bool CanBeRead(TItem Item) {
  TItemWriter Writer;
  Item.Fields(Writer);
  return Writer.Good && Item.Plausible();
}

#include "formats/backup_items.h"

#include "base/numbers.h"
#include "base/registry_roots.h"

namespace {

/// Longer than any path that the system's ANSI calls take, so that a lying length cannot swallow a large file's
/// content.
constexpr uint32_t LongestText = 0xFFFF;

}  // namespace

void TItemWriter::operator()(uint32_t Number) { AppendNumber(Bytes, Number); }

void TItemWriter::operator()(uint64_t Number) { AppendNumber(Bytes, Number); }

void TItemWriter::operator()(const std::string& Text) {
  Good = Good && Text.size() <= LongestText;
  (*this)(static_cast<uint32_t>(Text.size()));
  Bytes += Text;
}

void TItemWriter::operator()(const std::vector<uint8_t>& Data) {
  (*this)(static_cast<uint32_t>(Data.size()));
  Bytes.append(Data.begin(), Data.end());
}

void TItemWriter::operator()(const std::vector<TGuidBytes>& List) {
  (*this)(static_cast<uint32_t>(List.size()));
  for (const TGuidBytes& Guid : List) Bytes.append(Guid.begin(), Guid.end());
}

bool TItemReader::Take(void* Buffer, uint64_t Size) {
  Fits = Fits && Size <= Source.Remaining();
  if (Fits && Size > 0) Source.Read(Buffer, static_cast<uint32_t>(Size));
  return Fits;
}

void TItemReader::operator()(uint32_t& Number) {
  uint8_t Bytes[sizeof Number];
  if (Take(Bytes, sizeof Bytes)) Number = NumberAt<uint32_t>(Bytes);
}

void TItemReader::operator()(uint64_t& Number) {
  uint8_t Bytes[sizeof Number];
  if (Take(Bytes, sizeof Bytes)) Number = NumberAt<uint64_t>(Bytes);
}

void TItemReader::operator()(std::string& Text) {
  uint32_t Length = 0;
  (*this)(Length);
  Fits = Fits && Length <= LongestText && Length <= Source.Remaining();
  if (!Fits) return;
  Text.resize(Length);
  Take(Text.data(), Length);
}

void TItemReader::operator()(std::vector<uint8_t>& Data) {
  uint32_t Size = 0;
  (*this)(Size);
  Fits = Fits && Size <= Source.Remaining();
  if (!Fits) return;
  Data.resize(Size);
  Take(Data.data(), Size);
}

void TItemReader::operator()(std::vector<TGuidBytes>& List) {
  uint32_t Count = 0;
  (*this)(Count);
  Fits = Fits && Count <= Source.Remaining() / sizeof(TGuidBytes);
  if (!Fits) return;
  List.resize(Count);
  Take(List.data(), uint64_t{Count} * sizeof(TGuidBytes));
}

namespace {

bool HasNul(const std::string& Text) { return Text.find('\0') != std::string::npos; }

/// A predefined root, and a name that no NUL cuts short: a shortened one would reach another key.
bool IsKeyPlace(uint32_t RootKey, const std::string& KeyName) { return IsRegistryRoot(RootKey) && !HasNul(KeyName); }

}  // namespace

bool TRegistryValueItem::Plausible() const { return IsKeyPlace(RootKey, KeyName) && !HasNul(Name); }

bool TRegistryKeyItem::Plausible() const { return IsKeyPlace(RootKey, KeyName); }

bool TKeyRightsItem::Plausible() const { return IsKeyPlace(RootKey, KeyName) && !HasNul(Rights); }

bool TSingleFileItem::Plausible() const {
  // What no file reports: the bits beyond 0x00400000, but for 0x20000000 ("strictly sequential").
  constexpr uint32_t NoAttributes = 0xDF800000, Directory = 0x10;
  return !Path.empty() && !HasNul(Path) && (Attributes & (NoAttributes | Directory)) == 0;
}

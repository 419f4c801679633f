#include "formats/kit_changes.h"

#include "formats/comma_text.h"

#include <charconv>
#include <utility>

namespace {

constexpr char FormatWord[] = "MendworkKit1";
constexpr char HexDigits[] = "0123456789ABCDEF";

class TWordWriter {
 public:
  std::vector<std::string> Words{FormatWord};

  void operator()(const std::string& Text) { Words.push_back(Text); }
  void operator()(uint32_t Number) { Words.push_back(std::to_string(Number)); }
  void operator()(uint64_t Number) { Words.push_back(std::to_string(Number)); }
  void operator()(const TGuidBytes& Guid) { Words.push_back(GuidText(Guid)); }
  void operator()(const std::vector<uint8_t>& Bytes) {
    std::string Hex;
    for (const uint8_t Byte : Bytes) Hex.append({HexDigits[Byte >> 4], HexDigits[Byte & 0xF]});
    Words.push_back(std::move(Hex));
  }
};

class TWordReader {
 public:
  explicit TWordReader(std::vector<std::string> Words) : Words(std::move(Words)) {}

  bool Ok = true;  ///< until a field is missing or wrong
  bool AtEnd() const { return At == Words.size(); }

  void operator()(std::string& Text) {
    if (!(Ok = Ok && !AtEnd())) return;
    Text = std::move(Words[At++]);
  }
  void operator()(uint32_t& Number) { ReadNumber(Number); }
  void operator()(uint64_t& Number) { ReadNumber(Number); }
  void operator()(TGuidBytes& Guid) {
    std::string Text;
    (*this)(Text);
    const auto Parsed = ParseGuid(Text);
    Ok = Ok && Parsed;
    if (Ok) Guid = *Parsed;
  }
  void operator()(std::vector<uint8_t>& Bytes) {
    std::string Hex;
    (*this)(Hex);
    Ok = Ok && Hex.size() % 2 == 0;
    for (size_t Pair = 0; Ok && Pair < Hex.size(); Pair += 2) {
      const char* const End = Hex.data() + Pair + 2;
      Bytes.push_back(0);
      const auto Parsed = std::from_chars(Hex.data() + Pair, End, Bytes.back(), 16);
      Ok = Parsed.ec == std::errc() && Parsed.ptr == End;
    }
  }

 private:
  template <class TNumber>
  void ReadNumber(TNumber& Number) {
    std::string Text;
    (*this)(Text);
    const char* const End = Text.data() + Text.size();
    const auto Parsed = std::from_chars(Text.data(), End, Number);
    Ok = Ok && Parsed.ec == std::errc() && Parsed.ptr == End;
  }

  std::vector<std::string> Words;
  size_t At = 0;
};

/// Reads the fields when the kind is this one's.
template <class TChange>
bool ReadAs(const std::string& Kind, TWordReader& Words, TKitChanges& Changes) {
  if (Kind != TChange::Kind) return false;
  TChange Change;
  Change.Fields(Words);
  Changes.push_back(std::move(Change));
  return true;
}

template <class... TKinds>
bool ReadOne(std::variant<TKinds...>*, TWordReader& Words, TKitChanges& Changes) {
  std::string Kind;
  Words(Kind);
  return Words.Ok && (ReadAs<TKinds>(Kind, Words, Changes) || ...);
}

bool HasItsPieces(const TKitChanges& Changes) {
  uint64_t Bytes = 0, Pieces = 0;
  for (const TKitChange& Change : Changes) {
    Pieces += std::holds_alternative<TPieceSaved>(Change);
    const auto* const Replaced = std::get_if<TFileReplaced>(&Change);
    if (Replaced && (Bytes += Replaced->Size) < Replaced->Size) return false;
  }
  return Pieces == Bytes / PieceSize + (Bytes % PieceSize != 0);
}

}  // namespace

std::string EncodeKitChanges(const TKitChanges& Changes) {
  TWordWriter Writer;
  for (TKitChange Change : Changes)
    std::visit(
        [&](auto& Made) {
          Writer(std::string(Made.Kind));
          Made.Fields(Writer);
        },
        Change);
  return MakeCommaText(Writer.Words);
}

std::optional<TKitChanges> DecodeKitChanges(std::string_view Text) {
  TWordReader Words(ParseCommaText(Text));
  TKitChanges Changes;
  std::string Format;
  Words(Format);
  if (Format != FormatWord) return std::nullopt;
  while (!Words.AtEnd())
    if (!ReadOne(static_cast<TKitChange*>(nullptr), Words, Changes) || !Words.Ok) return std::nullopt;
  if (Changes.empty() || !HasItsPieces(Changes)) return std::nullopt;
  return Changes;
}

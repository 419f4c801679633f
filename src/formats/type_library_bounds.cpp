#include "formats/type_library_bounds.h"

#include "base/numbers.h"

#include <cstdint>

namespace {

constexpr uint64_t HeaderSize = 0x54, FlagsAt = 0x14, TypeCountAt = 0x20, HasHelpModule = 0x100;
constexpr uint64_t TableCount = 15, TableEntrySize = 16, TypeSize = 0x64, TypeDataAt = 4, MemberCountsAt = 0x18;
constexpr uint64_t NameAt = 0x34, BasesAt = 0x4C, BasesPlaceAt = 0x54, KindMask = 0xF, CoclassKind = 5;
constexpr uint64_t ReferenceTable = 3, NameTable = 7, ReferenceSize = 16, NameHeaderSize = 12;
constexpr uint64_t MemberSize = 3 * uint64_t{4};  // identifier, name and place of a member, behind all members' records
constexpr uint32_t None = 0xFFFFFFFF;

/// Reads numbers; from the first one that lies behind the end on, all are 0.
class TNumbers {
 public:
  explicit TNumbers(std::string_view File) : File(File) {}

  bool Holds(uint64_t At, uint64_t Size) { return Whole = Whole && At + Size <= File.size(); }
  uint32_t At(uint64_t Place) {
    return Holds(Place, sizeof(uint32_t)) ? NumberAt<uint32_t>(File.data() + static_cast<size_t>(Place)) : 0;
  }
  void Require(bool Condition) { Whole = Whole && Condition; }
  bool IsWhole() const { return Whole; }

 private:
  std::string_view File;
  bool Whole = true;
};

/// The records of a type's functions and variables.
void VisitMembers(TNumbers& Numbers, uint64_t Type) {
  const uint32_t Counts = Numbers.At(Type + MemberCountsAt), Data = Numbers.At(Type + TypeDataAt);
  if (Counts != 0)
    Numbers.Holds(Data, 4 + uint64_t{Numbers.At(Data)} + MemberSize * ((Counts & 0xFFFF) + (Counts >> 16)));
}

/// The name of a type, within the table of names, and what it is made of: a coclass lists its interfaces in the table
/// of references; anything else has one base at the most, and a function table of whole pointers.
void VisitParts(TNumbers& Numbers, uint64_t Tables, uint64_t Type) {
  const auto SizeOf = [&](uint64_t Table) { return uint64_t{Numbers.At(Tables + Table * TableEntrySize + 4)}; };
  Numbers.Require(Numbers.At(Type + NameAt) + NameHeaderSize <= SizeOf(NameTable));
  const uint32_t Counts = Numbers.At(Type + BasesAt), Bases = Counts & 0xFFFF, FunctionTable = Counts >> 16;
  if ((Numbers.At(Type) & KindMask) == CoclassKind)
    Numbers.Require(Bases == 0 || Numbers.At(Type + BasesPlaceAt) + ReferenceSize * Bases <= SizeOf(ReferenceTable));
  else
    Numbers.Require(Bases <= 1 && FunctionTable % 4 == 0);
}

}  // namespace

bool IsCutOffTypeLibrary(std::string_view File) {
  if (!File.starts_with("MSFT")) return false;
  TNumbers Numbers(File);
  const uint64_t TypeCount = Numbers.At(TypeCountAt);
  const uint64_t Tables = HeaderSize + 4 * TypeCount + (Numbers.At(FlagsAt) & HasHelpModule ? 4 : 0);
  Numbers.Holds(Tables, TableCount * TableEntrySize);
  for (uint64_t Table = 0; Table < TableCount && Numbers.IsWhole(); ++Table) {
    const uint64_t Entry = Tables + Table * TableEntrySize;
    if (Numbers.At(Entry) != None) Numbers.Holds(Numbers.At(Entry), Numbers.At(Entry + 4));
  }
  // The first table holds the types.
  const uint64_t Types = Numbers.At(Tables);
  for (uint64_t Type = 0; Type < TypeCount && Numbers.Holds(Types + Type * TypeSize, TypeSize); ++Type)
    VisitMembers(Numbers, Types + Type * TypeSize), VisitParts(Numbers, Tables, Types + Type * TypeSize);
  return !Numbers.IsWhole();
}

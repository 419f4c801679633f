#include "formats/type_library_bounds.h"

#include "base/numbers.h"

#include <algorithm>
#include <cstdint>

namespace {

constexpr uint64_t HeaderSize = 0x54, FlagsAt = 0x14, TypeCountAt = 0x20, HeaderCustomDataAt = 0x40;
constexpr uint64_t HasHelpModule = 0x100, TableEntrySize = 16, NumberSize = 4;
constexpr uint32_t NoTable = 0xFFFFFFFF;

/// The tables, in the order of their entries.
enum ETable : uint64_t {
  Types,
  Imports,
  ImportedFiles,
  References,
  GuidHashes,
  Guids,
  NameHashes,
  Names,
  Strings,
  TypeDescriptions,
  ArrayDescriptions,
  Values,
  CustomData,
  TableCount = 15
};

constexpr uint64_t TypeSize = 0x64, TypeDataAt = 4, MemberCountsAt = 0x18, NameAt = 0x34, TypeCustomDataAt = 0x48;
constexpr uint64_t BasesAt = 0x4C, BasesPlaceAt = 0x54, KindMask = 0xF, InterfaceKind = 3, DispatchKind = 4,
                   CoclassKind = 5, AliasKind = 6;
constexpr uint64_t ReferenceSize = 16, ReferenceCustomDataAt = 8, ImportSize = 12, NameHeaderSize = 12;
constexpr uint32_t IsImported = 1, InFileMask = 3;
constexpr uint64_t DescriptionSize = 8, CustomDataSize = 12, ValueAt = 4, NextAt = 8, NextReferenceAt = 12,
                   BoundSize = 8;
constexpr uint64_t MemberSize = 3 * NumberSize;  // identifier, name and place of a member, behind all members' records

// A member's record: its length, its type, and what follows is a function's or a variable's.
constexpr uint64_t MemberTypeAt = 4, SmallestFunction = 0x18, FunctionFlagsAt = 0x10, ParameterCountAt = 0x14;
constexpr uint64_t FunctionCustomDataAt = 0x30, ParameterSize = 12, HasDefaults = 0x1000, HasParameterData = 0x80;
constexpr uint64_t ParameterFlagsAt = 8, HasDefault = 0x20;
constexpr uint64_t SmallestVariable = 0x14, VariableKindAt = 0xC, ConstantAt = 0x10, VariableCustomDataAt = 0x20;
constexpr uint64_t ConstantKind = 2;

/// The kinds of type whose description leads to another one, and of value that is a text.
constexpr uint16_t Pointer = 26, SafeArray = 27, FixedArray = 28, Named = 29, ByteText = 8;

bool IsPacked(uint32_t Number) { return Number & 0x80000000; }  // the number itself, or "none"; no place in a table

/// Follows the tables of a library; the first thing that is not there makes the whole thing damaged, and from then on
/// all numbers are 0.
class TWalk {
 public:
  explicit TWalk(std::string_view File) : File(File) {}

  bool IsWhole() {
    const uint64_t TypeCount = Number(TypeCountAt);
    Tables = HeaderSize + NumberSize * TypeCount + (Number(FlagsAt) & HasHelpModule ? NumberSize : 0);
    Holds(Tables, TableCount * TableEntrySize);
    for (uint64_t Table = 0; Table < TableCount && Whole; ++Table)
      if (PlaceOf(Table) != NoTable) Holds(PlaceOf(Table), SizeOf(Table));
    VisitStrings();
    VisitDescriptions();
    VisitCustomData(Number(HeaderCustomDataAt));
    for (uint64_t Type = 0; Type < TypeCount && Holds(PlaceOf(Types) + Type * TypeSize, TypeSize); ++Type)
      VisitType(PlaceOf(Types) + Type * TypeSize);
    return Whole;
  }

 private:
  bool Holds(uint64_t At, uint64_t Size) { return Whole = Whole && At + Size <= File.size(); }
  void Require(bool Condition) { Whole = Whole && Condition; }
  uint32_t Number(uint64_t At) {
    return Holds(At, NumberSize) ? NumberAt<uint32_t>(File.data() + static_cast<size_t>(At)) : 0;
  }
  uint32_t Low(uint64_t At) { return Number(At) & 0xFFFF; }
  uint32_t PlaceOf(uint64_t Table) { return Number(Tables + Table * TableEntrySize); }
  uint32_t SizeOf(uint64_t Table) {
    return PlaceOf(Table) == NoTable ? 0 : Number(Tables + Table * TableEntrySize + NumberSize);
  }
  /// Whether a table has so many bytes from a place in it on.
  bool InTable(ETable Table, uint64_t At, uint64_t Size) {
    Require(At + Size <= SizeOf(Table));
    return Whole;
  }

  /// One text behind the other: its length, its bytes, and what makes whole numbers and at least two of it.
  void VisitStrings() {
    constexpr uint64_t LengthSize = 2, Smallest = 8;
    for (uint64_t At = 0; At < SizeOf(Strings) && Whole;) {
      const uint64_t Size = LengthSize + Low(PlaceOf(Strings) + At);
      InTable(Strings, At, Size);
      At += std::max(Smallest, (Size + NumberSize - 1) / NumberSize * NumberSize);
    }
  }
  /// A type is a number of its own or a place in the table of descriptions.
  void VisitTypeNumber(uint32_t Type) {
    if (!IsPacked(Type)) InTable(TypeDescriptions, Type, DescriptionSize);
  }
  /// A type by its place among the types of this file, or by that of its import; none is all ones.
  void VisitTypePlace(uint32_t Type) {
    if (IsPacked(Type)) return;
    if (Type & InFileMask)
      Require((Type & InFileMask) == IsImported), InTable(Imports, Type & ~InFileMask, ImportSize);
    else
      Require(Type % TypeSize == 0), InTable(Types, Type, TypeSize);
  }
  void VisitDescriptions() {
    for (uint64_t At = 0; At + DescriptionSize <= SizeOf(TypeDescriptions) && Whole; At += DescriptionSize) {
      const uint64_t Place = PlaceOf(TypeDescriptions) + At;
      const uint32_t Kind = Low(Place), Target = Number(Place + NumberSize);
      if (Kind == Pointer || Kind == SafeArray) VisitTypeNumber(Target);
      if (Kind == Named) VisitTypePlace(Target);
      if (Kind != FixedArray || !InTable(ArrayDescriptions, Target, DescriptionSize)) continue;
      const uint64_t Array = uint64_t{PlaceOf(ArrayDescriptions)} + Target;
      VisitTypeNumber(Number(Array));
      InTable(ArrayDescriptions, Target, DescriptionSize + BoundSize * Low(Array + NumberSize));
    }
  }

  void VisitValue(uint32_t Value) {
    constexpr uint64_t KindSize = 2;
    if (IsPacked(Value) || !InTable(Values, Value, KindSize + NumberSize)) return;
    const uint64_t Place = uint64_t{PlaceOf(Values)} + Value;
    // A length of -1 stands for a text that ends with its first 0.
    const uint32_t Length = Number(Place + KindSize);
    if (Low(Place) != ByteText) return;
    if (IsPacked(Length))
      Require(File.find('\0', static_cast<size_t>(Place + KindSize + NumberSize)) != std::string_view::npos);
    else
      InTable(Values, Value, KindSize + NumberSize + Length);
  }
  /// A list: each entry leads to a value and to the next entry.
  void VisitCustomData(uint32_t Entry) {
    for (uint64_t Left = SizeOf(CustomData) / CustomDataSize; !IsPacked(Entry) && Whole; --Left) {
      Require(Left > 0);  // a list that is longer than its table goes round in a circle
      if (!InTable(CustomData, Entry, CustomDataSize)) return;
      VisitValue(Number(uint64_t{PlaceOf(CustomData)} + Entry + ValueAt));
      Entry = Number(uint64_t{PlaceOf(CustomData)} + Entry + NextAt);
    }
  }

  /// A number of a record, unless the record is too short to have it.
  uint32_t Optional(uint64_t Record, uint64_t Size, uint64_t At) {
    return At + NumberSize <= Size ? Number(Record + At) : 0xFFFFFFFF;
  }
  void VisitFunction(uint64_t Record, uint64_t Size) {
    const uint64_t Parameters = Low(Record + ParameterCountAt), Flags = Number(Record + FunctionFlagsAt);
    const uint64_t Defaults = Flags & HasDefaults ? Parameters * NumberSize : 0;
    Require(SmallestFunction + Parameters * ParameterSize + Defaults <= Size);
    if (!Whole) return;
    const uint64_t FirstParameter = Size - Parameters * ParameterSize, Fixed = FirstParameter - Defaults;
    VisitCustomData(Optional(Record, Fixed, FunctionCustomDataAt));
    for (uint64_t At = 0; At < Parameters && Whole; ++At) {
      const uint64_t Parameter = Record + FirstParameter + At * ParameterSize;
      VisitTypeNumber(Number(Parameter));
      if (Defaults && Number(Parameter + ParameterFlagsAt) & HasDefault)
        VisitValue(Number(Record + Fixed + At * NumberSize));
      if (Flags & HasParameterData)
        VisitCustomData(Optional(Record, Fixed, FunctionCustomDataAt + NumberSize * (At + 1)));
    }
  }
  void VisitVariable(uint64_t Record, uint64_t Size) {
    if (Low(Record + VariableKindAt) == ConstantKind) VisitValue(Number(Record + ConstantAt));
    VisitCustomData(Optional(Record, Size, VariableCustomDataAt));
  }
  /// The records of a type's functions, then those of its variables, each behind the one before.
  void VisitMembers(uint64_t Type) {
    const uint32_t Counts = Number(Type + MemberCountsAt), Functions = Counts & 0xFFFF,
                   All = Functions + (Counts >> 16);
    if (All == 0) return;
    const uint64_t Data = Number(Type + TypeDataAt), End = Data + NumberSize + Number(Data);
    Holds(Data, End - Data + MemberSize * All);
    uint64_t Record = Data + NumberSize;
    for (uint32_t At = 0; At < All && Whole; ++At) {
      const uint64_t Size = Low(Record);
      Require(Size >= (At < Functions ? SmallestFunction : SmallestVariable) && Record + Size <= End);
      VisitTypeNumber(Number(Record + MemberTypeAt));
      if (At < Functions)
        VisitFunction(Record, Size);
      else
        VisitVariable(Record, Size);
      Record += Size;
    }
  }

  /// A list: each entry leads to an interface, to its custom data, and to the next entry.
  void VisitReferences(uint32_t Entry, uint32_t Count) {
    for (; Count > 0 && Whole; --Count) {
      Require(Entry % ReferenceSize == 0);
      if (!InTable(References, Entry, ReferenceSize)) return;
      const uint64_t Place = uint64_t{PlaceOf(References)} + Entry;
      VisitTypePlace(Number(Place));
      VisitCustomData(Number(Place + ReferenceCustomDataAt));
      Entry = Number(Place + NextReferenceAt);
    }
  }
  /// What a type is made of: a coclass lists its interfaces in the table of references; anything else has one base at
  /// the most, and a function table of whole pointers.
  void VisitType(uint64_t Type) {
    InTable(Names, Number(Type + NameAt), NameHeaderSize);
    VisitCustomData(Number(Type + TypeCustomDataAt));
    VisitMembers(Type);
    const uint32_t Counts = Number(Type + BasesAt), Bases = Counts & 0xFFFF, FunctionTable = Counts >> 16;
    const uint32_t Kind = Number(Type) & KindMask, Place = Number(Type + BasesPlaceAt);
    if (Kind == CoclassKind) {
      VisitReferences(Place, Bases);
      return;
    }
    Require(Bases <= 1 && FunctionTable % NumberSize == 0);
    if (Bases == 1 && (Kind == InterfaceKind || Kind == DispatchKind)) VisitTypePlace(Place);
    if (Kind == AliasKind) VisitTypeNumber(Place);
  }

  const std::string_view File;
  uint64_t Tables = 0;  ///< where the entries of the tables begin
  bool Whole = true;
};

}  // namespace

bool IsDamagedTypeLibrary(std::string_view File) { return File.starts_with("MSFT") && !TWalk(File).IsWhole(); }

#include "formats/update_manifest.h"

#include <algorithm>
#include <charconv>
#include <functional>
#include <set>
#include <utility>

namespace {

/// Small letters for capital ones of ASCII; the rest is for whoever knows the system's rules.
std::string Folded(std::string Text) {
  for (char& Letter : Text)
    if (Letter >= 'A' && Letter <= 'Z') Letter = static_cast<char>(Letter | 0x20);
  return Text;
}

constexpr std::pair<const char*, uint32_t> Roots[] = {{"HKEY_CLASSES_ROOT", 0x80000000},
                                                      {"HKEY_CURRENT_USER", 0x80000001},
                                                      {"HKEY_LOCAL_MACHINE", 0x80000002},
                                                      {"HKEY_USERS", 0x80000003}};
constexpr std::pair<const char*, uint32_t> Types[] = {{"REG_SZ", 1},    {"REG_EXPAND_SZ", 2}, {"REG_BINARY", 3},
                                                      {"REG_DWORD", 4}, {"REG_MULTI_SZ", 7},  {"REG_QWORD", 11}};

/// JSON as the manifest has it, read from the begin to the end into what the caller wants: no value of an unknown name
/// or another type is entered, so nothing lies deeper than the manifest's own lists.
class TJsonText {
 public:
  explicit TJsonText(std::string_view Text) : Text(Text) {}

  [[noreturn]] void Fail(const std::string& Why) const {
    throw EManifestError{1 + static_cast<size_t>(std::count(Text.begin(), Text.begin() + At, '\n')), Why};
  }

  /// Calls `Member` with each name; it reads the value.
  void Object(const std::function<void(const std::string& Name)>& Member) {
    std::set<std::string> Names;
    Sequence('{', '}', [&] {
      const std::string Name = String();
      if (!Names.insert(Name).second) Fail("\"" + Name + "\" is there twice");
      Expect(':');
      Member(Name);
    });
  }
  void Array(const std::function<void()>& Item) { Sequence('[', ']', Item); }

  std::string String() {
    Expect('"');
    std::string Result;
    for (char Next = Take(); Next != '"'; Next = Take()) {
      if (static_cast<unsigned char>(Next) < 0x20) Fail("a control character in a text");
      if (Next == '\\')
        Escape(Result);
      else if (static_cast<unsigned char>(Next) < 0x80)
        Result += Next;
      else
        Sequence8(static_cast<unsigned char>(Next), Result);
    }
    return Result;
  }

  uint64_t Number() {
    SkipBlanks();
    uint64_t Result = 0;
    const char* const Begin = Text.data() + At;
    const auto Read = std::from_chars(Begin, Text.data() + Text.size(), Result);
    const auto Length = static_cast<size_t>(Read.ptr - Begin);
    if (Read.ec != std::errc() || (*Begin == '0' && Length > 1)) Fail("a whole number is expected");
    At += Length;
    return Result;
  }

  bool Boolean() {
    SkipBlanks();
    for (const auto& [Word, Value] : {std::pair<std::string_view, bool>{"true", true}, {"false", false}})
      if (Text.substr(At).starts_with(Word)) {
        At += Word.size();
        return Value;
      }
    Fail("true or false is expected");
  }

  void End() {
    SkipBlanks();
    if (At != Text.size()) Fail("something stands behind the end");
  }

 private:
  void SkipBlanks() { At = std::min(Text.find_first_not_of(" \t\r\n", At), Text.size()); }

  char Take() {
    if (At == Text.size()) Fail("the file ends too early");
    return Text[At++];
  }

  void Expect(char Sign) {
    SkipBlanks();
    if (At == Text.size() || Text[At] != Sign) Fail(std::string("'") + Sign + "' is expected");
    ++At;
  }

  bool Comes(char Sign) {
    SkipBlanks();
    const bool Found = At < Text.size() && Text[At] == Sign;
    At += Found;
    return Found;
  }

  template <class TItem>
  void Sequence(char Begin, char End, const TItem& Item) {
    Expect(Begin);
    if (Comes(End)) return;
    do Item();
    while (Comes(','));
    Expect(End);
  }

  uint32_t Hex4() {
    uint32_t Code = 0;
    const std::string_view Digits = Text.substr(At, 4);
    const auto Read = std::from_chars(Digits.data(), Digits.data() + Digits.size(), Code, 16);
    if (Digits.size() != 4 || Read.ec != std::errc() || Read.ptr != Digits.data() + 4) Fail("\\u needs four digits");
    At += 4;
    return Code;
  }

  void Escape(std::string& Result) {
    constexpr std::string_view Signs = "\"\\/bfnrt", Meant = "\"\\/\b\f\n\r\t";
    const char Sign = Take();
    if (Sign == 'u') return Append(Result, Escaped());
    const size_t Known = Signs.find(Sign);
    if (Known == Signs.npos) Fail("an unknown escape in a text");
    Result += Meant[Known];
  }

  /// The character of an escape by its number, which may be in two halves.
  uint32_t Escaped() {
    const uint32_t Code = Hex4();
    if (Code == 0) Fail("a NUL in a text");
    if (Code < 0xD800 || Code > 0xDFFF) return Code;
    if (Code > 0xDBFF || Text.substr(At, 2) != "\\u") Fail("half a character in a text");
    At += 2;
    const uint32_t Low = Hex4();
    if (Low < 0xDC00 || Low > 0xDFFF) Fail("half a character in a text");
    return 0x10000 + ((Code - 0xD800) << 10) + (Low - 0xDC00);
  }

  static void Append(std::string& Result, uint32_t Code) {
    if (Code < 0x80) {
      Result += static_cast<char>(Code);
      return;
    }
    const int More = Code < 0x800 ? 1 : Code < 0x10000 ? 2 : 3;
    constexpr uint32_t Lead[] = {0, 0xC0, 0xE0, 0xF0};
    Result += static_cast<char>(Lead[More] | Code >> 6 * More);
    for (int Part = More - 1; Part >= 0; --Part) Result += static_cast<char>(0x80 | (Code >> 6 * Part & 0x3F));
  }

  /// A character of several bytes, of which no shorter or other form is taken.
  void Sequence8(unsigned char First, std::string& Result) {
    const int More = First >= 0xF0 ? 3 : First >= 0xE0 ? 2 : 1;
    uint32_t Code = First & (0x3F >> More);
    for (int Part = 0; Part < More; ++Part) {
      const auto Next = static_cast<unsigned char>(Take());
      if ((Next & 0xC0) != 0x80) Fail("a text is no UTF-8");
      Code = Code << 6 | (Next & 0x3F);
    }
    constexpr uint32_t Least[] = {0, 0x80, 0x800, 0x10000};
    if (First < 0xC0 || First > 0xF4 || Code < Least[More] || Code > 0x10FFFF || (Code >= 0xD800 && Code <= 0xDFFF))
      Fail("a text is no UTF-8");
    Append(Result, Code);
  }

  std::string_view Text;
  size_t At = 0;
};

class TManifestReader {
 public:
  explicit TManifestReader(std::string_view Text) : Json(Text) {}

  TUpdateManifest Read() {
    Json.Object([&](const std::string& Name) {
      if (Name == "name")
        Result.Name = Json.String();
      else if (Name == "source")
        Result.Source = NameBelow();
      else if (Name == "target")
        Result.Target = FullName();
      else if (Name == "files")
        Json.Array([&] { File(); });
      else if (Name == "delete")
        Json.Array([&] { Result.Delete.push_back(OwnName()); });
      else if (Name == "keys")
        Json.Array([&] { Key(); });
      else if (Name == "values")
        Json.Array([&] { Value(); });
      else
        Json.Fail("\"" + Name + "\" is unknown");
    });
    Json.End();
    if (Result.Target.empty()) Json.Fail("\"target\" is missing");
    return std::move(Result);
  }

 private:
  /// Devices have these names in every folder, whatever stands behind a dot.
  static bool IsDevice(const std::string& Part) {
    const std::string Word = Folded(Part.substr(0, Part.find_first_of(". ")));
    for (const char* Device : {"con", "prn", "aux", "nul", "conin$", "conout$"})
      if (Word == Device) return true;
    return Word.size() > 3 && (Word.starts_with("com") || Word.starts_with("lpt")) &&
           (Word.size() == 4 ? Word[3] >= '0' && Word[3] <= '9' : Word[3] == '\xC2');
  }

  void CheckParts(const std::string& Name) {
    for (size_t At = 0; At <= Name.size();) {
      const size_t End = std::min(Name.find('\\', At), Name.size());
      const std::string Part = Name.substr(At, End - At);
      const bool Odd = std::any_of(Part.begin(), Part.end(), [](char Sign) {
        return static_cast<unsigned char>(Sign) < 0x20 ||
               std::string_view("<>:\"|?*").find(Sign) != std::string_view::npos;
      });
      if (Part.empty() || Odd || Part.ends_with('.') || Part.ends_with(' ') || IsDevice(Part))
        Json.Fail("\"" + Name + "\" is no name that is taken here");
      At = End + 1;
    }
  }

  std::string NameBelow() {
    std::string Name = Json.String();
    std::replace(Name.begin(), Name.end(), '/', '\\');
    CheckParts(Name);
    return Name;
  }

  /// One below the target, which nothing else in the manifest has.
  std::string OwnName() {
    std::string Name = NameBelow();
    if (!Names.insert(Folded(Name)).second) Json.Fail("\"" + Name + "\" is there twice");
    return Name;
  }

  std::string FullName() {
    std::string Name = Json.String();
    std::replace(Name.begin(), Name.end(), '/', '\\');
    const char Drive = Name.empty() ? '\0' : static_cast<char>(Name[0] | 0x20);
    if (Name.size() < 4 || Drive < 'a' || Drive > 'z' || Name[1] != ':' || Name[2] != '\\')
      Json.Fail("\"target\" must be the full name of a folder on a drive");
    CheckParts(Name.substr(3));
    return Name;
  }

  void File() {
    TManifestFile File;
    bool HasSize = false;
    Json.Object([&](const std::string& Name) {
      if (Name == "name")
        File.Name = OwnName();
      else if (Name == "size")
        File.Size = Json.Number(), HasSize = true;
      else if (Name == "sha256")
        File.Sha256 = Folded(Json.String());
      else if (Name == "register")
        File.Register = Json.Boolean();
      else
        Json.Fail("\"" + Name + "\" is unknown for a file");
    });
    const bool IsHash =
        File.Sha256.size() == 64 && File.Sha256.find_first_not_of("0123456789abcdef") == std::string::npos;
    if (File.Name.empty() || !HasSize || !IsHash) Json.Fail("a file needs its name, its size and its SHA-256");
    Result.Files.push_back(std::move(File));
  }

  template <class TTable>
  uint32_t OneOf(const TTable& Table) {
    const std::string Word = Json.String();
    for (const auto& [Known, Number] : Table)
      if (Word == Known) return Number;
    Json.Fail("\"" + Word + "\" is unknown");
  }

  void Key() {
    TManifestKey Key;
    Json.Object([&](const std::string& Name) {
      if (Name == "root")
        Key.Root = OneOf(Roots);
      else if (Name == "key")
        Key.Key = Json.String();
      else
        Json.Fail("\"" + Name + "\" is unknown for a key");
    });
    if (!Key.Root || Key.Key.empty()) Json.Fail("a key needs its root and its name");
    Result.Keys.push_back(std::move(Key));
  }

  void Value() {
    TManifestValue Value;
    Json.Object([&](const std::string& Name) {
      if (Name == "root")
        Value.Root = OneOf(Roots);
      else if (Name == "key")
        Value.Key = Json.String();
      else if (Name == "name")
        Value.Name = Json.String();
      else if (Name == "type")
        Value.Type = OneOf(Types);
      else if (Name == "data")
        Value.Data = Json.String();
      else
        Json.Fail("\"" + Name + "\" is unknown for a value");
    });
    if (!Value.Root || Value.Key.empty() || !Value.Type) Json.Fail("a value needs its root, its key and its type");
    Result.Values.push_back(std::move(Value));
  }

  TJsonText Json;
  TUpdateManifest Result;
  std::set<std::string> Names;
};

}  // namespace

TUpdateManifest ReadUpdateManifest(std::string_view Text) {
  if (Text.size() > LargestManifest) throw EManifestError{1, "the file is larger than 16 MB"};
  if (Text.starts_with("\xEF\xBB\xBF")) Text.remove_prefix(3);
  return TManifestReader(Text).Read();
}

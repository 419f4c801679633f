#include "mendctl/comparison.h"

#include "base/numbers.h"

#include <algorithm>

namespace {

/// The first offset at which a saved content and a file differ; nothing when they do not. Of equal size.
std::optional<uint64_t> FirstDifference(const TReadableFile& Item, uint64_t ContentAt, const TReadableFile& File) {
  constexpr size_t PieceSize = 65536;
  std::string Saved(PieceSize, '\0'), Now(PieceSize, '\0');
  for (uint64_t At = 0;;) {
    const size_t Got = Item.ReadAt(ContentAt + At, Saved.data(), PieceSize);
    const size_t GotNow = File.ReadAt(At, Now.data(), PieceSize);
    const auto [Left, Right] = std::mismatch(Saved.begin(), Saved.begin() + static_cast<ptrdiff_t>(Got), Now.begin(),
                                             Now.begin() + static_cast<ptrdiff_t>(GotNow));
    const size_t Same = static_cast<size_t>(Left - Saved.begin());
    if (Same < Got || Same < GotNow) return At + Same;
    if (Got < PieceSize) return std::nullopt;
    At += Got;
  }
}

TComparison CompareFile(const TStateFolder& State, const TMachine& Machine, const TSavedFile& Saved) {
  constexpr uint32_t Compared = 0x27;  // read-only, hidden, system, archive
  TComparison Result{Machine.ToUtf8(Saved.Path), TNow::Unknown, {}};
  const auto Path = Machine.PathOf(Saved.Path);
  if (!Path) return Result;
  try {
    const std::optional<TFileNow> Now = TMachine::LookAt(*Path);
    Result.Now = Now ? TNow::Same : TNow::Gone;
    if (!Now) return Result;
    const auto Differs = [&](const std::string& What) { Result.Details.push_back(What), Result.Now = TNow::Differs; };
    if (Now->IsFolder) {
      Differs("a folder has its name");
      return Result;
    }
    if (Now->Size != Saved.Size) {
      Differs("size: " + SizeText(Saved.Size) + " saved, " + SizeText(Now->Size) + " now");
    } else if (const auto At = FirstDifference(TReadableFile(State.ItemPath(Saved.DataID)), Saved.ContentAt,
                                               TReadableFile(*Path))) {
      Differs("content: from offset " + std::to_string(*At) + " on");
    }
    if (Now->Attributes && ((*Now->Attributes ^ Saved.Attributes) & Compared) != 0)
      Differs("attributes: " + AttributesText(Saved.Attributes) + " saved, " + AttributesText(*Now->Attributes) +
              " now");
    if (Now->LastWrite / 10000000 != Saved.LastWrite / 10000000 && Now->Attributes)
      Differs("last change: " + TimeText(Saved.LastWrite) + " saved, " + TimeText(Now->LastWrite) + " now");
  } catch (const ECannotRead& Failure) {
    Result.Now = TNow::Unknown;
    Result.Details = {"cannot be read: " + Failure.Why};
  }
  return Result;
}

TComparison CompareName(const TMachine& Machine, const std::string& Name) {
  TComparison Result{Machine.ToUtf8(Name), TNow::Unknown, {}};
  try {
    if (const auto Path = Machine.PathOf(Name)) Result.Now = TMachine::LookAt(*Path) ? TNow::Same : TNow::Gone;
  } catch (const ECannotRead& Failure) {
    Result.Details = {"cannot be read: " + Failure.Why};
  }
  return Result;
}

TComparison CompareValue(const TMachine& Machine, const TRegistryValueItem& Saved) {
  TComparison Result{Machine.ToUtf8(KeyText(Saved.RootKey, Saved.KeyName)) + ", " +
                         (Saved.Name.empty() ? "default value" : Machine.ToUtf8(Saved.Name)),
                     TNow::Unknown,
                     {}};
  if (!Machine.HasRegistry()) return Result;
  const std::optional<TValueNow> Now = Machine.Value(Saved.RootKey, Saved.KeyName, Saved.Name);
  Result.Now = Now ? TNow::Same : TNow::Gone;
  if (!Now) return Result;
  const auto Differs = [&](const std::string& What) { Result.Details.push_back(What), Result.Now = TNow::Differs; };
  if (Now->Type != Saved.Type) Differs("type: " + TypeText(Saved.Type) + " saved, " + TypeText(Now->Type) + " now");
  if (Now->Data != Saved.Data)
    Differs("data: " + DataText(Saved.Type, Saved.Data, Machine) + " saved, " +
            DataText(Now->Type, Now->Data, Machine) + " now");
  return Result;
}

TComparison CompareKey(const TMachine& Machine, uint32_t Root, const std::string& Name) {
  const TNow Now = !Machine.HasRegistry() ? TNow::Unknown : Machine.HasKey(Root, Name) ? TNow::Same : TNow::Gone;
  return {Machine.ToUtf8(KeyText(Root, Name)), Now, {}};
}

std::vector<std::string> LinesOf(const std::string& Text) {
  std::vector<std::string> Lines;
  for (size_t At = 0; At < Text.size();) {
    const size_t End = std::min(Text.find('\n', At), Text.size());
    Lines.push_back(Text.substr(At, End - At));
    if (!Lines.back().empty() && Lines.back().back() == '\r') Lines.back().pop_back();
    At = End + 1;
  }
  return Lines;
}

}  // namespace

std::vector<TComparison> CompareWithNow(const TStateFolder& State, const TMachine& Machine, const TSaved& Saved) {
  std::vector<TComparison> All;
  for (const TSavedFile& File : Saved.Files) All.push_back(CompareFile(State, Machine, File));
  for (const std::string& Folder : Saved.Folders) All.push_back(CompareName(Machine, Folder));
  for (const TRegistryKeyItem& Key : Saved.Keys) All.push_back(CompareKey(Machine, Key.RootKey, Key.KeyName));
  for (const TRegistryValueItem& Value : Saved.Values) All.push_back(CompareValue(Machine, Value));
  for (const TKeyRightsItem& Rights : Saved.Rights)
    All.push_back({Machine.ToUtf8(KeyText(Rights.RootKey, Rights.KeyName)), TNow::Unknown, {}});
  if (Saved.Text) All.push_back(CompareName(Machine, *Saved.Text));
  return All;
}

TNow Together(const std::vector<TComparison>& All) {
  TNow Result = TNow::Unknown;
  for (const TComparison& Each : All) {
    if (Each.Now == TNow::Unknown || Each.Now == Result) continue;
    Result = Result == TNow::Unknown ? Each.Now : TNow::Differs;
  }
  return Result;
}

const char* WordOf(TNow Now) {
  switch (Now) {
    case TNow::Same:
      return "same";
    case TNow::Differs:
      return "differs";
    case TNow::Gone:
      return "gone";
    default:
      return "unknown";
  }
}

std::string DataText(uint32_t Type, const std::vector<uint8_t>& Data, const TMachine& Machine) {
  enum { String = 1, Expandable = 2, Number = 4, Strings = 7 };
  constexpr size_t MostCharacters = 200, MostBytes = 32;
  std::string Text(Data.begin(), Data.end());
  if (Type == String || Type == Expandable || Type == Strings) {
    while (!Text.empty() && Text.back() == '\0') Text.pop_back();
    std::replace(Text.begin(), Text.end(), '\0', '|');
    const bool Long = Text.size() > MostCharacters;
    return "\"" + Machine.ToUtf8(Text.substr(0, MostCharacters)) + (Long ? "...\"" : "\"");
  }
  if (Type == Number && Data.size() == sizeof(uint32_t)) return std::to_string(NumberAt<uint32_t>(Data.data()));
  if (Text.empty()) return "no bytes";
  return HexText(Text.substr(0, MostBytes), " ") +
         (Text.size() > MostBytes ? " ... (" + Counted(Text.size(), "byte") + ")" : "");
}

std::string LineDifference(const std::string& Old, const std::string& New) {
  constexpr size_t Longest = 1 << 20, MostLines = 60;
  if (std::max(Old.size(), New.size()) > Longest || (Old + New).find('\0') != std::string::npos) return {};
  const std::vector<std::string> Left = LinesOf(Old), Right = LinesOf(New);
  const size_t Common = std::min(Left.size(), Right.size());
  size_t Begin = 0, End = 0;
  while (Begin < Common && Left[Begin] == Right[Begin]) ++Begin;
  while (End < Common - Begin && Left[Left.size() - 1 - End] == Right[Right.size() - 1 - End]) ++End;
  std::string Text;
  size_t Told = 0;
  const auto Tell = [&](const std::vector<std::string>& Lines, const char* Sign) {
    for (size_t At = Begin; At < Lines.size() - End && Told < MostLines; ++At, ++Told) Text += Sign + Lines[At] + "\n";
  };
  if (Left.size() + Right.size() - 2 * (Begin + End) == 0) return {};
  Text = "line " + std::to_string(Begin + 1) + ":\n";
  Tell(Left, "- ");
  Tell(Right, "+ ");
  const size_t All = Left.size() + Right.size() - 2 * (Begin + End);
  if (All > Told) Text += "... and " + Counted(All - Told, "line") + " more\n";
  return Text;
}

#include "base/paths.h"

#include "base/failure.h"
#include "base/text.h"

#include <algorithm>
#include <vector>

namespace {

/// The places of the separators of a path, backslashes and colons. Walks by characters: in some code pages a backslash
/// may be the second byte of one.
std::vector<size_t> SeparatorsOf(const std::string& Path) {
  std::vector<size_t> Places;
  for (size_t At = 0; At < Path.size(); ++At) {
    if (IsDBCSLeadByte(static_cast<BYTE>(Path[At])))
      ++At;
    else if (Path[At] == '\\' || Path[At] == ':')
      Places.push_back(At);
  }
  return Places;
}

/// The place behind so many more components, each with the backslash that ends it; 0 when one is missing or empty.
size_t BehindComponents(const std::string& Path, size_t At, int Count) {
  const std::vector<size_t> Separators = SeparatorsOf(Path);
  for (; Count > 0; --Count) {
    const auto Ends = [&](size_t Place) { return Place >= At && Path[Place] == '\\'; };
    const auto End = std::ranges::find_if(Separators, Ends);
    const size_t Size = (End == Separators.end() ? Path.size() : *End) - At;
    if (Size == 0 || (Count > 1 && End == Separators.end())) return 0;
    At = std::min(At + Size + 1, Path.size());
  }
  return At;
}

}  // namespace

std::string FolderPrefix(const std::string& Path) {
  const std::vector<size_t> Separators = SeparatorsOf(Path);
  return Separators.empty() ? "" : Path.substr(0, Separators.back() + 1);
}

std::string NamePart(const std::string& Path) { return Path.substr(FolderPrefix(Path).size()); }

std::string FolderPart(const std::string& Path) {
  std::string Folder = FolderPrefix(Path);
  const std::vector<size_t> Separators = SeparatorsOf(Folder);
  const bool BehindSeparator =
      Separators.size() > 1 && Separators[Separators.size() - 2] == Folder.size() - 2;  // a drive root, or two in a row
  if (Folder.size() > 1 && Folder.back() == '\\' && !BehindSeparator) Folder.pop_back();
  return Folder;
}

std::string WithBackslash(const std::string& Folder) {
  const bool HasIt = !Folder.empty() && FolderPrefix(Folder) == Folder && Folder.back() == '\\';
  return HasIt ? Folder : Folder + "\\";
}

size_t RootSize(const std::string& Path) {
  constexpr char Literal[] = "\\\\?\\", LiteralShare[] = "\\\\?\\UNC\\";
  constexpr size_t LiteralSize = 4, ShareSize = 8, DriveSize = 3;
  if (Path.starts_with(Literal)) {
    const bool Share = Path.size() >= ShareSize && CompareStringA(LOCALE_INVARIANT, NORM_IGNORECASE, Path.c_str(),
                                                                  ShareSize, LiteralShare, ShareSize) == CSTR_EQUAL;
    return Share ? BehindComponents(Path, ShareSize, 2) : BehindComponents(Path, LiteralSize, 1);
  }
  if (Path.starts_with("\\\\.\\")) return 0;  // a device
  if (Path.starts_with("\\\\")) return BehindComponents(Path, 2, 2);
  const bool Drive = Path.size() >= DriveSize && Path[1] == ':' && (Path[2] == '\\' || Path[2] == '/');
  return Drive ? DriveSize : 0;
}

bool IsRoot(const std::string& Path) { return !Path.empty() && RootSize(WithBackslash(Path)) >= Path.size(); }

void RequireRoot(const std::string& Path) {
  if (RootSize(Path) == 0) Refuse(MsgNameWithoutRoot, ToWide(Path));
}

void RequireFolderInMask(const std::string& Mask) {
  const std::string Folder = FolderPrefix(Mask);
  if (Folder.empty() || Folder.back() != '\\') Refuse(MsgMaskWithoutFolder, ToWide(Mask));
}

bool IsPlainName(const std::string& Name) {
  return !Name.empty() && Name != "." && Name != ".." && FolderPrefix(Name).empty() &&
         Name.find('/') == std::string::npos;
}

std::string ExtensionOf(const std::string& Path) {
  const std::string Name = NamePart(Path);
  const size_t Dot = Name.rfind('.');
  return Dot == std::string::npos ? "" : Name.substr(Dot);
}

#include "base/paths.h"

#include "base/failure.h"
#include "base/text.h"

namespace {

/// The length of FolderPrefix. Walks by characters: in some code pages a backslash may be the second byte of one.
size_t PrefixSize(const std::string& Path) {
  size_t Size = 0;
  for (size_t At = 0; At < Path.size(); ++At) {
    if (IsDBCSLeadByte(static_cast<BYTE>(Path[At])))
      ++At;
    else if (Path[At] == '\\' || Path[At] == ':')
      Size = At + 1;
  }
  return Size;
}

}  // namespace

std::string FolderPrefix(const std::string& Path) { return Path.substr(0, PrefixSize(Path)); }

std::string NamePart(const std::string& Path) { return Path.substr(PrefixSize(Path)); }

std::string FolderPart(const std::string& Path) {
  std::string Folder = FolderPrefix(Path);
  const size_t Size = Folder.size();
  if (Size > 1 && Folder.back() == '\\' && Folder[Size - 2] != ':' && Folder[Size - 2] != '\\') Folder.pop_back();
  return Folder;
}

std::string WithBackslash(const std::string& Folder) {
  const bool HasIt = !Folder.empty() && FolderPrefix(Folder) == Folder && Folder.back() == '\\';
  return HasIt ? Folder : Folder + "\\";
}

void RequireFolderInMask(const std::string& Mask) {
  const std::string Folder = FolderPrefix(Mask);
  if (!Folder.empty() && Folder.back() == '\\' && Mask.find('/') == std::string::npos) return;
  Refuse(MsgMaskWithoutFolder, ToWide(Mask));
}

std::string ExtensionOf(const std::string& Path) {
  const std::string Name = NamePart(Path);
  const size_t Dot = Name.rfind('.');
  return Dot == std::string::npos ? "" : Name.substr(Dot);
}

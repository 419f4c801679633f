#include "kit/held_way.h"

#include "base/folder_content.h"
#include "kit/names.h"

THeldWay::THeldWay(const std::wstring& Name, size_t Depth) {
  std::wstring Folder = FolderOf(Name);
  for (; Depth > 0 && Folder.find(L'\\') != Folder.npos; --Depth, Folder = FolderOf(Folder)) {
    TFileHandle Open(HoldFolder(Folder));
    if (Open && IsLink(Open.Get())) Plain = false;
    // One that cannot be held, because somebody deletes or renames it, is looked at.
    if (!Open && IsLink(Folder)) Plain = false;
    Held.push_back(std::move(Open));
  }
}

#include "unflushed.h"

#include "base/text.h"
#include "support/module_calls.h"
#include "support/tree.h"

#include <functional>
#include <optional>
#include <sstream>
#include <utility>

namespace {

std::string ListName(const std::string& Root) { return Root + "\\unflushed.txt"; }

struct TOpened {
  std::string Path, Before;
};
std::string ListRoot;
TUnflushed Unflushed;
std::map<HANDLE, TOpened> Opened;  // to be written; a handle's number stays when it is closed
std::pair<std::string, std::string> LastMove;

/// Calls what the module called before.
template <auto Function, class... TArgs>
auto GoOn(const TImportPatch& Patch, TArgs... Args) {
  return reinterpret_cast<decltype(Function)>(Patch.Replaced())(Args...);
}
std::optional<TImportPatch> Creates, Writes, Cuts, Flushes, Moves, KitCreates, KitWrites, KitFlushes, KitMoves;

void Change(HANDLE File) {
  if (const auto Found = Opened.find(File); Found != Opened.end())
    Unflushed.try_emplace(Found->second.Path, Found->second.Before);
}

HANDLE NoteOpened(const std::string& Path, DWORD Access, DWORD Disposition, const std::function<HANDLE()>& Open) {
  const bool ToWrite = Access & GENERIC_WRITE;
  const std::string Before = ToWrite && Exists(Path) ? Read(Path) : "";
  if (ToWrite && Disposition != OPEN_EXISTING && !Exists(Path))
    Unflushed[Path] = "";  // and if it fails, it is not there
  const HANDLE File = Open();
  if (ToWrite && File != INVALID_HANDLE_VALUE) Opened[File] = {Path, Before};
  return File;
}
HANDLE WINAPI NoteCreate(LPCSTR Path, DWORD Access, DWORD Share, SECURITY_ATTRIBUTES* Rights, DWORD Disposition,
                         DWORD Flags, HANDLE Template) {
  return NoteOpened(Path, Access, Disposition, [=] {
    return GoOn<&CreateFileA>(*Creates, Path, Access, Share, Rights, Disposition, Flags, Template);
  });
}
HANDLE WINAPI NoteKitCreate(LPCWSTR Path, DWORD Access, DWORD Share, SECURITY_ATTRIBUTES* Rights, DWORD Disposition,
                            DWORD Flags, HANDLE Template) {
  return NoteOpened(LossyAnsi(Path), Access, Disposition, [=] {
    return GoOn<&CreateFileW>(*KitCreates, Path, Access, Share, Rights, Disposition, Flags, Template);
  });
}
BOOL WINAPI NoteWrite(HANDLE File, LPCVOID Buffer, DWORD Size, DWORD* Written, OVERLAPPED* Overlapped) {
  Change(File);
  return GoOn<&WriteFile>(*Writes, File, Buffer, Size, Written, Overlapped);
}
BOOL WINAPI NoteCut(HANDLE File) {
  Change(File);
  return GoOn<&SetEndOfFile>(*Cuts, File);
}
BOOL WINAPI NoteFlush(HANDLE File) {
  // Flushing is the last thing that is done with a file, so `Before` is not needed any more.
  if (const auto Found = Opened.find(File); Found != Opened.end()) Unflushed.erase(Found->second.Path);
  return GoOn<&FlushFileBuffers>(*Flushes, File);
}

/// The file keeps what it lacks under its new name. To be called when it may have been moved.
void FollowMove() {
  const auto [From, To] = std::exchange(LastMove, {});
  if (From.empty() || Exists(From)) return;
  Unflushed.erase(To);
  if (auto Moved = Unflushed.extract(From)) Moved.key() = To, Unflushed.insert(std::move(Moved));
}
BOOL WINAPI NoteMove(LPCSTR From, LPCSTR To) {
  LastMove = {From, To};
  const BOOL Result = GoOn<&MoveFileA>(*Moves, From, To);
  FollowMove();
  return Result;
}
BOOL WINAPI NoteKitMove(LPCWSTR From, LPCWSTR To, DWORD Flags) {
  LastMove = {LossyAnsi(From), LossyAnsi(To)};
  const BOOL Result = GoOn<&MoveFileExW>(*KitMoves, From, To, Flags);
  FollowMove();
  return Result;
}

bool IsNeverFlushed(const std::string& Path) {
  return Path.find("\\Garbage\\") != std::string::npos || Path.find("\\Uninstall\\") != std::string::npos;
}

}  // namespace

void NoteUnflushed(const std::string& Root) {
  ListRoot = Root;
  Creates.emplace("CreateFileA", NoteCreate), Writes.emplace("WriteFile", NoteWrite);
  Cuts.emplace("SetEndOfFile", NoteCut), Flushes.emplace("FlushFileBuffers", NoteFlush);
  Moves.emplace("MoveFileA", NoteMove);
  if (!GetModuleHandleA(KitDll)) return;
  // What PlanEvent put in the place of the others is one for both modules.
  KitCreates.emplace("CreateFileW", NoteKitCreate, KitDll), KitMoves.emplace("MoveFileExW", NoteKitMove, KitDll);
  KitWrites.emplace("WriteFile", NoteWrite, KitDll), KitFlushes.emplace("FlushFileBuffers", NoteFlush, KitDll);
}

void TellUnflushed() {
  FollowMove();
  std::string List;
  for (const auto& [Path, Content] : Unflushed)
    if (Exists(Path) && !IsNeverFlushed(Path)) List += Path + "\n" + std::to_string(Content.size()) + "\n" + Content;
  Write(ListName(ListRoot), List);
}

TUnflushed TakeUnflushed(const std::string& Root) {
  TUnflushed Result;
  std::istringstream In(Exists(ListName(Root)) ? Read(ListName(Root)) : "");
  for (std::string Path; std::getline(In, Path);) {
    size_t Size = 0;
    In >> Size, In.ignore();
    In.read(Result[Path].assign(Size, '\0').data(), static_cast<std::streamsize>(Size));
  }
  DeleteFileA(ListName(Root).c_str());
  std::erase_if(Result, [](const auto& File) { return Read(File.first) == File.second; });
  return Result;
}

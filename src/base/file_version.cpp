#include "base/file_version.h"

#include <vector>

VS_FIXEDFILEINFO GetFileVersionFixedInfo(const std::string& FileName) {
  static_assert(sizeof(VS_FIXEDFILEINFO) == 52);
  VS_FIXEDFILEINFO Result{};
  DWORD Unused = 0;
  const DWORD Size = GetFileVersionInfoSizeA(FileName.c_str(), &Unused);
  if (Size == 0) return Result;
  std::vector<unsigned char> Block(Size);
  void* Info = nullptr;
  UINT InfoSize = 0;
  if (GetFileVersionInfoA(FileName.c_str(), 0, Size, Block.data()) &&
      VerQueryValueA(Block.data(), "\\", &Info, &InfoSize) && InfoSize >= sizeof Result)
    Result = *static_cast<const VS_FIXEDFILEINFO*>(Info);
  return Result;
}

std::string FormatFileVersion(const VS_FIXEDFILEINFO& Info) {
  const auto Half = [](DWORD Number, int Shift) { return std::to_string(Number >> Shift & 0xFFFF); };
  return Half(Info.dwFileVersionMS, 16) + '.' + Half(Info.dwFileVersionMS, 0) + '.' + Half(Info.dwFileVersionLS, 16) +
         '.' + Half(Info.dwFileVersionLS, 0);
}

// Lists what a folder and a registry key hold, so that two listings are equal exactly when nothing differs that a
// rollback brings back.
//
// usage: tree_snapshot FOLDER KEY [FILE]
//
// One line for each file and folder below it, sorted by path, its fields parted by tabs: path, attributes (of R, H, S
// and A), creation, last-access and last-write time, size, hash of the content. Folders end in a backslash and have
// their path only: their attributes and times are not part of a backup.
//
// KEY lies below HKEY_CURRENT_USER. One line for each key: its path in brackets; and one for each value: the key, the
// name, then where a file has its attributes the type, no times, size and hash of the data.
//
// The list goes to FILE, or to the output.

#include "base/handles.h"

#include <fcntl.h>
#include <io.h>

#include <cstdint>
#include <cstdio>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

/// From a path below the folder to the rest of its line.
using TListing = std::map<std::string, std::string>;

std::string AttributesText(DWORD Attributes) {
  std::string Text;
  if (Attributes & FILE_ATTRIBUTE_READONLY) Text += 'R';
  if (Attributes & FILE_ATTRIBUTE_HIDDEN) Text += 'H';
  if (Attributes & FILE_ATTRIBUTE_SYSTEM) Text += 'S';
  if (Attributes & FILE_ATTRIBUTE_ARCHIVE) Text += 'A';
  return Text;
}

/// All seven digits of the second that a file time has.
std::string TimeText(const FILETIME& Time) {
  constexpr uint64_t TicksPerSecond = 10000000;
  SYSTEMTIME Parts{};
  FileTimeToSystemTime(&Time, &Parts);
  const uint64_t Ticks = static_cast<uint64_t>(Time.dwHighDateTime) << 32 | Time.dwLowDateTime;
  char Text[40];
  std::snprintf(Text, sizeof Text, "%04d-%02d-%02d %02d:%02d:%02d.%07u", Parts.wYear, Parts.wMonth, Parts.wDay,
                Parts.wHour, Parts.wMinute, Parts.wSecond, static_cast<unsigned>(Ticks % TicksPerSecond));
  return Text;
}

/// Size and hash (FNV-1a) of a content that is given piece by piece.
class TContent {
 public:
  void Add(const unsigned char* Bytes, size_t Count) {
    for (size_t At = 0; At < Count; ++At) Hash = (Hash ^ Bytes[At]) * 1099511628211u;
    Size += Count;
  }
  std::string Text() const {
    char Buffer[40];
    std::snprintf(Buffer, sizeof Buffer, "%lu\t%08lx%08lx", static_cast<unsigned long>(Size),
                  static_cast<unsigned long>(Hash >> 32), static_cast<unsigned long>(Hash & 0xFFFFFFFF));
    return Buffer;
  }

 private:
  uint64_t Hash = 14695981039346656037u, Size = 0;
};

std::string ContentText(HANDLE File) {
  TContent Content;
  unsigned char Buffer[65536];
  for (DWORD BytesRead = 1; BytesRead > 0;) {
    if (!ReadFile(File, Buffer, sizeof Buffer, &BytesRead, nullptr)) throw std::runtime_error("cannot be read");
    Content.Add(Buffer, BytesRead);
  }
  return Content.Text();
}

std::string FileText(const std::string& Path, DWORD Attributes) {
  const TFileHandle File(CreateFileA(Path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                     nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
  FILETIME Creation, LastAccess, LastWrite;
  // Before the content is read: that may change the time of the last access.
  if (!File || !GetFileTime(File.Get(), &Creation, &LastAccess, &LastWrite))
    throw std::runtime_error(Path + " cannot be opened");
  return AttributesText(Attributes) + "\t" + TimeText(Creation) + "\t" + TimeText(LastAccess) + "\t" +
         TimeText(LastWrite) + "\t" + ContentText(File.Get());
}

void List(const std::string& Folder, const std::string& Prefix, TListing& Listing) {
  WIN32_FIND_DATAA Entry;
  const TFindHandle Search(FindFirstFileA((Folder + "\\*").c_str(), &Entry));
  if (!Search) throw std::runtime_error(Folder + " cannot be listed");
  do {
    const std::string Name = Entry.cFileName, Path = Folder + "\\" + Name;
    if (Name == "." || Name == "..") continue;
    if (Entry.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) {
      Listing[Prefix + Name + "\\"];
      List(Path, Prefix + Name + "\\", Listing);
    } else {
      Listing[Prefix + Name] = "\t" + FileText(Path, Entry.dwFileAttributes);
    }
  } while (FindNextFileA(Search.Get(), &Entry));
}

void ListKey(const std::string& KeyName, TListing& Listing) {
  TRegistryKey Key;
  if (RegOpenKeyExA(HKEY_CURRENT_USER, KeyName.c_str(), 0, KEY_READ, Key.Out()) != ERROR_SUCCESS)
    throw std::runtime_error("HKEY_CURRENT_USER\\" + KeyName + " cannot be opened");
  Listing["[" + KeyName + "]"];
  char Name[256];
  DWORD Length = sizeof Name, Type = 0, Size = 0;
  for (DWORD At = 0; RegEnumValueA(Key.Get(), At, Name, &Length, nullptr, &Type, nullptr, &Size) == ERROR_SUCCESS;
       ++At, Length = sizeof Name) {
    std::vector<unsigned char> Data(Size);
    if (RegQueryValueExA(Key.Get(), Name, nullptr, &Type, Data.data(), &Size) != ERROR_SUCCESS)
      throw std::runtime_error(KeyName + " cannot be read");
    TContent Content;
    Content.Add(Data.data(), Size);
    Listing["[" + KeyName + "] " + (*Name ? Name : "(default)")] =
        "\ttype " + std::to_string(Type) + "\t\t\t\t" + Content.Text();
  }
  for (DWORD At = 0; RegEnumKeyA(Key.Get(), At, Name, sizeof Name) == ERROR_SUCCESS; ++At)
    ListKey(KeyName + "\\" + Name, Listing);
}

}  // namespace

int main(int Count, char** Arguments) try {
  if (Count != 3 && Count != 4) throw std::runtime_error("usage: tree_snapshot FOLDER KEY [FILE]");
  TListing Listing;
  List(Arguments[1], "", Listing);
  ListKey(Arguments[2], Listing);
  // Binary, because the list is for programs that end lines in LF.
  if (Count == 4 && !std::freopen(Arguments[3], "wb", stdout)) throw std::runtime_error("the file cannot be written");
  _setmode(_fileno(stdout), _O_BINARY);
  for (const auto& [Path, Rest] : Listing) std::printf("%s%s\n", Path.c_str(), Rest.c_str());
  return std::fflush(stdout) == 0 ? 0 : 1;
} catch (const std::exception& Failure) {
  std::fprintf(stderr, "tree_snapshot: %s\n", Failure.what());
  return 1;
}

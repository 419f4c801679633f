// mendctl extract

#include "mendctl/commands.h"
#include "mendctl/comparison.h"
#include "mendctl/new_file.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <chrono>

namespace fs = std::filesystem;

namespace {

/// One part of a saved path as a name that every system takes, and that leads nowhere else.
std::string SafeName(std::string Part) {
  for (char& Character : Part)
    if (static_cast<unsigned char>(Character) < ' ' ||
        std::string_view("<>:\"|?*").find(Character) != std::string_view::npos)
      Character = '_';
  constexpr std::array Devices = {"con", "prn", "aux", "nul"};
  std::string Stem = Part.substr(0, Part.find('.'));
  std::transform(Stem.begin(), Stem.end(), Stem.begin(), [](unsigned char Letter) { return std::tolower(Letter); });
  const bool Port = Stem.size() == 4 && (Stem.starts_with("com") || Stem.starts_with("lpt"));
  const bool Device = Port || std::find(Devices.begin(), Devices.end(), Stem) != Devices.end();
  const bool Dots = Part.find_first_not_of('.') == std::string::npos;
  while (!Part.empty() && (Part.back() == ' ' || (Part.back() == '.' && !Dots))) Part.back() = '_';
  return Device || Dots ? "_" + Part : Part;
}

/// C:\App\x below the folder as C/App/x, \\server\share\x as server/share/x.
fs::path Below(const fs::path& Folder, std::string Utf8) {
  std::replace(Utf8.begin(), Utf8.end(), '/', '\\');
  for (const std::string Prefix : {"\\\\?\\UNC\\", "\\\\?\\"})
    if (Utf8.starts_with(Prefix)) Utf8.erase(0, Prefix.size());
  if (Utf8.size() > 1 && Utf8[1] == ':') Utf8.erase(1, 1);
  fs::path Path = Folder;
  for (size_t At = 0; At < Utf8.size();) {
    const size_t End = std::min(Utf8.find('\\', At), Utf8.size());
    if (End > At) Path /= PathFrom(SafeName(Utf8.substr(At, End - At)));
    At = End + 1;
  }
  return Path;
}

void ExtractFile(const TContext& Context, const TSavedFile& Saved, const fs::path& Path) {
  constexpr uint64_t PieceSize = 1 << 20;
  TNewFile File(Path);
  const TReadableFile Item(Context.State.ItemPath(Saved.DataID));
  for (uint64_t At = Saved.ContentAt; At < Item.Size(); At += PieceSize) File.Write(Item.Text(At, PieceSize));
  File.Finish();
  using TTicks = std::chrono::duration<int64_t, std::ratio<1, 10000000>>;
  constexpr int64_t TicksBetween = 116444736000000000;  // from 1601 to 1970
  const std::chrono::sys_time<TTicks> Time(TTicks(static_cast<int64_t>(Saved.LastWrite) - TicksBetween));
  std::error_code Ignored;  // the time is a kindness
  fs::last_write_time(
      Path, std::chrono::time_point_cast<fs::file_time_type::duration>(std::chrono::file_clock::from_sys(Time)),
      Ignored);
}

// ---- Registry content, as regedit takes it: UTF-16, little-endian, with its mark, lines ended by CR LF.

std::string Utf16(const std::string& Utf8) {
  std::string Bytes;
  for (const char16_t Unit : PathFrom(Utf8).u16string()) {
    Bytes += static_cast<char>(Unit & 0xFF);
    Bytes += static_cast<char>(Unit >> 8);
  }
  return Bytes;
}

std::string Quoted(const std::string& Text) {
  std::string Result = "\"";
  for (const char Character : Text) {
    if (Character == '"' || Character == '\\') Result += '\\';
    Result += Character;
  }
  return Result + '"';
}

std::string ValueLine(const TContext& Context, const TRegistryValueItem& Value) {
  enum { String = 1, Expandable = 2, Binary = 3, Number = 4, Strings = 7 };
  const std::string Name = Value.Name.empty() ? "@" : Quoted(Context.Machine.ToUtf8(Value.Name));
  const std::string Data(Value.Data.begin(), Value.Data.end());
  const bool PlainText = Value.Type == String && Data.ends_with('\0') &&
                         std::none_of(Data.begin(), Data.end() - 1, [](unsigned char Byte) { return Byte < ' '; });
  if (PlainText) return Name + "=" + Quoted(Context.Machine.ToUtf8(Data.substr(0, Data.size() - 1)));
  const bool Text = Value.Type == String || Value.Type == Expandable || Value.Type == Strings;
  const std::string Kind =
      Value.Type == Binary
          ? "hex"
          : "hex(" + HexText(std::string(1, static_cast<char>(Value.Type))).substr(Value.Type < 16 ? 1 : 0) + ")";
  if (Value.Type == Number && Data.size() == sizeof(uint32_t))
    return Name + "=dword:" + HexText(std::string(Data.rbegin(), Data.rend()));
  return Name + "=" + Kind + ":" + HexText(Text ? Utf16(Context.Machine.ToUtf8(Data)) : Data, ",");
}

std::string RegistryText(const TContext& Context, const TSaved& Saved) {
  std::string Text = "Windows Registry Editor Version 5.00\r\n";
  std::string Last;
  const auto Begin = [&](uint32_t Root, const std::string& Name) {
    const std::string Key = Context.Machine.ToUtf8(KeyText(Root, Name));
    if (Key != Last) Text += "\r\n[" + Key + "]\r\n";
    Last = Key;
  };
  for (const TRegistryKeyItem& Key : Saved.Keys) Begin(Key.RootKey, Key.KeyName);
  for (const TRegistryValueItem& Value : Saved.Values) {
    Begin(Value.RootKey, Value.KeyName);
    Text += ValueLine(Context, Value) + "\r\n";
  }
  return "\xFF\xFE" + Utf16(Text);
}

}  // namespace

TReport Extract(const TContext& Context, size_t Number, const fs::path& Folder) {
  const TEntry Entry = EntryOf(Context, Number);
  const TSaved Saved = TItemReaderOf(Context.State).Read(Entry.Meaning.Layout, Entry.Record.DataID);
  TReport Report;
  Report.Data = {{"number", Number}, {"written", TJson::array()}, {"faults", Saved.Faults.size()}};
  const auto Tell = [&](const fs::path& Path) {
    Report.Data["written"].push_back(NameOf(Path));
    Report.Text += NameOf(Path) + "\n";
  };
  for (const TSavedFile& File : Saved.Files) {
    const fs::path Path = Below(Folder, Context.Machine.ToUtf8(File.Path));
    ExtractFile(Context, File, Path);
    Tell(Path);
  }
  for (const std::string& Name : Saved.Folders) {
    std::error_code Error;
    fs::create_directories(Below(Folder, Context.Machine.ToUtf8(Name)), Error);
  }
  if (!Saved.Keys.empty() || !Saved.Values.empty()) {
    const fs::path Path = Folder / ("entry-" + std::to_string(Number) + ".reg");
    WriteNewFile(Path, RegistryText(Context, Saved));
    Tell(Path);
  }
  if (Report.Text.empty())
    Report.Text = "Entry " + std::to_string(Number) + " (" + Entry.Meaning.Done + ") saved no content.\n";
  for (const TItemFault& Fault : Saved.Faults)
    Report.Text += Context.Paint.Bad("item " + GuidText(Fault.DataID) + " at offset " + std::to_string(Fault.Offset) +
                                     ": " + Fault.What) +
                   "\n";
  Report.Status = Saved.Faults.empty() ? Fine : FoundSomething;
  return Report;
}

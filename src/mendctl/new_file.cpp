#include "mendctl/new_file.h"

#include "mendctl/commands.h"

TNewFile::TNewFile(const std::filesystem::path& Path) : Path(Path) {
  if (TMachine::LookAt(Path)) throw EWrongUse{NameOf(Path) + " is there already; nothing is written over."};
  std::error_code Ignored;  // the file cannot be opened then
  if (Path.has_parent_path()) std::filesystem::create_directories(Path.parent_path(), Ignored);
  File.open(Path, std::ios::binary);
}

void TNewFile::Write(std::string_view Bytes) { File.write(Bytes.data(), static_cast<std::streamsize>(Bytes.size())); }

void TNewFile::Finish() {
  File.close();
  if (!File) throw ECannotRead{NameOf(Path), 0, "it cannot be written"};
}

void WriteNewFile(const std::filesystem::path& Path, std::string_view Content) {
  TNewFile File(Path);
  File.Write(Content);
  File.Finish();
}

#pragma once

#include "base/handles.h"
#include "formats/abstract_file.h"

#include <memory>
#include <string>

/// A file of the system. It is closed with the object.
class TFile final : public TCustomFile {
 public:
  TFile(const std::string& FileName, TFileDisposition Disposition, TFileAccess Access, TFileSharing Sharing);

  uint64_t GetPosition() override;
  uint64_t GetSize() override;
  uint32_t Read(void* Buffer, uint32_t Count) override;
  void Seek(uint64_t Position) override;
  uint32_t Write(const void* Buffer, uint32_t Count) override;
  void Truncate() override;
  void Flush() override;

 private:
  static void Check(BOOL Succeeded);

  TFileHandle Handle;
};

/// The opener for the installer's own files: TFile.
std::unique_ptr<TCustomFile> OpenSystemFile(const std::string& FileName, TFileDisposition Disposition,
                                            TFileAccess Access, TFileSharing Sharing);

/// The system's message for a failed operation, without its line end and its period; a text of our own when it has
/// none.
std::string TextOf(const EFileError& Error);

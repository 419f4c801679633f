#pragma once

#include "formats/uninstall_log.h"
#include "mendctl/machine.h"

#include <memory>
#include <string>

/// The installer's log as it lies on the disk.
struct TUninstallLogFile {
  std::string State;                   ///< "missing", "whole", "damaged", "unreadable"
  std::string Why;                     ///< of the last two
  std::unique_ptr<TUninstallLog> Log;  ///< what could be read

  std::string Words() const;
};
/// Reads it with its checksums. Never raises.
TUninstallLogFile ReadUninstallLog(const std::filesystem::path& Path);

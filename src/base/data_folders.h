#pragma once

#include "base/windows_api.h"

#include <string>

/// The folders that the system keeps its state in. They lie below the application's base folder, which the default
/// value of HKEY_CURRENT_USER\Software\Orvane\Core names.

/// The updates folder (base folder + "\Updates"). The first call reads the base folder and creates the folder and its
/// "Log" folder; later calls give the cached path. Fails with a message that names the key when its default value is
/// missing, empty or not a string.
std::string GetUpdatesDir();

/// The service folder (updates folder + "\Mendwork", of the 64-bit build "\Mendwork64"); the first call creates it with
/// "Garbage", "History" and "Backup". Each build has its own: 32-bit and 64-bit programs see other registry keys and
/// another system folder under the same names, so neither could undo what the other changed.
std::string GetServiceDir();

/// The uninstall folder (base folder + "\Uninstall"), read afresh on every call and not created.
std::string GetUninstallDir();

/// Fails with E_INVALIDARG when a mask would reach the service folder or the log folder: when its own folder, under
/// whatever name, is or lies in one of them, or, `Recursive`, holds one. The change could not be undone any more.
void RequireOutsideOwnFolders(const std::string& Mask, bool Recursive);

/// Fills the caches while an object starts. A missing base folder is no failure yet: creating an object loses the text
/// of a failure on its way to a script, so the first call that needs a folder tells it. Gives whether the folders are
/// known.
bool PrepareDataFolders() noexcept;

/// Empties the caches (the module starts and stops).
void ForgetDataFolders();

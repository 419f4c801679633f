#pragma once

#include <string>

/// Fails with E_ACCESSDENIED when this process is elevated by UAC and a folder belongs to a user who is not: that user
/// could change what is kept there, and so make this process write any file and any key of the machine. Fine are the
/// administrators, the system, the installer of Windows, and whoever owns what this process makes. Nobody is elevated
/// where UAC is off, and where a file system knows no owners nothing can be told.
void RequireFolderOfAdministrators(const std::string& Folder);

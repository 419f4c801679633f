#pragma once

#include <string>

/// Fails with E_ACCESSDENIED when this process is elevated and a folder belongs to a user who is not, or does not tell
/// to whom: that user could change what is kept there, and so make this process write any file and any key of the
/// machine. Fine are the administrators, the system, the installer of Windows, and whoever owns what this process
/// makes. Where a file system knows no owners nothing can be told.
void RequireFolderOfAdministrators(const std::string& Folder);

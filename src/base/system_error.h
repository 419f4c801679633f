#pragma once

#include "base/windows_api.h"

#include <string>

/// The system's texts for its errors.

/// The message for an error code or HRESULT as it comes, with its line end; an empty text when there is none.
std::string SystemMessage(DWORD Code);

/// The same, or "Unknown error." when there is none.
std::string SystemErrorText(DWORD Code);

/// The thread's last error and its text.
void GetLastErrorInfo(DWORD& Code, std::string& Text);

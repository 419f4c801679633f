/* Mendwork's classes and the kit's for programs on whose machine neither library is registered. Two plain functions of
   MendworkKit.dll, for C and C++; a client loads the library by its full name and finds them there. */
#pragma once

#include <windows.h>

#ifdef __cplusplus
extern "C" {
#endif

/// Makes the classes of Mendwork.dll and of the kit known to COM in the calling thread's apartment; nothing is written
/// to the registry. `MendworkDll` is the full name of the library, null for "Mendwork.dll" in the kit's own folder.
///
/// The thread is one of a single-threaded apartment: in the multithreaded one the call fails with RPC_E_CHANGED_MODE,
/// before CoInitialize with CO_E_NOTINITIALIZED. Each thread that creates objects, or rolls back, calls it once; a
/// second call fails with CO_E_OBJISREG. A name that is no full one fails with E_INVALIDARG, a library that cannot be
/// loaded with the system's error. After a failure nothing is registered; the thread has an error information.
HRESULT __stdcall MendworkKitRegisterClasses(const wchar_t* MendworkDll);

/// Takes back what the thread registered; before its CoUninitialize, and when its objects are released. Mendwork.dll is
/// unloaded unless something of it is still held. Fails with CO_E_OBJNOTREG when this thread has registered nothing.
/// MendworkKit.dll must stay loaded until then.
HRESULT __stdcall MendworkKitRevokeClasses(void);

/// The types of the two, for GetProcAddress.
typedef HRESULT(__stdcall* TMendworkKitRegisterClasses)(const wchar_t* MendworkDll);
typedef HRESULT(__stdcall* TMendworkKitRevokeClasses)(void);

#ifdef __cplusplus
}
#endif

#include "server/windows_api.h"
#include "support/program.h"

#include <gtest/gtest.h>

#include <map>
#include <string>

namespace {

/// The texts that users read and report, written down a second time by hand. A release must not change one by accident.
const std::map<unsigned, std::string> Messages = {
    {65472, "Cannot unload library '%s'."},
    {65473, "Cannot get the address of '%s' function in library '%s'."},
    {65474, "Call of DllRegisterServer in '%s' library failed."},
    {65475, "Cannot get '%s' module handle."},
    {65476, "Cannot load '%s' type library."},
    {65477, "\r\n"},
    {65478, "\r\n\r\n"},
    {65479, "Error: '%s' (Error code: %x)."},
    {65480, "Error"},
    {65481, "Confirmation"},
    {65488, "Cannot delete '%s'."},
    {65489, "Cannot create folder '%s'."},
    {65490, "Cannot close '%s'."},
    {65491, "Cannot start searching for files with '%s' mask."},
    {65492, "Cannot continue searching for files with '%s' mask."},
    {65493, "Cannot finish searching for files with '%s' masks."},
    {65494, "Cannot open or create '%s'."},
    {65495, "Cannot create '%s'."},
    {65496, "Cannot open '%s'."},
    {65497, "Cannot read data from '%s' file."},
    {65498, "Cannot write data to '%s'."},
    {65499, "Cannot set pointer in '%s' ."},
    {65500, "Cannot flush data from '%s'."},
    {65501, "Cannot get the file size for '%s' ."},
    {65502, "Cannot truncate '%s'."},
    {65503, "Cannot load library '%s'."},
    {65504, "Cannot get values of '%s' in registry key '%s'."},
    {65505, "Cannot detect '%s' values of '%s' registry key."},
    {65506, "Cannot close '%s' registry key."},
    {65507, "Cannot write '%s' registry key."},
    {65508, "Cannot get the value name of '%s' registry key."},
    {65509, "Internal error #1."},
    {65510, "Internal error #2."},
    {65511, "Internal error #3."},
    {65512, "Internal error #4."},
    {65513, "Internal error #6."},
    {65514, "Cannot get attributes of '%s'."},
    {65515, "Cannot set attributes of '%s'."},
    {65516, "Cannot get date and time of '%s'."},
    {65517, "Cannot set date and time of '%s'."},
    {65518, "Cannot delete folder '%s'."},
    {65519, "Cannot move file '%s' to '%s'."},
    {65520, "Begin"},
    {65521, "End"},
    {65522, "Exception"},
    {65523, "Unknown error."},
    {65524,
     "Overwrite '%s'\r\n       size %s byte(s)\r\n       date %s\r\n\r\n"
     "With file '%s'\r\n       size %s byte(s)\r\n       date %s?"},
    {65525,
     "Overwrite '%s'\r\n       version %s\r\n       date %s\r\n\r\n"
     "With file '%s'\r\n       version %s\r\n       date %s?"},
    {65526, "Orvane Updater - Update progress"},
    {65527, "Out of memory."},
    {65528, "Please close running applications and press 'Retry'."},
    {65529, "Cannot delete '%s' from '%s' registry key."},
    {65530, "Cannot delete registry key '%s'."},
    {65531, "Cannot create registry key '%s'."},
    {65532, "Cannot open registry key '%s'."},
    {65533, "Cannot find the name of key in registry key '%s'."},
    {65534, "Cannot get information about registry key '%s'."},
    {65535, "Cannot get information about the type and data size of value in registry key '%s'."},
};

TEST(Messages, AreTheModulesStringResources) {
  constexpr unsigned Last = 65535;
  const HMODULE Module = LoadLibraryExA(BuiltModulePath().c_str(), nullptr, LOAD_LIBRARY_AS_DATAFILE);
  ASSERT_NE(nullptr, Module);
  std::map<unsigned, std::string> Found;
  for (unsigned Id = 1; Id <= Last; ++Id) {
    char Text[512];
    const int Size = LoadStringA(Module, Id, Text, sizeof Text);
    if (Size > 0) Found[Id] = std::string(Text, static_cast<size_t>(Size));
  }
  EXPECT_EQ(Messages, Found);
  FreeLibrary(Module);
}

}  // namespace

#include "base/registry_place.h"

namespace {

struct TRootName {
  DWORD Root;
  const char* Name;
};
constexpr TRootName RootNames[] = {
    {0x80000000, "HKEY_CLASSES_ROOT"}, {0x80000001, "HKEY_CURRENT_USER"},   {0x80000002, "HKEY_LOCAL_MACHINE"},
    {0x80000003, "HKEY_USERS"},        {0x80000005, "HKEY_CURRENT_CONFIG"},
};

}  // namespace

std::string TKeyPlace::Text() const {
  for (const TRootName& Row : RootNames)
    if (Row.Root == Root) return std::string(Row.Name) + "\\" + Name;
  return "\\" + Name;
}

// The value is sign-extended on 64-bit systems.
HKEY TKeyPlace::RootHandle() const { return reinterpret_cast<HKEY>(static_cast<LONG_PTR>(static_cast<LONG>(Root))); }

TKeyPlace TKeyPlace::Below(const std::string& Subkey) const {
  return {Root, Name.empty() ? Subkey : Name + "\\" + Subkey};
}

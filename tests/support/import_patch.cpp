#include "support/import_patch.h"

#include <cstdio>
#include <cstdlib>

namespace {

/// The place in the module's import address table that holds the function, or null.
void** FindSlot(HMODULE Module, const std::string& FunctionName) {
  BYTE* const Image = reinterpret_cast<BYTE*>(Module);
  const auto* Dos = reinterpret_cast<IMAGE_DOS_HEADER*>(Image);
  const auto* Nt = reinterpret_cast<IMAGE_NT_HEADERS*>(Image + Dos->e_lfanew);
  const auto& Directory = Nt->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT];
  const auto* Import = reinterpret_cast<IMAGE_IMPORT_DESCRIPTOR*>(Image + Directory.VirtualAddress);
  for (; Import->Name; ++Import) {
    const auto* Names = reinterpret_cast<IMAGE_THUNK_DATA*>(Image + Import->OriginalFirstThunk);
    auto* Slots = reinterpret_cast<void**>(Image + Import->FirstThunk);
    for (; Names->u1.AddressOfData; ++Names, ++Slots) {
      if (IMAGE_SNAP_BY_ORDINAL(Names->u1.Ordinal)) continue;
      const auto* ByName = reinterpret_cast<IMAGE_IMPORT_BY_NAME*>(Image + Names->u1.AddressOfData);
      if (FunctionName == reinterpret_cast<const char*>(ByName->Name)) return Slots;
    }
  }
  return nullptr;
}

void SetSlot(void** Slot, void* Function) {
  DWORD Protection = 0;
  VirtualProtect(Slot, sizeof *Slot, PAGE_READWRITE, &Protection);
  *Slot = Function;
  VirtualProtect(Slot, sizeof *Slot, Protection, &Protection);
}

}  // namespace

TImportPatch::TImportPatch(HMODULE Module, const std::string& FunctionName, void* Replacement)
    : Slot(Module ? FindSlot(Module, FunctionName) : nullptr), Before(Slot ? *Slot : nullptr) {
  if (!Slot) {
    std::printf("The module is not loaded, or does not import %s\n", FunctionName.c_str());
    std::exit(1);
  }
  SetSlot(Slot, Replacement);
}

TImportPatch::~TImportPatch() { SetSlot(Slot, Before); }

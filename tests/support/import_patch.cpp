#include "support/import_patch.h"

#include "support/must.h"

namespace {

void SetSlot(void** Slot, void* Function) {
  DWORD Protection = 0;
  VirtualProtect(Slot, sizeof *Slot, PAGE_READWRITE, &Protection);
  *Slot = Function;
  VirtualProtect(Slot, sizeof *Slot, Protection, &Protection);
}

}  // namespace

void ForEachImport(HMODULE Module, const std::function<void(std::string Library, const char* Name, void** Slot)>& See) {
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
      See(reinterpret_cast<const char*>(Image + Import->Name), reinterpret_cast<const char*>(ByName->Name), Slots);
    }
  }
}

TImportPatch::TImportPatch(const std::string& FunctionName, void* Replacement) {
  const HMODULE Module = GetModuleHandleA("Mendwork.dll");
  Must(Module, "the module is not loaded");
  ForEachImport(Module, [&](const std::string&, const char* Name, void** Place) {
    if (Name == FunctionName) Slot = Place;
  });
  Must(Slot, "the module does not import " + FunctionName);
  Before = *Slot;
  SetSlot(Slot, Replacement);
}

TImportPatch::~TImportPatch() { SetSlot(Slot, Before); }

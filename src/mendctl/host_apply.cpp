#include "mendctl/commands.h"

TReport Apply(const std::filesystem::path&) {
  throw EWrongUse{"An update needs the library and the kit, so it is applied on the machine itself."};
}

#include "mendctl/commands.h"

TReport Rollback(const TContext&, const TRollbackOptions&, const std::function<void(const std::string&)>&) {
  throw EWrongUse{"A rollback needs the library, so it is done on the machine itself."};
}

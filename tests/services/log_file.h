#pragma once

#include "support/tree.h"

#include <objbase.h>

#include <string>
#include <vector>

/// "yyyy.mm.dd hh:nn:ss " in local time: as long as the stamp of every line, and in the same order as the times.
std::string LogStamp();

/// The lines of update.log without their time stamps. The module keeps the file to itself, so it is made to go first:
/// the caller holds no object of it.
std::vector<std::string> LinesOf(const std::string& LogFile);

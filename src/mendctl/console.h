#pragma once

#include <iosfwd>
#include <string>
#include <vector>

/// Runs one command line, without the program's name, in UTF-8. Gives the exit status: 0 fine, 1 found something, 2
/// wrong use, 3 cannot read.
int RunConsole(const std::vector<std::string>& Words, std::istream& In, std::ostream& Out, std::ostream& Err);

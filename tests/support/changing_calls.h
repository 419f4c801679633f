#pragma once

#include <string>
#include <vector>

/// The module's calls of Win32 functions that change a file, a folder or the registry: the points at which the death of
/// a process shows what its module promises. Needs the module loaded; the functions stay replaced from then on.

/// How a process ends at its point.
constexpr int DiedStatus = 77;

/// Lets an event happen at the `Point`-th changing call, counted from 1:
///   nothing  the calls are only counted
///   before   the process ends just before the call, with DiedStatus
///   after    it ends just after the call
///   torn     it ends when the call, a WriteFile, has written half of its bytes; only those calls are counted
///   stop     it tells that it is ready (child.h) just before the call, and stays there
void PlanEvent(const std::string& Event, int Point);

/// The names of the changing calls that were made since, in order.
const std::vector<const char*>& ChangingCallsMade();

#pragma once

#include <string>
#include <vector>

/// The module's calls of Win32 functions as points at which its process dies. Needs the module loaded; the functions
/// stay replaced from then on.

/// How a process ends at its point.
constexpr int DiedStatus = 77;

/// Which calls are points: those that change a file, a folder or the registry, or every one of some more functions,
/// which read, close and lock.
enum TPoints { ChangingCalls, AllCalls };

/// Lets an event happen at the `Point`-th call, counted from 1:
///   nothing  the calls are only counted
///   before   the process ends just before the call, with DiedStatus
///   after    it ends just after the call
///   torn     it ends when the call, a WriteFile, has written half of its bytes; only those calls are counted
///   stop     it tells that it is ready (child.h) just before the call, and stays there
void PlanEvent(const std::string& Event, int Point, TPoints Points = ChangingCalls);

/// The names of the calls that were made since, in order.
const std::vector<const char*>& CallsMade();

#pragma once

#include <map>
#include <string>

/// What a power failure can take: the files that the modules wrote and did not flush, and what the disk has of them.
/// The garbage lists and the uninstall log, which are never flushed, are left out.

/// The files by their paths, with the content that they had when they were flushed last, before they were opened.
using TUnflushed = std::map<std::string, std::string>;

/// Notes from now on what the modules of this process write and flush. To be called after PlanEvent.
void NoteUnflushed(const std::string& Root);
/// Writes what was noted to a file in `Root`, for another process.
void TellUnflushed();
/// Reads it, and removes the file.
TUnflushed TakeUnflushed(const std::string& Root);

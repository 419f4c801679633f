#pragma once

#include "torture.h"

// The roles that live beside the part that starts them; roles.cpp lists all.

int PlayCount(const std::vector<std::string>& Words);
int PlayFault(const std::vector<std::string>& Words);
int PlayTorn(const std::vector<std::string>& Words);
int PlayWorker(const std::vector<std::string>& Words);

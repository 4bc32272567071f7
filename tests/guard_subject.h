#pragma once

#include <map>
#include <memory>
#include <string>

#include "tarvo/host/host.h"

using Scenarios = std::map<std::string, int (*)()>;

/// The scenarios in which the program has signal handlers of its own.
Scenarios HandlerScenarios();

/// Starts the host with the guard on; ends the program when that fails.
std::unique_ptr<tarvo::Host> StartHost(const char* report = "");

[[gnu::noinline]] void NullWrite();

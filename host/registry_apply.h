// Runs a parsed registry script against the registry.
#pragma once

#include <windows.h>

#include "host/registry_script.h"

namespace vn_rgs {

// Writes every key and value of the script. The first failing call's
// status is returned; what was written before stays.
HRESULT Register(const Script& script);

// Removes what the script names, sparing keys marked NoRemove (their
// children are still visited). Missing keys are not an error.
HRESULT Unregister(const Script& script);

// Loads resource `id` of type "REGISTRY" from the program file, substitutes
// and parses it, and registers or unregisters it.
HRESULT RunResourceScript(UINT id, const Replacements& replacements, bool doRegister);

}  // namespace vn_rgs

// Hands one host event to every registered sink in order.
#pragma once

#include <vector>

#include "vfc/com_ptr.h"
#include "vnlinkhost.h"

// Calls each sink with the same arguments and the same result variable. Stops
// at the first failure and returns it; stops early, too, when a sink answers 1
// to a query shutdown (type 1) whose parameter is 1. Returns the last status,
// 0 with no sinks.
HRESULT FanOutEvent(const std::vector<vfc::TComPtr<IVnLinkhostEventSink>>& sinks, LONG type,
                    const VARIANT& parameter, VnLinkhostEventResult* result);

#include "host/event_fanout.h"

HRESULT FanOutEvent(const std::vector<vfc::TComPtr<IVnLinkhostEventSink>>& sinks, LONG type,
                    const VARIANT& parameter, VnLinkhostEventResult* result)
{
    HRESULT hr = S_OK;
    const bool queryWithOne = type == 1 && parameter.vt == VT_I4 && parameter.lVal == 1;
    for (const auto& sink : sinks) {
        hr = sink->OnEvent(static_cast<VnLinkhostEventType>(type), parameter, result);
        if (FAILED(hr))
            return hr;
        if (queryWithOne && result && static_cast<LONG>(*result) == 1)
            break;
    }
    return hr;
}

// The one repeat of a request that found no connection: dial, then try again.
#include "web/request.h"

#include "host/log.h"
#include "host/messages.h"
#include "host/platform_seams.h"
#include "host/status.h"
#include "res/resource.h"
#include "settings/connection_manager.h"
#include "settings/connection_state.h"
#include "settings/session_connection.h"

HRESULT CVnWebRequest::DialToRepeatRequest()
{
    CVnConnectionState* state = CVnConnectionState::getInstance();
    const int dialMode = m_pConfigurationData->m_DialMode;
    // The session's start dialled already, or dialling is settled: nothing new to try.
    if (dialMode == DialAlways || (dialMode == DialRequired && state->m_DirectDial == 1))
        return VN_E_NOT_CONNECTED;

    const std::string useFound = LoadFormat(IDS_DIALUP_FOUND);
    const std::string asDefault = LoadFormat(IDS_DIALUP_DEFAULT);
    const bool interactive = Interactive();

    if (CVnSessionConnection::IsDialUpActive() != S_OK) {
        std::string name;
        if (!interactive) {
            HRESULT hr = CVnSessionConnection::GetIEDefConnection(name);
            if (FAILED(hr))
                LogLine(vn_log::kErrorHex, "CVnWebRequest::DialToRepeatRequest",
                        "CVnSessionConnection::GetIEDefConnection failed.", static_cast<unsigned>(hr));
        }
        HRESULT hr = CVnLinkhostConnectionManager().Connect(name, m_hWnd, interactive, interactive);
        if (hr != S_OK)
            return hr;
        state->m_bDialed = true;
        state->m_DirectDial = 1;
    } else {
        // A wide-area link is up already: ask once whether to use it.
        if (!state->m_bDefaultAccepted && interactive) {
            if (PlatformSeams().MessageBoxA(m_hWnd, useFound.c_str(), "", MB_OKCANCEL) != IDOK)
                return VN_E_DIAL_CANCELLED;
        }
        state->m_DirectDial = 1;
    }
    if (!state->m_bDefaultAccepted && interactive &&
        PlatformSeams().MessageBoxA(m_hWnd, asDefault.c_str(), "", MB_OKCANCEL) == IDOK)
        state->m_bDefaultAccepted = true;
    return S_OK;
}

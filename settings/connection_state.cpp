#include "settings/connection_state.h"

#include "settings/connection_manager.h"
#include "vfc/critical_section.h"

namespace {

// Guards the pointer only. A function-local static, so that it exists before
// any static initialiser that might ask for the state.
vfc::TCriticalSection& InstanceLock()
{
    static vfc::TCriticalSection* lock = new vfc::TCriticalSection;  // never destroyed: the state may be asked for to the end
    return *lock;
}

CVnConnectionState* g_pInstance = nullptr;

}  // namespace

CVnConnectionState* CVnConnectionState::getInstance()
{
    vfc::TLock guard(InstanceLock());
    if (!g_pInstance)
        g_pInstance = new CVnConnectionState;
    return g_pInstance;
}

HRESULT CVnConnectionState::DestroyInstance()
{
    CVnConnectionState* state = nullptr;
    {
        vfc::TLock guard(InstanceLock());
        state = g_pInstance;
        g_pInstance = nullptr;
    }
    if (!state)
        return S_OK;
    HRESULT status = S_OK;
    if (state->m_bDialed) {
        // The hang-up may take a while and serves this thread's messages;
        // the lock is not held across it.
        CVnLinkhostConnectionManager manager;
        status = manager.Disconnect(state->m_strEntry);
        if (status == S_OK) {
            state->m_strEntry.clear();
            state->m_bDialed = false;
            state->m_bDefaultAccepted = false;
            state->m_DirectDial = 0;
        }
    }
    delete state;
    return status;
}

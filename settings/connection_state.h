// The process-wide connection state: which dial-up entry this process
// dialled, whether it must hang it up, whether the user accepted a found
// dial-up link as the standard way, and whether traffic goes over a dial-up
// link. One object, made on first use; the root object destroys it at its
// end, which hangs up a link that this process dialled.
//
// The fields are plain values, written by the session that settles its
// connection and read by requests; like the dial-up manager's own flags they
// carry no lock. Only making and destroying the object are serialised.
#pragma once

#include <windows.h>

#include <string>

class CVnConnectionState {
public:
    // The one object; made on the first call (and again after DestroyInstance).
    static CVnConnectionState* getInstance();

    // The end of the root object: if this process dialled, hangs up
    // m_strEntry and, on success, clears the fields; then deletes the object.
    // Gives the hang-up's status (0 when nothing was to be hung up); a link
    // whose hang-up failed stays up.
    static HRESULT DestroyInstance();

    std::string m_strEntry;           // the entry this process dialled; empty otherwise
    bool m_bDialed = false;           // this process started the connection and must hang it up
    bool m_bDefaultAccepted = false;  // the user agreed to use a found dial-up link as the standard way
    LONG m_DirectDial = 0;            // 1 while traffic goes over a dial-up link: then no proxy is used

private:
    CVnConnectionState() = default;
    ~CVnConnectionState() = default;
    CVnConnectionState(const CVnConnectionState&) = delete;
    CVnConnectionState& operator=(const CVnConnectionState&) = delete;
};

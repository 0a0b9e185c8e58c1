// The system's only access to the platform's dial-up interface, RAS: it lists
// the phone book's entries, dials one, tells whether one is connected, and
// hangs up. Every operation loads what it needs of RASAPI32.DLL (and of
// Rasdlg.dll for the phone book dialog) by name and drops it afterwards, so
// the system also runs where RAS is missing; it then falls back on the
// internet client's InternetDial when a user is there to answer it.
//
// A caller makes one on the stack. The two process-wide values (whether this
// process opened a connection, and the connection number of the fallback
// dial) are plain values without a lock: dials run on the caller's thread
// and block it for the whole dial, and the design accepts that two sessions
// dialling at once both write them.
#pragma once

#include <windows.h>

#include <string>
#include <vector>

#include "settings/ras_types.h"

class CVnLinkhostConnectionManager {
public:
    // The phone book's entry names in the platform's order; an empty list on
    // any failure, a missing library included.
    void GetConnections(std::vector<std::string>& entries);

    // True if the entry has a connection whose state is connected.
    bool IsConnected(const std::string& entry);

    // The handle of the entry's first connection, whatever its state; null
    // when there is none.
    vn_ras::TRasConnHandle FindConnection(const std::string& entry);

    // The one that callers use: dials the entry, or shows the phone book
    // dialog when bDialog is set. Where RAS can't be loaded and bInteractive
    // allows a dialog, the internet client's InternetDial is tried instead.
    // 0, 1 for an unknown entry, VN_E_DIAL_CANCELLED, VN_E_DIAL_FAILED or
    // VN_E_NOT_AVAILABLE.
    HRESULT Connect(const std::string& entry, HWND hwnd, bool bInteractive, bool bDialog);

    // Ends the fallback dial if there is one, then hangs up the entry if this
    // process dialled it. 0, 1 for an unknown entry, VN_E_HANGUP_FAILED or
    // VN_E_NOT_AVAILABLE.
    HRESULT Disconnect(const std::string& entry);

    // Dials the entry synchronously with its stored login. An entry that is
    // connected already is used as it is and does not become this process's.
    // A failed dial is followed by the phone book dialog.
    HRESULT ConnectEntry(const std::string& entry, HWND hwnd, bool bInteractive);

    // Shows the platform's phone book dialog on the window; only with a user
    // there and a phone book that has entries.
    HRESULT RasDialogConnect(HWND hwnd, bool bInteractive);

    // Hangs up the entry's connection if this process opened one, and waits,
    // keeping the thread's windows served, until the platform has let the
    // handle go.
    HRESULT DisconnectEntry(const std::string& entry);

    // The process-wide values, for the owner of the connection state.
    static bool ConnectionOwned() { return bConnectionOwned; }
    static DWORD_PTR DialConnection() { return dwDialConnection; }

private:
    static bool bConnectionOwned;        // set by every successful dial of this process
    static DWORD_PTR dwDialConnection;  // the connection of the fallback dial, 0 when none
};

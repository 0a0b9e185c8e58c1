// Turns the configuration record into what one session really uses, decides
// at session start whether the machine is online and whether to dial, and
// answers the read-only "ie/" keys from the system's settings.
//
// A member of the web session. It points at the session's own copy of the
// record, cdAWorkData, which the session owns and which is filled once, when
// the client's session gets its parameters: where the record asks for the
// system's settings, the matching fields of the copy are overwritten from
// what the operating system says at that moment, and after that the session
// reads only the copy. It runs on the client's call thread and takes no lock.
#pragma once

#include <windows.h>

#include <string>

#include "settings/config_data.h"

class CVnSessionConnection {
public:
    explicit CVnSessionConnection(CConfigData* pWorkData = nullptr) : m_pWorkData(pWorkData) {}

    void SetWorkData(CConfigData* pWorkData) { m_pWorkData = pWorkData; }
    CConfigData* GetWorkData() const { return m_pWorkData; }

    // Copies the root object's record into cdAWorkData, then takes the proxy
    // settings from the system if the record says m_UseSystemProxy, and the
    // dial settings if it says m_UseSystemConnection. The status is that of
    // the last step taken: a failed proxy query is reported only when the
    // system's dial settings are not read as well. 0x80004003 without a copy.
    HRESULT PrepareConfigData(const CConfigData& record);

    // Whether the session can go online, dialling where the working record
    // says so; bit 0 of m_SessionFlags allows a dial dialog on the client's
    // window. Sets the process-wide m_DirectDial when traffic goes over a
    // dial-up link. 0, VN_E_NOT_CONNECTED, VN_E_NOT_AVAILABLE, or the status
    // of a dial that failed.
    HRESULT CheckConnection(const CConfigData& workData, HWND hwndClient);

    // Fills the proxy fields of cdAWorkData from the system's LAN settings.
    // 0x80004005 if the system can't be asked; the fields then stay as copied.
    HRESULT GetProxyDefault();

    // Fills the dial mode and the default entry of cdAWorkData from the
    // system. Always 0.
    HRESULT GetRASDefault();

    // DialNever, DialRequired or DialAlways from the autodial values of the
    // internet settings: their sum decides. Always 0.
    static HRESULT GetIEDialMode(int& mode);

    // The system's default dial-up entry, read where this platform version
    // keeps it, and only if the phone book has an entry of exactly that name;
    // otherwise empty. 0, or 0x80004005 when the version can't be had.
    static HRESULT GetIEDefConnection(std::string& entry);

    // The value of one "ie/proxy/" or "ie/dialup/" key (given in full) from
    // the system at this moment; empty for a word these families don't know.
    static std::string GetIEProxy(const std::string& key);
    static std::string GetIEDialUp(const std::string& key);

    // The network test of the session start: 0 when the network is alive
    // (setting m_DirectDial when the only link is a dial-up one),
    // VN_E_NOT_CONNECTED when it is down, VN_E_NOT_AVAILABLE without Sensapi.
    static HRESULT NetworkTest();

    // The variant for the repeat of a failed request: 0 when a dial-up link
    // is up, 1 when not, and the same two failure codes.
    static HRESULT IsDialUpActive();

private:
    // Dials the working record's default entry; on success marks the link
    // as this process's and as the way traffic goes.
    static HRESULT _dialDefault(const CConfigData& workData, HWND hwndClient);

    CConfigData* m_pWorkData;  // cdAWorkData, owned by the session
};

// The logins of proxies and servers. When a proxy or a server challenges a
// request, the authentication dialogue of the transceiver and the tunnel's
// connect come here. A proxy's login is kept at two levels, so that a user is
// asked once per proxy and not once per request: a map in memory for the
// life of the process, and a store at rest (IVnCredentialsManager) that
// survives a restart. A server's login is not kept at all; it lives in the
// request's own two texts.
//
// All operations are static and may be called on any thread. Locks, in the
// order in which they may be taken: the factory lock (alone); a manager's
// lock, held over its whole run with the dialog, then the map's lock, taken
// when a login reaches the map; the server dialog's lock (alone).
#pragma once

#include <windows.h>
#include <wininet.h>

#include <string>

#include "settings/credentials_managers.h"
#include "settings/inet_api_handler.h"

class CVnProxyCredentials {
public:
    // Puts a login for `proxy` on the request handle. iMode 0 asks the user at
    // once; 1 takes the login of the map or the store and asks when there is
    // none; 2 takes what is there and never asks. Gives 0 when a login was set
    // from the map (or none exists in mode 2), 12032 when the request is to be
    // sent again with what the manager set, a platform error when an option
    // could not be set, -1 for a null handle, and VN_E_PROXY_LOGIN_CANCELLED
    // when the user turned the dialog down.
    static LONG GetProxyCredentials(const std::string& proxy, HINTERNET hRequest, HWND hWnd, int iMode);

    // Puts a server login on the request handle. With iMode 1 or 2 and a
    // login given, that login is set (12032 for mode 1, 0 for mode 2);
    // otherwise the platform's password dialog is shown, one at a time in the
    // process, and a confirmed login is read back into the two texts. Gives
    // 0, 12032, a platform error, -1 for a null handle, or
    // VN_E_SERVER_LOGIN_CANCELLED when the user cancelled.
    static LONG GetServerCredentials(HINTERNET hRequest, HWND hWnd, int iMode, std::string& login,
                                     std::string& password);

    // The map's login for `proxy`: 0 when found, -1 when not.
    static LONG GetPassLogin(const std::string& proxy, std::string& login, std::string& password);

    // Enters a login into the map: an equal entry stays, a different one is
    // replaced. Called by the handler whenever it has put a login on a handle.
    static void _saveCredentials(const std::string& proxy, const std::string& login, const std::string& password);

    // Sets options 28 and 29, each only when its text is not empty. Gives 0
    // or the platform's error number.
    static LONG _setServerCredentials(HINTERNET hRequest, const std::string& login, const std::string& password);
};

// The process-wide store at rest, made on first use: the Credential Manager
// on Windows XP, Server 2003, Vista and 7 (versions 5.1, 5.2 and 6.x as
// GetVersionExA reports them), the LSA store on anything else or when the
// Credential Manager's libraries are missing. Never null.
IVnCredentialsManager* GetCredentialsManager();

// The process-wide handler of request handles, made on first use. Never null.
IINetApiHandler* GetINetApiHandler();

// Deletes both process-wide objects and forgets them; the next use makes them
// afresh. The root object calls this at its end, when no request runs any
// more; a caller that still used either object would be left with a dangling
// pointer. The map of logins is not touched: it lives until the process ends.
void ReleaseCredentialObjects();

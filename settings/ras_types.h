// The structures and entry points of the platform's dial-up interface (RAS)
// in the layout of Windows 7, as this system passes them to RASAPI32.DLL and
// Rasdlg.dll. They are declared here and not taken from the compiler's
// headers, whose RASCONNA and RASCONNSTATUSA are those of older platforms:
// in the shipped 32-bit build the sizes are 532, 720, 332, 1068 and 40 bytes,
// and the platform checks the size field of each.
#pragma once

#include <windows.h>

namespace vn_ras {

constexpr DWORD kMaxEntryName = 256;
constexpr DWORD kMaxDeviceType = 16;
constexpr DWORD kMaxDeviceName = 128;
constexpr DWORD kMaxPhoneNumber = 128;
constexpr DWORD kMaxUserName = 256;
constexpr DWORD kMaxPassword = 256;
constexpr DWORD kMaxDomain = 15;

constexpr DWORD kErrorInvalidHandle = 6;       // ERROR_INVALID_HANDLE: the connection is gone
constexpr DWORD kErrorBufferTooSmall = 603;    // ERROR_BUFFER_TOO_SMALL
constexpr DWORD kErrorInvalidSize = 632;       // ERROR_INVALID_SIZE: a size field the platform does not know
constexpr DWORD kErrorUserDisconnection = 631; // the user cancelled a dial
constexpr DWORD kStateConnected = 0x2000;      // RASCS_Connected
constexpr DWORD kStateDisconnected = 0x2001;   // RASCS_Disconnected

// HRASCONN: the platform's handle of one connection.
using TRasConnHandle = HANDLE;

// RASENTRYNAMEA.
struct TRasEntryName {
    DWORD dwSize;
    CHAR szEntryName[kMaxEntryName + 1];
    DWORD dwFlags;
    CHAR szPhonebookPath[MAX_PATH + 1];
};

// RASCONNA.
struct TRasConn {
    DWORD dwSize;
    TRasConnHandle hrasconn;
    CHAR szEntryName[kMaxEntryName + 1];
    CHAR szDeviceType[kMaxDeviceType + 1];
    CHAR szDeviceName[kMaxDeviceName + 1];
    CHAR szPhonebook[MAX_PATH];
    DWORD dwSubEntry;
    GUID guidEntry;
    DWORD dwFlags;
    LUID luid;
    GUID guidCorrelationId;
};

// RASTUNNELENDPOINT: a type and an IPv4 or IPv6 address.
struct TRasTunnelEndpoint {
    DWORD dwType;
    BYTE address[16];
};

// RASCONNSTATUSA.
struct TRasConnStatus {
    DWORD dwSize;
    DWORD rasconnstate;
    DWORD dwError;
    CHAR szDeviceType[kMaxDeviceType + 1];
    CHAR szDeviceName[kMaxDeviceName + 1];
    CHAR szPhoneNumber[kMaxPhoneNumber + 1];
    TRasTunnelEndpoint localEndPoint;
    TRasTunnelEndpoint remoteEndPoint;
    DWORD rasconnsubstate;
};

// RASDIALPARAMSA.
struct TRasDialParams {
    DWORD dwSize;
    CHAR szEntryName[kMaxEntryName + 1];
    CHAR szPhoneNumber[kMaxPhoneNumber + 1];
    CHAR szCallbackNumber[kMaxPhoneNumber + 1];
    CHAR szUserName[kMaxUserName + 1];
    CHAR szPassword[kMaxPassword + 1];
    CHAR szDomain[kMaxDomain + 1];
    DWORD dwSubEntry;
    ULONG_PTR dwCallbackId;
    DWORD dwIfIndex;
    LPSTR szEncPassword;
};

// RASPBDLGA.
struct TRasPhonebookDlg {
    DWORD dwSize;
    HWND hwndOwner;
    DWORD dwFlags;
    LONG xDlg;
    LONG yDlg;
    ULONG_PTR dwCallbackId;
    void* pCallback;
    DWORD dwError;
    ULONG_PTR reserved;
    ULONG_PTR reserved2;
};

#if !defined(_WIN64)
static_assert(sizeof(TRasEntryName) == 532, "RASENTRYNAMEA of the platform");
static_assert(sizeof(TRasConn) == 720, "RASCONNA of the platform");
static_assert(sizeof(TRasConnStatus) == 332, "RASCONNSTATUSA of the platform");
static_assert(sizeof(TRasDialParams) == 1068, "RASDIALPARAMSA of the platform");
static_assert(sizeof(TRasPhonebookDlg) == 40, "RASPBDLGA of the platform");
#endif

// The entry points, by the names under which the libraries export them.
using PFN_RasEnumEntriesA = DWORD(WINAPI*)(LPCSTR reserved, LPCSTR phonebook, TRasEntryName* entries,
                                           LPDWORD cb, LPDWORD count);
using PFN_RasEnumConnectionsA = DWORD(WINAPI*)(TRasConn* connections, LPDWORD cb, LPDWORD count);
using PFN_RasGetConnectStatusA = DWORD(WINAPI*)(TRasConnHandle connection, TRasConnStatus* status);
using PFN_RasGetEntryDialParamsA = DWORD(WINAPI*)(LPCSTR phonebook, TRasDialParams* params, LPBOOL password);
using PFN_RasDialA = DWORD(WINAPI*)(void* extensions, LPCSTR phonebook, TRasDialParams* params,
                                    DWORD notifierType, void* notifier, TRasConnHandle* connection);
using PFN_RasHangUpA = DWORD(WINAPI*)(TRasConnHandle connection);
using PFN_RasGetErrorStringA = DWORD(WINAPI*)(UINT error, LPSTR text, DWORD size);
using PFN_RasPhonebookDlgA = BOOL(WINAPI*)(LPCSTR phonebook, LPCSTR entry, TRasPhonebookDlg* info);

}  // namespace vn_ras

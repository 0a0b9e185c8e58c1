// One RAII template for every platform resource the system holds, and the
// one-line aliases for each kind. Logic code never closes a handle itself.
#pragma once

#include <winsock2.h>
#include <windows.h>
#include <wininet.h>
#include <commctrl.h>

#include <utility>

namespace vfc {

// Traits give the empty value, what counts as empty, and how to close.
template <typename Traits>
class TUniqueResource {
public:
    using value_type = typename Traits::type;

    TUniqueResource() noexcept = default;
    explicit TUniqueResource(value_type value) noexcept : m_value(value) {}
    TUniqueResource(const TUniqueResource&) = delete;
    TUniqueResource& operator=(const TUniqueResource&) = delete;
    TUniqueResource(TUniqueResource&& other) noexcept : m_value(other.detach()) {}
    TUniqueResource& operator=(TUniqueResource&& other) noexcept
    {
        if (this != &other)
            reset(other.detach());
        return *this;
    }
    ~TUniqueResource() { reset(); }

    value_type get() const noexcept { return m_value; }
    bool valid() const noexcept { return !Traits::is_empty(m_value); }
    explicit operator bool() const noexcept { return valid(); }

    // Closes what is held and takes the new value.
    void reset(value_type value = Traits::empty()) noexcept
    {
        value_type old = std::exchange(m_value, value);
        if (!Traits::is_empty(old))
            Traits::close(old);
    }
    // Gives up ownership without closing.
    value_type detach() noexcept { return std::exchange(m_value, Traits::empty()); }
    void attach(value_type value) noexcept { reset(value); }
    // Closes what is held and hands out the address for an out parameter.
    value_type* put() noexcept
    {
        reset();
        return &m_value;
    }

private:
    value_type m_value = Traits::empty();
};

// Kernel handles: both null and INVALID_HANDLE_VALUE count as empty.
struct THandleTraits {
    using type = HANDLE;
    static HANDLE empty() noexcept { return nullptr; }
    static bool is_empty(HANDLE h) noexcept { return h == nullptr || h == INVALID_HANDLE_VALUE; }
    static void close(HANDLE h) noexcept { ::CloseHandle(h); }
};

struct TSocketTraits {
    using type = SOCKET;
    static SOCKET empty() noexcept { return INVALID_SOCKET; }
    static bool is_empty(SOCKET s) noexcept { return s == INVALID_SOCKET; }
    static void close(SOCKET s) noexcept { ::closesocket(s); }
};

template <typename T, BOOL(WINAPI* Fn)(T)>
struct TBoolCloseTraits {
    using type = T;
    static T empty() noexcept { return nullptr; }
    static bool is_empty(T v) noexcept { return v == nullptr; }
    static void close(T v) noexcept { Fn(v); }
};

struct TRegKeyTraits {
    using type = HKEY;
    static HKEY empty() noexcept { return nullptr; }
    static bool is_empty(HKEY k) noexcept { return k == nullptr; }
    static void close(HKEY k) noexcept { ::RegCloseKey(k); }
};

struct TLocalMemTraits {
    using type = HLOCAL;
    static HLOCAL empty() noexcept { return nullptr; }
    static bool is_empty(HLOCAL p) noexcept { return p == nullptr; }
    static void close(HLOCAL p) noexcept { ::LocalFree(p); }
};

using THandle = TUniqueResource<THandleTraits>;
using TSocket = TUniqueResource<TSocketTraits>;
using TWsaEvent = TUniqueResource<TBoolCloseTraits<WSAEVENT, ::WSACloseEvent>>;
using TInternetHandle = TUniqueResource<TBoolCloseTraits<HINTERNET, ::InternetCloseHandle>>;
using TModule = TUniqueResource<TBoolCloseTraits<HMODULE, ::FreeLibrary>>;
using TServiceHandle = TUniqueResource<TBoolCloseTraits<SC_HANDLE, ::CloseServiceHandle>>;
using TEventSource = TUniqueResource<TBoolCloseTraits<HANDLE, ::DeregisterEventSource>>;
using TRegKey = TUniqueResource<TRegKeyTraits>;
using TLocalMem = TUniqueResource<TLocalMemTraits>;
using TImageList = TUniqueResource<TBoolCloseTraits<HIMAGELIST, ::ImageList_Destroy>>;

}  // namespace vfc

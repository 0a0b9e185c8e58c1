// TClientObjects: the objects that a server handed to each client process,
// disconnected from their remote references when that process ends.
//
// The platform's object layer of some systems (Wine among them) never learns
// that a client died, so the stubs would hold the client's references, and
// with them the objects and all they own, for the life of the server. One
// wait in the platform's thread pool watches each client process; when it
// ends, every object still registered for it is disconnected, which lets go
// of the references the dead client held. A process id can be given again
// before the wait for its last owner has run: objects are bound to the watch
// of the process that registered them, not to the bare id.
#pragma once

#include <windows.h>
#include <unknwn.h>

#include <map>

#include "vfc/critical_section.h"

namespace vfc {

class TClientObjects {
public:
    // Takes a reference only while the object is not yet on its way out.
    using TryAddRefFn = bool (*)(void* self);

    static TClientObjects& getInstance();

    // Registers `self` (whose IUnknown is `unknown`) for the client `pid`;
    // nothing happens for pid 0 or a process that can't be watched.
    void Add(DWORD pid, void* self, IUnknown* unknown, TryAddRefFn tryAddRef);
    // From the object's destructor; unknown objects are ignored.
    void Remove(void* self);

private:
    struct Entry {
        ULONG_PTR watch;
        IUnknown* unknown;
        TryAddRefFn tryAddRef;
    };
    struct Watch {
        DWORD pid;
        HANDLE hProcess;
        HANDLE hWait;
    };

    static VOID CALLBACK OnProcessEnded(PVOID param, BOOLEAN timedOut);
    // The watch of the running process `pid`, started if there is none; 0 if it can't be watched.
    ULONG_PTR _watchOf(DWORD pid);
    void _disconnect(ULONG_PTR watch);

    TCriticalSection m_cs;
    std::map<void*, Entry> m_objects;
    std::map<ULONG_PTR, Watch> m_watches;
    ULONG_PTR m_lastWatch = 0;
};

}  // namespace vfc

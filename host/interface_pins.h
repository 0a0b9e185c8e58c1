// CVnInterfacePins: keeps every interface that the server hands to clients
// registered with the platform's RPC runtime for as long as the class object
// is registered.
//
// Wine's object layer takes an interface out of its RPC runtime when the last
// stub of that interface goes, and waits there for the interface's running
// calls to end while it holds the lock that any call needs to hand out an
// interface pointer. A client that lets go of its last object of one kind
// while another client's call on that kind returns an object then hangs both
// calls, and with them every later call that hands out an object. One
// table-strong marshal of a stand-in per interface keeps each registration
// from ever reaching zero. The marshalled data is never unmarshalled, so
// nothing ever calls the stand-in through those interfaces.
//
// The pins also hold the registered type library (see TTypeLibraryHold): a
// description freed under another thread's stub building once faulted inside
// the calls that hand out a stream.
#pragma once

#include <windows.h>
#include <objbase.h>
#include <oaidl.h>

#include <vector>

#include "vfc/com_ptr.h"
#include "vfc/type_library.h"

class CVnInterfacePins {
public:
    CVnInterfacePins() = default;
    CVnInterfacePins(const CVnInterfacePins&) = delete;
    CVnInterfacePins& operator=(const CVnInterfacePins&) = delete;
    ~CVnInterfacePins() { Unpin(); }

    // Holds the type library, then marshals the stand-in once per interface;
    // an interface that fails stays unpinned.
    void Pin();
    // Releases the marshalled data, so that the stand-in's stubs go, and the library.
    void Unpin();

private:
    std::vector<vfc::TComPtr<IStream>> m_streams;
    vfc::TTypeLibraryHold m_typeLib;
};

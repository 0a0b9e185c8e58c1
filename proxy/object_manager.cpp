#include "proxy/object_manager.h"

#include <set>

#include "vfc/critical_section.h"

namespace {

struct TObjectList {
    vfc::TCriticalSection cs;
    std::set<const CVnObjectManager*> objects;
};

TObjectList& Objects()
{
    static TObjectList* list = new TObjectList;  // never destroyed: objects may outlive static destruction
    return *list;
}

}  // namespace

CVnObjectManager::CVnObjectManager()
{
    vfc::TLock lock(Objects().cs);
    Objects().objects.insert(this);
}

CVnObjectManager::~CVnObjectManager()
{
    vfc::TLock lock(Objects().cs);
    Objects().objects.erase(this);
}

#include "vfc/module_lock.h"

#include <atomic>

namespace vfc {

namespace {
std::atomic<TModuleLockTarget*> g_target{nullptr};
std::atomic<LONG> g_orphanCount{0};
}  // namespace

void SetModuleLockTarget(TModuleLockTarget* target) noexcept { g_target = target; }

LONG ModuleLock() noexcept
{
    if (TModuleLockTarget* t = g_target.load())
        return t->Lock();
    return ++g_orphanCount;
}

LONG ModuleUnlock() noexcept
{
    if (TModuleLockTarget* t = g_target.load())
        return t->Unlock();
    return --g_orphanCount;
}

LONG ModuleLockCountWithoutTarget() noexcept { return g_orphanCount.load(); }

}  // namespace vfc

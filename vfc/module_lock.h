// The process's count of living objects. The hosting module installs itself
// here; until it does (in tests, for example) the count is kept but nobody
// listens to it.
#pragma once

#include <windows.h>

namespace vfc {

class TModuleLockTarget {
public:
    virtual LONG Lock() = 0;
    virtual LONG Unlock() = 0;

protected:
    ~TModuleLockTarget() = default;
};

void SetModuleLockTarget(TModuleLockTarget* target) noexcept;
LONG ModuleLock() noexcept;
LONG ModuleUnlock() noexcept;
// Objects counted while no target was installed.
LONG ModuleLockCountWithoutTarget() noexcept;

}  // namespace vfc

// CVnObjectManager: the process-wide list of the proxy objects that exist.
#pragma once

// A base that puts its object on the list for the object's life. Kept for
// diagnosis from a debugger; the system itself never reads the list.
class CVnObjectManager {
public:
    CVnObjectManager();
    ~CVnObjectManager();
    CVnObjectManager(const CVnObjectManager&) = delete;
    CVnObjectManager& operator=(const CVnObjectManager&) = delete;
};

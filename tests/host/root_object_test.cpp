// The root object inside the process: its hold on the module and the event
// handler while it lives, and extension registration closed once it is
// built. Its answers across the process boundary are the server tests' part.
#include <gtest/gtest.h>

#include "host/module.h"
#include "host/root_object.h"
#include "vfc/com_ptr.h"

TEST(RootObject, HoldsTheModuleAndTheEventHandlerWhileItLivesAndTakesNoExtensionsOnceBuilt)
{
    const LONG before = Module().GetLockCount();
    {
        CVnLinkhostObject* raw = nullptr;
        ASSERT_EQ(S_OK, CVnLinkhostObject::Create(&raw));
        vfc::TComPtr<CVnLinkhostObject> root;
        root.attach(raw);
        EXPECT_EQ(before + 1, Module().GetLockCount());
        EXPECT_EQ(static_cast<IVnLinkhostEventHandler*>(root.get()), Module().GetEventHandler());
        const GUID id = {0x12345678, 0x1, 0x2, {1, 2, 3, 4, 5, 6, 7, 8}};
        vfc::TComPtr<IUnknown> extension;
        EXPECT_EQ(E_POINTER, root->GetExtensionInterface(&id, extension.put()));
        EXPECT_EQ(E_UNEXPECTED, root->AddExtensionInterface(&id, root->GetUnknown()));
        EXPECT_EQ(E_UNEXPECTED, root->AddEventSink(nullptr));
    }
    EXPECT_EQ(before, Module().GetLockCount());
    EXPECT_EQ(nullptr, Module().GetEventHandler());
}

// The root object inside the process: its hold on the module while it lives,
// its interfaces, and extension registration closed once it is constructed.
// Its answers across the process boundary are the server tests' business.
#include <gtest/gtest.h>

#include "host/module.h"
#include "host/root_object.h"
#include "vfc/com_ptr.h"

TEST(RootObject, HoldsTheModuleAndTheEventHandlerOnlyWhileItLives)
{
    const LONG before = Module().GetLockCount();
    {
        CVnLinkhostObject* raw = nullptr;
        ASSERT_EQ(S_OK, CVnLinkhostObject::Create(&raw));
        vfc::TComPtr<CVnLinkhostObject> root;
        root.attach(raw);
        EXPECT_EQ(before + 1, Module().GetLockCount());
        EXPECT_EQ(static_cast<IVnLinkhostEventHandler*>(root.get()), Module().GetEventHandler());

        vfc::TComPtr<IUnknown> unknown(root->GetUnknown()), extension;
        vfc::TComPtr<IDispatch> dispatch;
        vfc::TComPtr<IVnLinkhost> host;
        vfc::TComPtr<IVnStream> stream;
        EXPECT_EQ(S_OK, unknown.query_to(dispatch.put()));
        EXPECT_EQ(S_OK, unknown.query_to(host.put()));
        EXPECT_EQ(static_cast<IDispatch*>(dispatch.get()), static_cast<IDispatch*>(host.get()));
        EXPECT_EQ(E_NOINTERFACE, unknown.query_to(stream.put()));

        const GUID id = {0x12345678, 0x1, 0x2, {1, 2, 3, 4, 5, 6, 7, 8}};
        EXPECT_EQ(E_POINTER, root->GetExtensionInterface(&id, extension.put()));
        EXPECT_FALSE(extension);
        EXPECT_TRUE(root->ExtensionsClosed());
        EXPECT_EQ(E_UNEXPECTED, root->AddExtensionInterface(&id, root->GetUnknown()));
        EXPECT_EQ(E_UNEXPECTED, root->AddEventSink(nullptr));
    }
    EXPECT_EQ(before, Module().GetLockCount());
    EXPECT_EQ(nullptr, Module().GetEventHandler());
}

#include <gtest/gtest.h>

#include "host/module.h"
#include "host/root_object.h"
#include "vfc/bstr.h"
#include "vfc/com_ptr.h"

namespace {

vfc::TComPtr<CVnLinkhostObject> MakeRoot()
{
    CVnLinkhostObject* raw = nullptr;
    EXPECT_EQ(S_OK, CVnLinkhostObject::Create(&raw));
    vfc::TComPtr<CVnLinkhostObject> root;
    root.attach(raw);
    return root;
}

TEST(RootObjectInfo, VersionIsTheVersionBlocksFileVersionText)
{
    auto root = MakeRoot();
    vfc::TVariant query(L"Version"), result;
    ASSERT_EQ(S_OK, root->GetInfo(*query, result.get()));
    ASSERT_EQ(VT_BSTR, result->vt);
    EXPECT_STREQ(L"01.00.00.0001", result->bstrVal);
}

TEST(RootObjectInfo, OtherQueriesGiveEmpty)
{
    auto root = MakeRoot();
    for (const wchar_t* text : {L"version", L"", L"Version ", L"Name_DE-DE"}) {
        vfc::TVariant query(text), result(7L);
        EXPECT_EQ(S_OK, root->GetInfo(*query, result.get())) << text;
        EXPECT_EQ(VT_EMPTY, result->vt) << text;
    }
    vfc::TVariant number(5L), result(7L);
    EXPECT_EQ(S_OK, root->GetInfo(*number, result.get()));
    EXPECT_EQ(VT_EMPTY, result->vt);
}

TEST(RootObjectConfiguration, KeysReadAndWriteThroughTheRootObject)
{
    auto root = MakeRoot();
    vfc::TBstr key(L"proxy/port"), value;
    ASSERT_EQ(S_OK, root->GetConfigurationValue(key.get(), value.put()));
    EXPECT_EQ(L"8080", value.str());
    vfc::TBstr newValue(L"3128");
    ASSERT_EQ(S_OK, root->SetConfigurationValue(key.get(), newValue.get()));
    ASSERT_EQ(S_OK, root->GetConfigurationValue(key.get(), value.put()));
    EXPECT_EQ(L"3128", value.str());

    vfc::TBstr unknown(L"Proxy/mode");
    EXPECT_EQ(E_INVALIDARG, root->GetConfigurationValue(unknown.get(), value.put()));
    EXPECT_EQ(nullptr, value.get());
    EXPECT_EQ(E_INVALIDARG, root->SetConfigurationValue(unknown.get(), newValue.get()));

    // A second root object starts again from the defaults.
    auto other = MakeRoot();
    ASSERT_EQ(S_OK, other->GetConfigurationValue(key.get(), value.put()));
    EXPECT_EQ(L"8080", value.str());
}

TEST(RootObjectShutdown, CheckShutdownCutsTheIdleTimeAndReportsClients)
{
    Module().SetIdleTimeout(CVnLinkhostModule::kDefaultIdleTimeout);
    auto root = MakeRoot();
    VARIANT_BOOL inUse = VARIANT_FALSE;
    ASSERT_EQ(S_OK, root->CheckShutdown(&inUse));
    EXPECT_EQ(VARIANT_TRUE, inUse);  // the caller's own object counts
    EXPECT_EQ(0u, Module().GetIdleTimeout());
    Module().SetIdleTimeout(CVnLinkhostModule::kDefaultIdleTimeout);
}

TEST(RootObjectLifetime, ObjectHoldsTheModuleAndRegistersItsHandler)
{
    const LONG before = Module().GetLockCount();
    {
        auto root = MakeRoot();
        EXPECT_EQ(before + 1, Module().GetLockCount());
        EXPECT_EQ(static_cast<IVnLinkhostEventHandler*>(root.get()), Module().GetEventHandler());
    }
    EXPECT_EQ(before, Module().GetLockCount());
    EXPECT_EQ(nullptr, Module().GetEventHandler());
}

TEST(RootObjectExtensions, UnknownInterfaceIdIsNotThere)
{
    auto root = MakeRoot();
    vfc::TComPtr<IUnknown> extension;
    const GUID unknown = {0x12345678, 0x1, 0x2, {1, 2, 3, 4, 5, 6, 7, 8}};
    EXPECT_EQ(E_POINTER, root->GetExtensionInterface(&unknown, extension.put()));
    EXPECT_FALSE(extension);
}

TEST(RootObjectExtensions, RegistrationIsClosedOnceConstructed)
{
    auto root = MakeRoot();
    EXPECT_TRUE(root->ExtensionsClosed());
    const GUID id = {0x12345678, 0x1, 0x2, {1, 2, 3, 4, 5, 6, 7, 8}};
    EXPECT_EQ(E_UNEXPECTED, root->AddExtensionInterface(&id, root->GetUnknown()));
    EXPECT_EQ(E_UNEXPECTED, root->AddEventSink(nullptr));
}

TEST(RootObjectQuery, AnswersItsInterfacesAndNoOthers)
{
    auto root = MakeRoot();
    vfc::TComPtr<IUnknown> unknown(root->GetUnknown());
    vfc::TComPtr<IDispatch> dispatch;
    vfc::TComPtr<IVnLinkhost> host;
    EXPECT_EQ(S_OK, unknown.query_to(dispatch.put()));
    EXPECT_EQ(S_OK, unknown.query_to(host.put()));
    EXPECT_EQ(static_cast<IUnknown*>(static_cast<IDispatch*>(dispatch.get())),
              static_cast<IUnknown*>(static_cast<IDispatch*>(host.get())));
    vfc::TComPtr<IVnStream> stream;
    EXPECT_EQ(E_NOINTERFACE, unknown.query_to(stream.put()));
}

TEST(RootObjectDispatch, LateBoundGetInfoGoesThroughTheEmbeddedTypeLibrary)
{
    auto root = MakeRoot();
    vfc::TComPtr<IDispatch> dispatch;
    ASSERT_EQ(S_OK, vfc::TComPtr<IUnknown>(root->GetUnknown()).query_to(dispatch.put()));
    LPOLESTR name = const_cast<LPOLESTR>(L"GetInfo");
    DISPID id = 0;
    ASSERT_EQ(S_OK, dispatch->GetIDsOfNames(IID_NULL, &name, 1, LOCALE_USER_DEFAULT, &id));
    vfc::TVariant arg(L"Version"), result;
    DISPPARAMS params = {const_cast<VARIANT*>(&*arg), nullptr, 1, 0};
    ASSERT_EQ(S_OK, dispatch->Invoke(id, IID_NULL, LOCALE_USER_DEFAULT, DISPATCH_METHOD, &params, result.get(),
                                     nullptr, nullptr));
    ASSERT_EQ(VT_BSTR, result->vt);
    EXPECT_STREQ(L"01.00.00.0001", result->bstrVal);
}

}  // namespace

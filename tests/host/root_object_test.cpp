// The root object inside the process: its information, the configuration
// keys, the shutdown check, its hold on the module, the closed extension
// registration, and its interfaces early and late bound.
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

const GUID kUnknownId = {0x12345678, 0x1, 0x2, {1, 2, 3, 4, 5, 6, 7, 8}};

}  // namespace

TEST(RootObject, GetInfoAnswersVersionAloneEarlyAndLateBound)
{
    auto root = MakeRoot();
    vfc::TVariant version(L"Version"), result;
    ASSERT_EQ(S_OK, root->GetInfo(*version, result.get()));
    ASSERT_EQ(VT_BSTR, result->vt);
    EXPECT_STREQ(L"01.00.00.0001", result->bstrVal);  // the version block's text
    for (const wchar_t* text : {L"version", L"", L"Version ", static_cast<const wchar_t*>(nullptr)}) {
        vfc::TVariant query = text ? vfc::TVariant(text) : vfc::TVariant(5L), other(7L);
        EXPECT_EQ(S_OK, root->GetInfo(*query, other.get()));
        EXPECT_EQ(VT_EMPTY, other->vt);
    }
    vfc::TComPtr<IDispatch> dispatch;
    ASSERT_EQ(S_OK, vfc::TComPtr<IUnknown>(root->GetUnknown()).query_to(dispatch.put()));
    LPOLESTR name = const_cast<LPOLESTR>(L"GetInfo");
    DISPID id = 0;
    ASSERT_EQ(S_OK, dispatch->GetIDsOfNames(IID_NULL, &name, 1, LOCALE_USER_DEFAULT, &id));
    DISPPARAMS params = {const_cast<VARIANT*>(&*version), nullptr, 1, 0};
    vfc::TVariant late;
    ASSERT_EQ(S_OK, dispatch->Invoke(id, IID_NULL, LOCALE_USER_DEFAULT, DISPATCH_METHOD, &params, late.get(), nullptr,
                                     nullptr));
    ASSERT_EQ(VT_BSTR, late->vt);
    EXPECT_STREQ(L"01.00.00.0001", late->bstrVal);
}

TEST(RootObject, ConfigurationKeysReadAndWriteAndANewObjectStartsFromTheDefaults)
{
    auto root = MakeRoot();
    vfc::TBstr key(L"proxy/port"), value, changed(L"3128"), unknown(L"Proxy/mode");
    ASSERT_EQ(S_OK, root->GetConfigurationValue(key.get(), value.put()));
    EXPECT_EQ(L"8080", value.str());
    ASSERT_EQ(S_OK, root->SetConfigurationValue(key.get(), changed.get()));
    ASSERT_EQ(S_OK, root->GetConfigurationValue(key.get(), value.put()));
    EXPECT_EQ(L"3128", value.str());
    EXPECT_EQ(E_INVALIDARG, root->GetConfigurationValue(unknown.get(), value.put()));
    EXPECT_EQ(nullptr, value.get());
    EXPECT_EQ(E_INVALIDARG, root->SetConfigurationValue(unknown.get(), changed.get()));
    ASSERT_EQ(S_OK, MakeRoot()->GetConfigurationValue(key.get(), value.put()));
    EXPECT_EQ(L"8080", value.str());
}

TEST(RootObject, HoldsTheModuleAnswersTheShutdownCheckAndCutsTheIdleTime)
{
    const LONG before = Module().GetLockCount();
    Module().SetIdleTimeout(CVnLinkhostModule::kDefaultIdleTimeout);
    {
        auto root = MakeRoot();
        EXPECT_EQ(before + 1, Module().GetLockCount());
        EXPECT_EQ(static_cast<IVnLinkhostEventHandler*>(root.get()), Module().GetEventHandler());
        VARIANT_BOOL inUse = VARIANT_FALSE;
        ASSERT_EQ(S_OK, root->CheckShutdown(&inUse));
        EXPECT_EQ(VARIANT_TRUE, inUse);  // the caller's own object counts
        EXPECT_EQ(0u, Module().GetIdleTimeout());
    }
    EXPECT_EQ(before, Module().GetLockCount());
    EXPECT_EQ(nullptr, Module().GetEventHandler());
    Module().SetIdleTimeout(CVnLinkhostModule::kDefaultIdleTimeout);
}

TEST(RootObject, AnswersItsInterfacesAndKnowsNoExtensionsOnceConstructed)
{
    auto root = MakeRoot();
    vfc::TComPtr<IUnknown> unknown(root->GetUnknown()), extension;
    vfc::TComPtr<IDispatch> dispatch;
    vfc::TComPtr<IVnLinkhost> host;
    vfc::TComPtr<IVnStream> stream;
    EXPECT_EQ(S_OK, unknown.query_to(dispatch.put()));
    EXPECT_EQ(S_OK, unknown.query_to(host.put()));
    EXPECT_EQ(static_cast<IDispatch*>(dispatch.get()), static_cast<IDispatch*>(host.get()));
    EXPECT_EQ(E_NOINTERFACE, unknown.query_to(stream.put()));
    EXPECT_EQ(E_POINTER, root->GetExtensionInterface(&kUnknownId, extension.put()));
    EXPECT_FALSE(extension);
    EXPECT_TRUE(root->ExtensionsClosed());
    EXPECT_EQ(E_UNEXPECTED, root->AddExtensionInterface(&kUnknownId, root->GetUnknown()));
    EXPECT_EQ(E_UNEXPECTED, root->AddEventSink(nullptr));
}

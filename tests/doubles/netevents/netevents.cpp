#include "tests/doubles/netevents/netevents_standin.h"

#include <objbase.h>

#include <algorithm>
#include <cstdlib>
#include <string>
#include <vector>

#include "monitors/event_platform.h"
#include "tests/doubles/rasapi32/standin_registry.h"
#include "vfc/bstr.h"
#include "vfc/com_object.h"
#include "vfc/critical_section.h"
#include "vfc/unique_resource.h"

namespace {

using vn_netevents::kKey;

#define VN_NOTIMPL(name, ...) \
    STDMETHODIMP name(__VA_ARGS__) override { return E_NOTIMPL; }
#define VN_NODISPATCH                                                                                              \
    VN_NOTIMPL(GetTypeInfoCount, UINT*) VN_NOTIMPL(GetTypeInfo, UINT, LCID, ITypeInfo**)                          \
    VN_NOTIMPL(GetIDsOfNames, REFIID, LPOLESTR*, UINT, LCID, DISPID*)                                              \
    VN_NOTIMPL(Invoke, DISPID, REFIID, LCID, WORD, DISPPARAMS*, VARIANT*, EXCEPINFO*, UINT*)

// The texts here are ASCII.
std::string Narrow(const wchar_t* text) { return text ? std::string(text, text + ::lstrlenW(text)) : ""; }

struct TSubscription : vfc::TComObject<TSubscription, IEventSubscription> {
    STDMETHODIMP put_SubscriptionID(BSTR text) override { return m_id = Narrow(text), S_OK; }
    STDMETHODIMP put_SubscriptionName(BSTR text) override { return m_name = Narrow(text), S_OK; }
    STDMETHODIMP put_EventClassID(BSTR text) override { return m_eventClass = Narrow(text), S_OK; }
    STDMETHODIMP put_MethodName(BSTR text) override { return m_method = Narrow(text), S_OK; }
    STDMETHODIMP put_SubscriberInterface(IUnknown* subscriber) override { return m_subscriber = subscriber, S_OK; }
    STDMETHODIMP put_PerUser(BOOL perUser) override { return m_perUser = perUser, S_OK; }
    VN_NODISPATCH
    VN_NOTIMPL(get_SubscriptionID, BSTR*) VN_NOTIMPL(get_SubscriptionName, BSTR*) VN_NOTIMPL(get_PublisherID, BSTR*)
    VN_NOTIMPL(put_PublisherID, BSTR) VN_NOTIMPL(get_EventClassID, BSTR*) VN_NOTIMPL(get_MethodName, BSTR*)
    VN_NOTIMPL(get_SubscriberCLSID, BSTR*) VN_NOTIMPL(put_SubscriberCLSID, BSTR)
    VN_NOTIMPL(get_SubscriberInterface, IUnknown**) VN_NOTIMPL(get_PerUser, BOOL*) VN_NOTIMPL(get_OwnerSID, BSTR*)
    VN_NOTIMPL(put_OwnerSID, BSTR) VN_NOTIMPL(get_Enabled, BOOL*) VN_NOTIMPL(put_Enabled, BOOL)
    VN_NOTIMPL(get_Description, BSTR*) VN_NOTIMPL(put_Description, BSTR) VN_NOTIMPL(get_MachineName, BSTR*)
    VN_NOTIMPL(put_MachineName, BSTR) VN_NOTIMPL(GetPublisherProperty, BSTR, VARIANT*)
    VN_NOTIMPL(PutPublisherProperty, BSTR, VARIANT*) VN_NOTIMPL(RemovePublisherProperty, BSTR)
    VN_NOTIMPL(GetPublisherPropertyCollection, IEventObjectCollection**)
    VN_NOTIMPL(GetSubscriberProperty, BSTR, VARIANT*) VN_NOTIMPL(PutSubscriberProperty, BSTR, VARIANT*)
    VN_NOTIMPL(RemoveSubscriberProperty, BSTR) VN_NOTIMPL(GetSubscriberPropertyCollection, IEventObjectCollection**)
    VN_NOTIMPL(get_InterfaceID, BSTR*) VN_NOTIMPL(put_InterfaceID, BSTR)

    std::string m_progId, m_id, m_name, m_eventClass, m_method;  // the prog id is the one it is stored under
    vfc::TComPtr<IUnknown> m_subscriber;
    BOOL m_perUser = FALSE;
};

// What the stand-ins were given, in the process that made them.
vfc::TCriticalSection g_cs;
std::vector<vfc::TComPtr<TSubscription>> g_subscriptions;
std::vector<std::string> g_queries;
vfc::TComPtr<IWbemObjectSink> g_wmiSink;

// Writes down what the stand-ins hold; call with g_cs held.
void Publish()
{
    std::vector<std::string> rows;
    for (const auto& s : g_subscriptions)
        rows.push_back(s->m_progId + "|" + s->m_id + "|" + s->m_name + "|" + s->m_method + "|" + s->m_eventClass + "|" +
                       std::to_string(s->m_perUser));
    vn_standin::WriteList(kKey, "Subscriptions", rows);
    vn_standin::WriteList(kKey, "Queries", g_queries);
}

HRESULT Fire(const std::vector<std::string>& request)
{
    std::vector<vfc::TComPtr<IUnknown>> subscribers;
    {
        vfc::TLock lock(g_cs);
        for (const auto& s : g_subscriptions)
            if (s->m_method == request[0])
                subscribers.push_back(s->m_subscriber);
    }
    const vfc::TBstr connection(std::wstring(request[1].begin(), request[1].end()));  // a SENS event is three words
    const BSTR c = connection.get();
    const ULONG type = std::strtoul(request[2].c_str(), nullptr, 10);
    SENS_QOCINFO qoc = {sizeof qoc, 0, 0, 0};
    HRESULT hr = 0x00040202;  // EVENT_S_NOSUBSCRIBERS
    for (const auto& subscriber : subscribers) {
        vfc::TComPtr<ISensNetwork> sens;
        if (FAILED(hr = subscriber.query_to(sens.put())))
            break;
        const std::string& m = request[0];
        hr = m == "ConnectionMade"            ? sens->ConnectionMade(c, type, &qoc)
             : m == "ConnectionMadeNoQOCInfo" ? sens->ConnectionMadeNoQOCInfo(c, type)
             : m == "ConnectionLost"          ? sens->ConnectionLost(c, type)
             : m == "DestinationReachable"    ? sens->DestinationReachable(c, c, type, &qoc)
                                              : sens->DestinationReachableNoQOCInfo(c, c, type);
        if (FAILED(hr))
            break;
    }
    return hr;
}

// An event object of WMI that knows only its class.
struct TEvent : vfc::TComObject<TEvent, IWbemClassObject> {
    explicit TEvent(const std::string& name) : m_class(name.begin(), name.end()) {}
    STDMETHODIMP Get(LPCWSTR name, LONG, VARIANT* value, CIMTYPE*, LONG*) override
    {
        if (::lstrcmpW(name, L"__CLASS") != 0)
            return HRESULT(WBEM_E_NOT_FOUND);
        value->vt = VT_BSTR;
        value->bstrVal = ::SysAllocString(m_class.c_str());
        return S_OK;
    }
    VN_NOTIMPL(GetQualifierSet, IWbemQualifierSet**) VN_NOTIMPL(Put, LPCWSTR, LONG, VARIANT*, CIMTYPE)
    VN_NOTIMPL(Delete, LPCWSTR) VN_NOTIMPL(GetNames, LPCWSTR, LONG, VARIANT*, SAFEARRAY**)
    VN_NOTIMPL(BeginEnumeration, LONG) VN_NOTIMPL(Next, LONG, BSTR*, VARIANT*, CIMTYPE*, LONG*)
    VN_NOTIMPL(EndEnumeration) VN_NOTIMPL(GetPropertyQualifierSet, LPCWSTR, IWbemQualifierSet**)
    VN_NOTIMPL(Clone, IWbemClassObject**) VN_NOTIMPL(GetObjectText, LONG, BSTR*)
    VN_NOTIMPL(SpawnDerivedClass, LONG, IWbemClassObject**) VN_NOTIMPL(SpawnInstance, LONG, IWbemClassObject**)
    VN_NOTIMPL(CompareTo, LONG, IWbemClassObject*) VN_NOTIMPL(GetPropertyOrigin, LPCWSTR, BSTR*)
    VN_NOTIMPL(InheritsFrom, LPCWSTR) VN_NOTIMPL(GetMethod, LPCWSTR, LONG, IWbemClassObject**, IWbemClassObject**)
    VN_NOTIMPL(PutMethod, LPCWSTR, LONG, IWbemClassObject*, IWbemClassObject*) VN_NOTIMPL(DeleteMethod, LPCWSTR)
    VN_NOTIMPL(BeginMethodEnumeration, LONG) VN_NOTIMPL(EndMethodEnumeration)
    VN_NOTIMPL(NextMethod, LONG, BSTR*, IWbemClassObject**, IWbemClassObject**)
    VN_NOTIMPL(GetMethodQualifierSet, LPCWSTR, IWbemQualifierSet**) VN_NOTIMPL(GetMethodOrigin, LPCWSTR, BSTR*)

    std::wstring m_class;
};

HRESULT Indicate(const std::vector<std::string>& request)
{
    vfc::TComPtr<IWbemObjectSink> sink;
    {
        vfc::TLock lock(g_cs);
        sink = g_wmiSink;
    }
    std::vector<vfc::TComPtr<TEvent>> events(request.size() - 1);
    std::vector<IWbemClassObject*> objects;
    for (size_t i = 0; i < events.size(); ++i) {
        vfc::CreateInto(events[i], request[i + 1]);
        objects.push_back(events[i].get());
    }
    return sink ? sink->Indicate(static_cast<LONG>(objects.size()), objects.data()) : HRESULT(WBEM_E_CALL_CANCELLED);
}

// Raises what a test asks for, on a thread of the stand-ins that lives as long as the process.
DWORD WINAPI Raiser(LPVOID)
{
    ::CoInitializeEx(nullptr, COINIT_MULTITHREADED);
    const vfc::THandle raise(::CreateEventA(nullptr, FALSE, FALSE, vn_netevents::kRaise));
    const vfc::THandle raised(::CreateEventA(nullptr, FALSE, FALSE, vn_netevents::kRaised));
    while (::WaitForSingleObject(raise.get(), INFINITE) == WAIT_OBJECT_0) {
        const auto request = vn_standin::ReadList(kKey, "Raise");
        const HRESULT hr = request.empty() ? E_INVALIDARG : request[0] == "Indicate" ? Indicate(request) : Fire(request);
        vn_standin::WriteDword(kKey, "Result", static_cast<DWORD>(hr));
        ::SetEvent(raised.get());
    }
    return 0;
}

struct TEventSystem : vfc::TComObject<TEventSystem, IEventSystem> {
    // A subscription of the same id replaces the stored one.
    STDMETHODIMP Store(BSTR progId, IUnknown* object) override
    {
        auto* s = dynamic_cast<TSubscription*>(object);
        if (!s)
            return E_INVALIDARG;
        vfc::TLock lock(g_cs);
        Remove(s->m_id);
        s->m_progId = Narrow(progId);
        g_subscriptions.emplace_back(s);
        Publish();
        return S_OK;
    }
    // Only the criteria "SubscriptionID=<id>" are understood.
    STDMETHODIMP Remove(BSTR progId, BSTR criteria, int*) override
    {
        const std::wstring text(criteria ? criteria : L""), prefix(L"SubscriptionID=");
        if (::lstrcmpW(progId, vn_events::kProgIdEventSubscription) != 0 || text.compare(0, prefix.size(), prefix) != 0)
            return E_INVALIDARG;
        vfc::TLock lock(g_cs);
        Remove(Narrow(text.substr(prefix.size()).c_str()));
        Publish();
        return S_OK;
    }
    static void Remove(const std::string& id)
    {
        g_subscriptions.erase(std::remove_if(g_subscriptions.begin(), g_subscriptions.end(), [&](auto& s) { return s->m_id == id; }),
                              g_subscriptions.end());
    }
    VN_NODISPATCH
    VN_NOTIMPL(Query, BSTR, BSTR, int*, IUnknown**) VN_NOTIMPL(get_EventObjectChangeEventClassID, BSTR*)
    VN_NOTIMPL(QueryS, BSTR, BSTR, IUnknown**) VN_NOTIMPL(RemoveS, BSTR, BSTR)
};

// WMI in one object: the locator, the namespace it connects to, and the unsecured apartment, whose stub is the object
// itself since in one process there is nothing to secure.
struct TWmi : vfc::TComObject<TWmi, IWbemLocator, IWbemServices, IClientSecurity, IUnsecuredApartment> {
    STDMETHODIMP ConnectServer(const BSTR resource, const BSTR, const BSTR, const BSTR, LONG, const BSTR, IWbemContext*,
                               IWbemServices** services) override
    {
        m_namespace = Narrow(resource);
        return QueryInterface(__uuidof(IWbemServices), reinterpret_cast<void**>(services));
    }
    STDMETHODIMP CreateObjectStub(IUnknown* object, IUnknown** stub) override
    {
        return object ? object->QueryInterface(IID_IUnknown, reinterpret_cast<void**>(stub)) : E_POINTER;
    }
    // All queries of one process go to one sink.
    STDMETHODIMP ExecNotificationQueryAsync(const BSTR language, const BSTR query, LONG flags, IWbemContext*,
                                            IWbemObjectSink* sink) override
    {
        vfc::TLock lock(g_cs);
        g_wmiSink = sink;
        g_queries.push_back(m_namespace + "|" + Narrow(language) + "|" + Narrow(query) + "|" + std::to_string(flags));
        Publish();
        return S_OK;
    }
    STDMETHODIMP CancelAsyncCall(IWbemObjectSink* sink) override
    {
        vfc::TLock lock(g_cs);
        if (sink != g_wmiSink.get())
            return HRESULT(WBEM_E_NOT_FOUND);
        g_wmiSink.reset();
        g_queries.clear();
        Publish();
        return S_OK;
    }
    STDMETHODIMP SetBlanket(IUnknown*, DWORD, DWORD, OLECHAR*, DWORD, DWORD, void*, DWORD) override { return S_OK; }
    VN_NOTIMPL(QueryBlanket, IUnknown*, DWORD*, DWORD*, OLECHAR**, DWORD*, DWORD*, void**, DWORD*)
    VN_NOTIMPL(CopyProxy, IUnknown*, IUnknown**) VN_NOTIMPL(QueryObjectSink, LONG, IWbemObjectSink**)
    VN_NOTIMPL(OpenNamespace, const BSTR, LONG, IWbemContext*, IWbemServices**, IWbemCallResult**)
    VN_NOTIMPL(GetObject, const BSTR, LONG, IWbemContext*, IWbemClassObject**, IWbemCallResult**)
    VN_NOTIMPL(GetObjectAsync, const BSTR, LONG, IWbemContext*, IWbemObjectSink*)
    VN_NOTIMPL(PutClass, IWbemClassObject*, LONG, IWbemContext*, IWbemCallResult**)
    VN_NOTIMPL(PutClassAsync, IWbemClassObject*, LONG, IWbemContext*, IWbemObjectSink*)
    VN_NOTIMPL(DeleteClass, const BSTR, LONG, IWbemContext*, IWbemCallResult**)
    VN_NOTIMPL(DeleteClassAsync, const BSTR, LONG, IWbemContext*, IWbemObjectSink*)
    VN_NOTIMPL(CreateClassEnum, const BSTR, LONG, IWbemContext*, IEnumWbemClassObject**)
    VN_NOTIMPL(CreateClassEnumAsync, const BSTR, LONG, IWbemContext*, IWbemObjectSink*)
    VN_NOTIMPL(PutInstance, IWbemClassObject*, LONG, IWbemContext*, IWbemCallResult**)
    VN_NOTIMPL(PutInstanceAsync, IWbemClassObject*, LONG, IWbemContext*, IWbemObjectSink*)
    VN_NOTIMPL(DeleteInstance, const BSTR, LONG, IWbemContext*, IWbemCallResult**)
    VN_NOTIMPL(DeleteInstanceAsync, const BSTR, LONG, IWbemContext*, IWbemObjectSink*)
    VN_NOTIMPL(CreateInstanceEnum, const BSTR, LONG, IWbemContext*, IEnumWbemClassObject**)
    VN_NOTIMPL(CreateInstanceEnumAsync, const BSTR, LONG, IWbemContext*, IWbemObjectSink*)
    VN_NOTIMPL(ExecQuery, const BSTR, const BSTR, LONG, IWbemContext*, IEnumWbemClassObject**)
    VN_NOTIMPL(ExecQueryAsync, const BSTR, const BSTR, LONG, IWbemContext*, IWbemObjectSink*)
    VN_NOTIMPL(ExecNotificationQuery, const BSTR, const BSTR, LONG, IWbemContext*, IEnumWbemClassObject**)
    VN_NOTIMPL(ExecMethod, const BSTR, const BSTR, LONG, IWbemContext*, IWbemClassObject*, IWbemClassObject**, IWbemCallResult**)
    VN_NOTIMPL(ExecMethodAsync, const BSTR, const BSTR, LONG, IWbemContext*, IWbemClassObject*, IWbemObjectSink*)

    std::string m_namespace;
};

// A new object of class T, asked for `iid`.
template <typename T>
HRESULT Create(REFIID iid, void** ppv)
{
    vfc::TComPtr<T> object;
    const HRESULT hr = vfc::CreateInto(object);
    return SUCCEEDED(hr) ? object->QueryInterface(iid, ppv) : hr;
}

template <typename T>
struct TFactory : vfc::TComObject<TFactory<T>, IClassFactory> {
    STDMETHODIMP CreateInstance(IUnknown* outer, REFIID iid, void** ppv) override { return outer ? CLASS_E_NOAGGREGATION : Create<T>(iid, ppv); }
    STDMETHODIMP LockServer(BOOL) override { return S_OK; }
};

}  // namespace

extern "C" HRESULT WINAPI DllGetClassObject(REFCLSID clsid, REFIID iid, void** ppv)
{
    static const vfc::THandle raiser(::CreateThread(nullptr, 0, Raiser, nullptr, 0, nullptr));
    return clsid == vn_events::kClsidEventSystem         ? Create<TFactory<TEventSystem>>(iid, ppv)
           : clsid == vn_events::kClsidEventSubscription ? Create<TFactory<TSubscription>>(iid, ppv)
           : clsid == CLSID_UnsecuredApartment || clsid == vn_netevents::kClsidLocator ? Create<TFactory<TWmi>>(iid, ppv)
                                                         : CLASS_E_CLASSNOTAVAILABLE;
}

// Stays loaded: the raiser thread runs in it.
extern "C" HRESULT WINAPI DllCanUnloadNow() { return S_FALSE; }

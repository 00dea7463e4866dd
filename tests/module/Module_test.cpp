// The module as a host meets it: loaded with dlopen only, registered into a
// scratch registry, and driven through its interface tables. The test
// program links the system statically as every test does, which is the
// hard case for the module: none of its code may bind to the copies here.
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

#include "shell/DispatchTable.h"
#include "support/WavFiles.h"
#include "tempvox/host.h"

namespace fs = std::filesystem;

namespace {

const std::string kModulePath = std::string(TEMPVOX_BINARY_DIR) + "/libtempvox.so";

std::string GuidKey(const char* folder, const TempvoxGuid& guid)
{
    char text[39];
    TempvoxGuidToString(&guid, text);
    return std::string(folder) + text;
}
std::string ClassKey(const TempvoxGuid& clsid) { return GuidKey("CLSID/", clsid); }
std::string TypeLibKey() { return GuidKey("TypeLib/", TEMPVOX_LIBID_TEMPVOXLib); }

std::string Value(const std::string& key, const char* name = "@")
{
    char value[4096];
    return TempvoxRegistryRead(key.c_str(), name, value, sizeof value) ? value : "<absent>";
}

TempvoxVariant I2(int16_t value) { TempvoxVariant v{}; v.vt = TEMPVOX_VT_I2; v.iVal = value; return v; }
TempvoxVariant I4(int32_t value) { TempvoxVariant v{}; v.vt = TEMPVOX_VT_I4; v.lVal = value; return v; }
TempvoxVariant Str(const char* text)
{
    TempvoxVariant v{};
    v.vt = TEMPVOX_VT_BSTR;
    v.bstrVal = const_cast<char*>(text);
    return v;
}

struct Fired {
    int32_t id;
    std::vector<TempvoxVariant> args;  // as delivered: last argument first
};

struct EventLog {
    std::vector<Fired> events;
    int32_t releaseOn = 1;
    std::vector<ITempvoxUnknown*> releaseOnEvent;

    static void OnEvent(void* context, int32_t dispid, const TempvoxDispParams* params)
    {
        auto* log = static_cast<EventLog*>(context);
        log->events.push_back({dispid, std::vector<TempvoxVariant>(params->rgvarg, params->rgvarg + params->cArgs)});
        if (dispid != log->releaseOn) return;
        for (ITempvoxUnknown* object : log->releaseOnEvent) object->lpVtbl->Release(object);
        log->releaseOnEvent.clear();
    }
    int Count(int32_t id) const
    {
        int count = 0;
        for (const Fired& fired : events) count += fired.id == id ? 1 : 0;
        return count;
    }
};

class ModuleTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        char pattern[] = "/tmp/tempvox-module-XXXXXX";
        ASSERT_NE(mkdtemp(pattern), nullptr);
        m_scratch = pattern;
        m_savedData = std::getenv("XDG_DATA_HOME") != nullptr ? std::getenv("XDG_DATA_HOME") : "";
        setenv("XDG_DATA_HOME", (m_scratch + "/data").c_str(), 1);
        m_module = dlopen(kModulePath.c_str(), RTLD_NOW | RTLD_LOCAL);
        ASSERT_NE(m_module, nullptr) << dlerror();
        m_register = reinterpret_cast<TempvoxDllRegisterServerFn>(dlsym(m_module, "DllRegisterServer"));
        m_unregister = reinterpret_cast<TempvoxDllUnregisterServerFn>(dlsym(m_module, "DllUnregisterServer"));
        m_getClassObject = reinterpret_cast<TempvoxDllGetClassObjectFn>(dlsym(m_module, "DllGetClassObject"));
        m_canUnloadNow = reinterpret_cast<TempvoxDllCanUnloadNowFn>(dlsym(m_module, "DllCanUnloadNow"));
        ASSERT_TRUE(m_register && m_unregister && m_getClassObject && m_canUnloadNow);
    }

    void TearDown() override
    {
        if (m_module != nullptr) dlclose(m_module);
        if (m_savedData.empty()) {
            unsetenv("XDG_DATA_HOME");
        } else {
            setenv("XDG_DATA_HOME", m_savedData.c_str(), 1);
        }
        std::error_code ignored;
        fs::remove_all(m_scratch, ignored);
    }

    std::string RegistryRoot() const { return m_scratch + "/data/tempvox/registry"; }

    // Files with values left anywhere in the registry.
    std::vector<std::string> ValueFiles() const
    {
        std::vector<std::string> files;
        std::error_code error;
        if (!fs::exists(RegistryRoot(), error)) return files;
        for (const auto& entry : fs::recursive_directory_iterator(RegistryRoot(), error)) {
            if (entry.is_regular_file()) files.push_back(fs::relative(entry.path(), RegistryRoot()).string());
        }
        return files;
    }

    ITempvoxDispatch* NewControl()
    {
        ITempvoxClassFactory* factory = nullptr;
        EXPECT_EQ(m_getClassObject(&TEMPVOX_CLSID_Tempvox, &TEMPVOX_IID_ClassFactory, reinterpret_cast<void**>(&factory)),
                  TEMPVOX_S_OK);
        if (factory == nullptr) return nullptr;
        ITempvoxDispatch* control = nullptr;
        EXPECT_EQ(factory->lpVtbl->CreateInstance(factory, nullptr, &TEMPVOX_IID_Dispatch,
                                                  reinterpret_cast<void**>(&control)),
                  TEMPVOX_S_OK);
        factory->lpVtbl->Release(factory);
        return control;
    }

    template <class Interface>
    Interface* Query(ITempvoxDispatch* control, const TempvoxGuid& iid)
    {
        void* object = nullptr;
        EXPECT_EQ(control->lpVtbl->QueryInterface(control, &iid, &object), TEMPVOX_S_OK);
        return static_cast<Interface*>(object);
    }

    // `args` in the order the member names them.
    TVHRESULT Call(ITempvoxDispatch* control, int32_t id, std::vector<TempvoxVariant> args, TempvoxVariant* result,
                   uint16_t flags = TEMPVOX_DISPATCH_METHOD, uint32_t* argErr = nullptr)
    {
        std::vector<TempvoxVariant> reversed(args.rbegin(), args.rend());
        int32_t putId = TEMPVOX_DISPID_PROPERTYPUT;
        TempvoxDispParams params{reversed.data(), flags == TEMPVOX_DISPATCH_PROPERTYPUT ? &putId : nullptr,
                                 static_cast<uint32_t>(reversed.size()),
                                 flags == TEMPVOX_DISPATCH_PROPERTYPUT ? 1u : 0u};
        TempvoxExcepInfo failure{};
        return control->lpVtbl->Invoke(control, id, &TEMPVOX_IID_Unknown, 0, flags, &params, result, &failure, argErr);
    }

    std::string SpeechFile(size_t blocks)
    {
        std::string data(blocks * 4410, '\0');
        for (size_t i = 0; i < data.size(); ++i) data[i] = static_cast<char>((i * 37) % 251);
        std::string path = m_scratch + "/speech.wav";
        std::ofstream(path, std::ios::binary) << testwav::CanonicalWav(testwav::Format{1, 1, 22050, 16}, data);
        return path;
    }

    std::string m_scratch;
    std::string m_savedData;
    void* m_module = nullptr;
    TempvoxDllRegisterServerFn m_register = nullptr;
    TempvoxDllUnregisterServerFn m_unregister = nullptr;
    TempvoxDllGetClassObjectFn m_getClassObject = nullptr;
    TempvoxDllCanUnloadNowFn m_canUnloadNow = nullptr;
};

TEST_F(ModuleTest, RegistersCreatesByProgIdPlaysToTheEndAndUnregisters)
{
    ASSERT_EQ(m_register(), TEMPVOX_S_OK);
    const std::string control = ClassKey(TEMPVOX_CLSID_Tempvox);
    EXPECT_EQ(Value(control + "/InprocServer32"), fs::canonical(kModulePath).string());
    EXPECT_EQ(Value(control + "/InprocServer32", "ThreadingModel"), "Apartment");
    EXPECT_EQ(Value(control + "/MiscStatus/1"), "131473");
    EXPECT_EQ(Value(control + "/ProgID"), TEMPVOX_PROGID_CONTROL);
    EXPECT_EQ(Value(control), "Tempvox Control");
    EXPECT_EQ(Value(std::string(TEMPVOX_PROGID_CONTROL) + "/CLSID"), control.substr(6));
    EXPECT_EQ(Value(ClassKey(TEMPVOX_CLSID_TempvoxPropPage)), "Tempvox Property Page");
    EXPECT_EQ(Value(TypeLibKey() + "/1.0/409/linux64"), fs::canonical(kModulePath).string());

    TempvoxActivation activation;
    ASSERT_EQ(TempvoxCreateControl(TEMPVOX_PROGID_CONTROL, &activation), TEMPVOX_S_OK);
    ITempvoxDispatch* ctl = activation.control;
    auto* services = Query<ITempvoxHostServices>(ctl, TEMPVOX_IID_HostServices);
    auto* connection = Query<ITempvoxConnectionPoint>(ctl, TEMPVOX_IID_ConnectionPoint);
    ASSERT_TRUE(services && connection);
    EventLog log;
    TempvoxEventSink sink{&EventLog::OnEvent, &log};
    uint32_t cookie = 0;
    ASSERT_EQ(connection->lpVtbl->Advise(connection, &sink, &cookie), TEMPVOX_S_OK);

    TempvoxVariant result{};
    ASSERT_EQ(Call(ctl, 5, {}, &result), TEMPVOX_S_OK);
    EXPECT_EQ(result.vt, TEMPVOX_VT_I4);
    EXPECT_EQ(result.lVal, 100);
    ASSERT_EQ(Call(ctl, 34, {I2(2)}, nullptr, TEMPVOX_DISPATCH_PROPERTYPUT), TEMPVOX_S_OK);
    ASSERT_EQ(Call(ctl, 34, {}, &result, TEMPVOX_DISPATCH_PROPERTYGET), TEMPVOX_S_OK);
    EXPECT_EQ(result.vt, TEMPVOX_VT_I2);
    EXPECT_EQ(result.iVal, 2);

    ASSERT_EQ(services->lpVtbl->SetAudioDevice(services, "manual"), TEMPVOX_S_OK);
    const std::string file = SpeechFile(6);
    ASSERT_EQ(Call(ctl, 15, {Str(nullptr), I2(-1), Str(file.c_str())}, &result), TEMPVOX_S_OK);
    EXPECT_EQ(result.boolVal, 1);
    ASSERT_EQ(Call(ctl, 16, {}, &result), TEMPVOX_S_OK);
    ASSERT_EQ(result.vt, TEMPVOX_VT_BSTR);
    EXPECT_EQ(std::string(result.bstrVal), file);
    TempvoxVariantClear(&result);

    ASSERT_EQ(Call(ctl, 1, {}, &result), TEMPVOX_S_OK);
    EXPECT_EQ(result.boolVal, 1);
    EXPECT_EQ(services->lpVtbl->QueuedBuffers(services), 4u);
    // The first ten seconds are counted while play starts.
    ASSERT_GE(log.Count(2), 1);
    EXPECT_EQ(log.events.front().args.size(), 2u);
    EXPECT_EQ(log.events.front().args[0].lVal, 10000);  // timeLen, the last argument

    uint32_t stepped = 0;
    for (int i = 0; i < 40 && log.Count(1) == 0; ++i) {
        ASSERT_EQ(services->lpVtbl->StepDevice(services, 1, &stepped), TEMPVOX_S_OK);
    }
    EXPECT_EQ(log.Count(1), 1);
    ASSERT_EQ(Call(ctl, 14, {}, nullptr), TEMPVOX_S_OK);
    ASSERT_EQ(Call(ctl, 8, {}, &result), TEMPVOX_S_OK);
    EXPECT_EQ(result.iVal, 0);

    EXPECT_EQ(connection->lpVtbl->Unadvise(connection, cookie), TEMPVOX_S_OK);
    EXPECT_EQ(connection->lpVtbl->Unadvise(connection, cookie), TEMPVOX_CONNECT_E_NOCONNECTION);
    connection->lpVtbl->Release(connection);
    services->lpVtbl->Release(services);
    TempvoxDestroyControl(&activation);
    EXPECT_EQ(m_canUnloadNow(), TEMPVOX_S_OK);

    ASSERT_EQ(m_unregister(), TEMPVOX_S_OK);
    EXPECT_EQ(ValueFiles(), std::vector<std::string>{});
    TempvoxActivation none;
    for (const char* name : {TEMPVOX_PROGID_CONTROL, "..", "../CLSID", "{B7CA8608-6E21-40F3-860A-EC1D951A0686}"}) {
        EXPECT_EQ(TempvoxCreateControl(name, &none), TEMPVOX_REGDB_E_CLASSNOTREG) << name;
        EXPECT_EQ(none.module, nullptr);
    }
}

TEST_F(ModuleTest, RegistrationStopsAtTheFirstFailure)
{
    const std::string root = RegistryRoot();
    auto blockKey = [&](const std::string& name) {
        fs::create_directories(root);
        std::ofstream(root + "/" + name) << "not a key";
    };
    auto removeKey = [&](const std::string& key) { fs::remove_all(root + "/" + key); };
    struct Case {
        const char* name;
        std::function<void()> prepare;
        bool unregister;
        TVHRESULT expected;
        bool typeLibLeft;
        bool classLeft;
    };
    const std::vector<Case> cases = {
        {"type library refused", [&] { blockKey("TypeLib"); }, false, TEMPVOX_SELFREG_E_TYPELIB, false, false},
        {"class refused", [&] { blockKey("CLSID"); }, false, TEMPVOX_SELFREG_E_CLASS, true, false},
        {"ProgID refused", [&] { blockKey(TEMPVOX_PROGID_CONTROL); }, false, TEMPVOX_SELFREG_E_CLASS, true, true},
        {"nothing to unregister", [] {}, true, TEMPVOX_SELFREG_E_TYPELIB, false, false},
        {"class gone before unregistering",
         [&] {
             ASSERT_EQ(m_register(), TEMPVOX_S_OK);
             removeKey(ClassKey(TEMPVOX_CLSID_Tempvox));
         },
         true, TEMPVOX_SELFREG_E_CLASS, false, false},
        {"type library gone before unregistering",
         [&] {
             ASSERT_EQ(m_register(), TEMPVOX_S_OK);
             removeKey(TypeLibKey());
         },
         true, TEMPVOX_SELFREG_E_TYPELIB, false, true},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        fs::remove_all(root);
        c.prepare();
        EXPECT_EQ(c.unregister ? m_unregister() : m_register(), c.expected);
        EXPECT_EQ(fs::exists(root + "/" + TypeLibKey() + "/1.0"), c.typeLibLeft);
        EXPECT_EQ(fs::is_directory(root + "/" + ClassKey(TEMPVOX_CLSID_Tempvox)), c.classLeft);
    }
}

TEST_F(ModuleTest, ModuleStaysWhileObjectsOrLocksRemain)
{
    EXPECT_EQ(m_canUnloadNow(), TEMPVOX_S_OK);
    ITempvoxClassFactory* factory = nullptr;
    ASSERT_EQ(m_getClassObject(&TEMPVOX_CLSID_Tempvox, &TEMPVOX_IID_ClassFactory, reinterpret_cast<void**>(&factory)),
              TEMPVOX_S_OK);
    EXPECT_EQ(m_canUnloadNow(), TEMPVOX_S_FALSE);
    factory->lpVtbl->LockServer(factory, 1);
    factory->lpVtbl->Release(factory);
    EXPECT_EQ(m_canUnloadNow(), TEMPVOX_S_FALSE);
    ASSERT_EQ(m_getClassObject(&TEMPVOX_CLSID_Tempvox, &TEMPVOX_IID_ClassFactory, reinterpret_cast<void**>(&factory)),
              TEMPVOX_S_OK);
    factory->lpVtbl->LockServer(factory, 0);
    factory->lpVtbl->Release(factory);
    EXPECT_EQ(m_canUnloadNow(), TEMPVOX_S_OK);

    void* object = reinterpret_cast<void*>(1);
    const TempvoxGuid unknownClass = {1, 2, 3, {4, 5, 6, 7, 8, 9, 10, 11}};
    EXPECT_EQ(m_getClassObject(&unknownClass, &TEMPVOX_IID_ClassFactory, &object), TEMPVOX_CLASS_E_CLASSNOTAVAILABLE);
    EXPECT_EQ(object, nullptr);
    EXPECT_EQ(m_getClassObject(&TEMPVOX_CLSID_Tempvox, &TEMPVOX_IID_OleControl, &object), TEMPVOX_E_NOINTERFACE);
    EXPECT_EQ(m_canUnloadNow(), TEMPVOX_S_OK);
}

TEST_F(ModuleTest, DispatchAnswersFaultsOfTheCall)
{
    ITempvoxDispatch* ctl = NewControl();
    ASSERT_NE(ctl, nullptr);
    struct Case {
        const char* name;
        int32_t id;
        std::vector<TempvoxVariant> args;
        uint16_t flags;
        TVHRESULT expected;
        int32_t argErr;  // -1: not set
    };
    const std::vector<Case> cases = {
        {"unknown member", 99, {}, TEMPVOX_DISPATCH_METHOD, TEMPVOX_DISP_E_MEMBERNOTFOUND, -1},
        {"too few", 10, {}, TEMPVOX_DISPATCH_METHOD, TEMPVOX_DISP_E_BADPARAMCOUNT, -1},
        {"string for long", 10, {Str("5")}, TEMPVOX_DISPATCH_METHOD, TEMPVOX_DISP_E_TYPEMISMATCH, 0},
        // httpPort_id is the middle one of three: index 1 from either end.
        {"long too big for short", 15, {Str(nullptr), I4(70000), Str("x")}, TEMPVOX_DISPATCH_METHOD,
         TEMPVOX_DISP_E_OVERFLOW, 1},
        {"number for string", 15, {I4(1), I2(-1), Str("x")}, TEMPVOX_DISPATCH_METHOD, TEMPVOX_DISP_E_TYPEMISMATCH, 2},
        {"property called as method", 34, {}, TEMPVOX_DISPATCH_METHOD, TEMPVOX_DISP_E_MEMBERNOTFOUND, -1},
        {"method read as property", 5, {}, TEMPVOX_DISPATCH_PROPERTYGET, TEMPVOX_DISP_E_MEMBERNOTFOUND, -1},
        {"long widened to float", 30, {I4(3)}, TEMPVOX_DISPATCH_METHOD, TEMPVOX_S_OK, -1},
        {"short widened to long", 4, {I2(50)}, TEMPVOX_DISPATCH_METHOD, TEMPVOX_S_OK, -1},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        uint32_t argErr = UINT32_MAX;
        TempvoxVariant result{};
        EXPECT_EQ(Call(ctl, c.id, c.args, &result, c.flags, &argErr), c.expected);
        EXPECT_EQ(argErr, c.argErr < 0 ? UINT32_MAX : static_cast<uint32_t>(c.argErr));
    }
    TempvoxVariant volume{};
    ASSERT_EQ(Call(ctl, 5, {}, &volume), TEMPVOX_S_OK);
    EXPECT_EQ(volume.lVal, 50);

    // A named argument is only the value of a property put.
    TempvoxVariant arg = I4(10);
    int32_t named = 0;
    TempvoxDispParams params{&arg, &named, 1, 1};
    EXPECT_EQ(ctl->lpVtbl->Invoke(ctl, 4, &TEMPVOX_IID_Unknown, 0, TEMPVOX_DISPATCH_METHOD, &params, nullptr, nullptr,
                                  nullptr),
              TEMPVOX_DISP_E_NONAMEDARGS);

    const char* names[] = {"setplayfilepath", "strFilePath", "nonsense"};
    int32_t ids[3] = {};
    EXPECT_EQ(ctl->lpVtbl->GetIDsOfNames(ctl, &TEMPVOX_IID_Unknown, names, 2, 0, ids), TEMPVOX_S_OK);
    EXPECT_EQ(ids[0], 15);
    EXPECT_EQ(ids[1], 2);
    EXPECT_EQ(ctl->lpVtbl->GetIDsOfNames(ctl, &TEMPVOX_IID_Unknown, names, 3, 0, ids), TEMPVOX_DISP_E_UNKNOWNNAME);
    EXPECT_EQ(ids[2], TEMPVOX_DISPID_UNKNOWN);
    ctl->lpVtbl->Release(ctl);
}

TEST_F(ModuleTest, TypeInformationFollowsTheMemberTable)
{
    ITempvoxDispatch* ctl = NewControl();
    ASSERT_NE(ctl, nullptr);
    uint32_t count = 0;
    ASSERT_EQ(ctl->lpVtbl->GetTypeInfoCount(ctl, &count), TEMPVOX_S_OK);
    EXPECT_EQ(count, 1u);
    ITempvoxTypeInfo* info = nullptr;
    EXPECT_EQ(ctl->lpVtbl->GetTypeInfo(ctl, 1, 0, &info), TEMPVOX_DISP_E_BADINDEX);
    ASSERT_EQ(ctl->lpVtbl->GetTypeInfo(ctl, 0, 0, &info), TEMPVOX_S_OK);
    TempvoxGuid guid{};
    info->lpVtbl->GetGuid(info, &guid);
    EXPECT_TRUE(TempvoxGuidEqual(&guid, &TEMPVOX_DIID_DTempvox));
    ASSERT_EQ(info->lpVtbl->GetFuncCount(info, &count), TEMPVOX_S_OK);
    ASSERT_EQ(count, ControlMembers().size());
    for (uint32_t i = 0; i < count; ++i) {
        TempvoxFuncDesc desc{};
        ASSERT_EQ(info->lpVtbl->GetFuncDesc(info, i, &desc), TEMPVOX_S_OK);
        const MemberInfo& member = ControlMembers()[i];
        SCOPED_TRACE(member.name);
        EXPECT_EQ(desc.memid, member.id);
        EXPECT_STREQ(desc.name, member.name);
        ASSERT_EQ(desc.paramCount, member.params.size());
        for (uint32_t p = 0; p < desc.paramCount; ++p) EXPECT_STREQ(desc.paramNames[p], member.params[p].name);
        EXPECT_EQ(desc.invkind, member.isProperty ? 6 : 1);
    }
    TempvoxFuncDesc desc{};
    EXPECT_EQ(info->lpVtbl->GetFuncDesc(info, count, &desc), TEMPVOX_DISP_E_BADINDEX);
    info->lpVtbl->Release(info);

    auto* connection = Query<ITempvoxConnectionPoint>(ctl, TEMPVOX_IID_ConnectionPoint);
    ASSERT_EQ(connection->lpVtbl->GetEventTypeInfo(connection, &info), TEMPVOX_S_OK);
    ASSERT_EQ(info->lpVtbl->GetFuncDesc(info, 1, &desc), TEMPVOX_S_OK);
    EXPECT_STREQ(desc.name, "CountWordFire");
    ASSERT_EQ(desc.paramCount, 2u);
    EXPECT_EQ(desc.paramTypes[1], TEMPVOX_VT_I4);
    connection->lpVtbl->GetConnectionInterface(connection, &guid);
    EXPECT_TRUE(TempvoxGuidEqual(&guid, &TEMPVOX_DIID_DTempvoxEvents));
    info->lpVtbl->Release(info);
    connection->lpVtbl->Release(connection);
    ctl->lpVtbl->Release(ctl);
    EXPECT_EQ(m_canUnloadNow(), TEMPVOX_S_OK);
}

TEST_F(ModuleTest, ControlAsEmbeddedObject)
{
    ITempvoxDispatch* first = NewControl();
    ASSERT_NE(first, nullptr);
    auto* ole = Query<ITempvoxOleControl>(first, TEMPVOX_IID_OleControl);
    uint32_t value = 0;
    ole->lpVtbl->GetMiscStatus(ole, 1, &value);
    EXPECT_EQ(value, 0x20191u);
    ole->lpVtbl->GetControlFlags(ole, &value);
    EXPECT_EQ(value, 0xFFFFFFEFu);
    TempvoxGuid ids[2] = {};
    ASSERT_EQ(ole->lpVtbl->GetPropertyPages(ole, ids, 2, &value), TEMPVOX_S_OK);
    ASSERT_EQ(value, 1u);
    EXPECT_TRUE(TempvoxGuidEqual(&ids[0], &TEMPVOX_CLSID_TempvoxPropPage));
    ole->lpVtbl->GetClassID(ole, &ids[0]);
    EXPECT_TRUE(TempvoxGuidEqual(&ids[0], &TEMPVOX_CLSID_Tempvox));
    EXPECT_EQ(ole->lpVtbl->DoVerb(ole, TEMPVOX_OLEIVERB_PROPERTIES), TEMPVOX_S_OK);
    EXPECT_EQ(ole->lpVtbl->DoVerb(ole, 0), TEMPVOX_OLEOBJ_S_INVALIDVERB);

    int32_t visible = -1;
    ole->lpVtbl->ShowWindow(ole, 1);
    ole->lpVtbl->IsWindowVisible(ole, &visible);
    EXPECT_EQ(visible, 1);
    ole->lpVtbl->Draw(ole);
    ole->lpVtbl->IsWindowVisible(ole, &visible);
    EXPECT_EQ(visible, 0);

    // Language 3 is set and the control stored: a control loaded from that
    // comes back with the constructor's language, 1.
    EXPECT_EQ(ole->lpVtbl->IsDirty(ole), TEMPVOX_S_FALSE);
    ASSERT_EQ(Call(first, 34, {I2(3)}, nullptr, TEMPVOX_DISPATCH_PROPERTYPUT), TEMPVOX_S_OK);
    EXPECT_EQ(ole->lpVtbl->IsDirty(ole), TEMPVOX_S_OK);
    char* stored = nullptr;
    uint32_t size = 0;
    ASSERT_EQ(ole->lpVtbl->Save(ole, &stored, &size), TEMPVOX_S_OK);
    std::string blob(stored, size);
    std::free(stored);
    EXPECT_NE(blob.find("_Version=65536"), std::string::npos) << blob;
    ole->lpVtbl->Release(ole);
    first->lpVtbl->Release(first);

    ITempvoxDispatch* second = NewControl();
    ole = Query<ITempvoxOleControl>(second, TEMPVOX_IID_OleControl);
    ASSERT_EQ(ole->lpVtbl->Load(ole, blob.data(), static_cast<uint32_t>(blob.size())), TEMPVOX_S_OK);
    TempvoxVariant language{};
    ASSERT_EQ(Call(second, 34, {}, &language, TEMPVOX_DISPATCH_PROPERTYGET), TEMPVOX_S_OK);
    EXPECT_EQ(language.iVal, 1);
    EXPECT_EQ(ole->lpVtbl->Load(ole, "garbage", 7), TEMPVOX_E_INVALIDARG);
    ole->lpVtbl->Release(ole);
    second->lpVtbl->Release(second);

    ITempvoxClassFactory* pages = nullptr;
    ASSERT_EQ(m_getClassObject(&TEMPVOX_CLSID_TempvoxPropPage, &TEMPVOX_IID_ClassFactory,
                               reinterpret_cast<void**>(&pages)),
              TEMPVOX_S_OK);
    ITempvoxPropertyPage* page = nullptr;
    ASSERT_EQ(pages->lpVtbl->CreateInstance(pages, nullptr, &TEMPVOX_IID_PropertyPage, reinterpret_cast<void**>(&page)),
              TEMPVOX_S_OK);
    TempvoxPageInfo pageInfo{};
    page->lpVtbl->GetPageInfo(page, &pageInfo);
    EXPECT_STREQ(pageInfo.title, "General");
    EXPECT_EQ(pageInfo.dialogId, 200);
    EXPECT_EQ(pageInfo.width, 250);
    EXPECT_EQ(pageInfo.height, 62);
    page->lpVtbl->Release(page);
    pages->lpVtbl->Release(pages);
    EXPECT_EQ(m_canUnloadNow(), TEMPVOX_S_OK);
}

TEST_F(ModuleTest, SinkMayReleaseTheControlFromInsideAnEvent)
{
    // The sink drops every reference while the control's code is still on
    // the stack: inside StartPlay, which goes on to open the device after
    // the first count, and inside the step that ends play. The control must
    // outlive that code and go once the call has returned.
    struct Case {
        const char* name;
        int32_t releaseOn;
    };
    const Case cases[] = {{"count fired while play starts", 2}, {"end of play", 1}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        ITempvoxDispatch* ctl = NewControl();
        ASSERT_NE(ctl, nullptr);
        auto* services = Query<ITempvoxHostServices>(ctl, TEMPVOX_IID_HostServices);
        auto* connection = Query<ITempvoxConnectionPoint>(ctl, TEMPVOX_IID_ConnectionPoint);
        EventLog log;
        TempvoxEventSink sink{&EventLog::OnEvent, &log};
        uint32_t cookie = 0;
        connection->lpVtbl->Advise(connection, &sink, &cookie);
        connection->lpVtbl->Release(connection);
        ASSERT_EQ(services->lpVtbl->SetAudioDevice(services, "manual"), TEMPVOX_S_OK);
        EXPECT_EQ(services->lpVtbl->SetAudioDevice(services, "speaker"), TEMPVOX_E_INVALIDARG);
        TempvoxVariant result{};
        const std::string file = SpeechFile(5);
        ASSERT_EQ(Call(ctl, 15, {Str(nullptr), I2(-1), Str(file.c_str())}, &result), TEMPVOX_S_OK);
        log.releaseOn = c.releaseOn;
        log.releaseOnEvent = {reinterpret_cast<ITempvoxUnknown*>(ctl), reinterpret_cast<ITempvoxUnknown*>(services)};
        ASSERT_EQ(Call(ctl, 1, {}, &result), TEMPVOX_S_OK);
        EXPECT_EQ(result.boolVal, 1);
        uint32_t stepped = 0;
        for (int i = 0; i < 40 && !log.releaseOnEvent.empty(); ++i) {
            services->lpVtbl->StepDevice(services, 1, &stepped);
        }
        EXPECT_EQ(log.Count(c.releaseOn), 1);
        EXPECT_EQ(m_canUnloadNow(), TEMPVOX_S_OK);
    }
}

}  // namespace

// The module's data and framework pieces, in process: the type library
// source, the registry store, the resources, and the control's status,
// persistence and verb.
#include <gtest/gtest.h>

#include <map>
#include <regex>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "resources/ModuleResources.h"
#include "shell/DispatchTable.h"
#include "shell/Registry.h"
#include "shell/RuntimeClasses.h"
#include "shell/TempvoxApp.h"
#include "shell/TempvoxOleControl.h"
#include "shell/TypeLibrary.h"
#include "view/WaveViewCtrl.h"

namespace fs = std::filesystem;

namespace {

std::string ReadText(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

uint32_t LittleEndian(const std::vector<uint8_t>& bytes, size_t at, int count)
{
    uint32_t value = 0;
    for (int i = count - 1; i >= 0; --i) value = (value << 8) | bytes[at + static_cast<size_t>(i)];
    return value;
}

TEST(TypeLibrarySource, CheckedInFileIsWrittenFromTheMemberTable)
{
    const std::string checkedIn = ReadText(std::string(TEMPVOX_SOURCE_DIR) + "/resources/Tempvox.odl");
    const std::string generated = WriteTypeLibrarySource();
    if (checkedIn != generated) {
        std::ofstream(std::string(TEMPVOX_BINARY_DIR) + "/Tempvox.odl.generated") << generated;
    }
    EXPECT_EQ(checkedIn, generated) << "resources/Tempvox.odl is stale; the current text is in "
                                    << TEMPVOX_BINARY_DIR << "/Tempvox.odl.generated";
}

// A C host reaches members by the ids of the header; they must be the
// table's, every one of them.
TEST(HostHeader, MemberIdsAreTheTablesOwn)
{
    const std::string header = ReadText(std::string(TEMPVOX_SOURCE_DIR) + "/include/tempvox/host.h");
    const std::regex idLine(R"(TEMPVOX_DISPID_(\w+) = (\d+))");
    std::map<std::string, int> ids;
    for (auto it = std::sregex_iterator(header.begin(), header.end(), idLine); it != std::sregex_iterator(); ++it)
        ids[(*it)[1]] = std::stoi((*it)[2]);
    EXPECT_EQ(ids.size(), ControlMembers().size());
    for (const MemberInfo& member : ControlMembers()) {
        ASSERT_EQ(ids.count(member.name), 1u) << member.name;
        EXPECT_EQ(ids[member.name], member.id) << member.name;
    }
}

class RegistryTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        char pattern[] = "/tmp/tempvox-registry-XXXXXX";
        ASSERT_NE(mkdtemp(pattern), nullptr);
        m_root = pattern;
    }
    void TearDown() override { fs::remove_all(m_root); }
    std::string m_root;
};

TEST_F(RegistryTest, KeysStayInsideTheRootAndValuesOnOneLine)
{
    CUserRegistry registry(m_root);
    struct Case {
        std::string key;
        std::string name;
        std::string value;
        bool accepted;
    };
    const Case cases[] = {
        {"CLSID/{1}/InprocServer32", "@", "/usr/lib/libtempvox.so", true},
        {"CLSID/{1}/InprocServer32", "ThreadingModel", "Apartment", true},
        {"TEMPVOX.TempvoxCtrl.1", "@", "Tempvox Control", true},
        {"../escape", "@", "x", false},
        {"CLSID/../../escape", "@", "x", false},
        {"CLSID/.values", "@", "x", false},
        {"CLSID//x", "@", "x", false},
        {"CLSID/", "@", "x", false},
        {"", "@", "x", false},
        {"CLSID/a\nb", "@", "x", false},
        {"CLSID/{1}", "a=b", "x", false},
        {"CLSID/{1}", "", "x", false},
        {"CLSID/{1}", "@", "two\nlines", false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.key + " " + c.name);
        EXPECT_EQ(registry.SetValue(c.key, c.name, c.value), c.accepted);
        if (c.accepted) {
            EXPECT_EQ(registry.GetValue(c.key, c.name), c.value);
        }
    }
    EXPECT_FALSE(fs::exists(fs::path(m_root).parent_path() / "escape"));

    // A second write replaces, and the other values of the key stay.
    ASSERT_TRUE(registry.SetValue("CLSID/{1}/InprocServer32", "@", "/opt/libtempvox.so"));
    EXPECT_EQ(registry.GetValue("CLSID/{1}/InprocServer32", "@"), "/opt/libtempvox.so");
    EXPECT_EQ(registry.GetValue("CLSID/{1}/InprocServer32", "ThreadingModel"), "Apartment");
    EXPECT_EQ(ReadText(m_root + "/CLSID/{1}/InprocServer32/.values"),
              "@=/opt/libtempvox.so\nThreadingModel=Apartment\n");

    EXPECT_EQ(registry.SubKeys("CLSID/{1}"), std::vector<std::string>{"InprocServer32"});
    EXPECT_TRUE(registry.DeleteKeyTree("CLSID/{1}"));
    EXPECT_FALSE(registry.KeyExists("CLSID/{1}/InprocServer32"));
    EXPECT_FALSE(registry.DeleteKeyTree("CLSID/{1}"));
    registry.DeleteKeyIfEmpty("CLSID");
    EXPECT_FALSE(registry.KeyExists("CLSID"));
    registry.DeleteKeyIfEmpty("TEMPVOX.TempvoxCtrl.1");
    EXPECT_TRUE(registry.KeyExists("TEMPVOX.TempvoxCtrl.1"));
}

TEST(RegistryRoot, FollowsTheDataHomeAndIgnoresARelativeOne)
{
    const char* saved = std::getenv("XDG_DATA_HOME");
    std::string savedValue = saved != nullptr ? saved : "";
    setenv("XDG_DATA_HOME", "/srv/data", 1);
    EXPECT_EQ(CUserRegistry::DefaultRoot(), "/srv/data/tempvox/registry");
    setenv("XDG_DATA_HOME", "relative/data", 1);
    std::string home = std::getenv("HOME") != nullptr ? std::getenv("HOME") : "";
    if (!home.empty()) {
        EXPECT_EQ(CUserRegistry::DefaultRoot(), home + "/.local/share/tempvox/registry");
    }
    if (saved != nullptr) {
        setenv("XDG_DATA_HOME", savedValue.c_str(), 1);
    } else {
        unsetenv("XDG_DATA_HOME");
    }
}

TEST(ModuleResources, ToolboxBitmapRowsArePaddedToWholeWords)
{
    const std::vector<uint8_t>& dib = ToolboxBitmap().dib;
    // 4-bit rows of 15 pixels take 8 bytes, padded to a multiple of 4.
    ASSERT_EQ(dib.size(), 40u + 16 * 4 + 16 * 8);
    EXPECT_EQ(LittleEndian(dib, 0, 4), 40u);
    EXPECT_EQ(LittleEndian(dib, 4, 4), 15u);
    EXPECT_EQ(LittleEndian(dib, 8, 4), 16u);
    EXPECT_EQ(LittleEndian(dib, 14, 2), 4u);
    EXPECT_EQ(LittleEndian(dib, 20, 4), 16u * 8);
    // The sixteenth pixel of each row is padding and stays 0.
    for (size_t row = 0; row < 16; ++row) EXPECT_EQ(dib[104 + row * 8 + 7] & 0x0F, 0) << row;
}

TEST(ModuleObjects, FactoriesAndRuntimeClassesAreThereAtLoad)
{
    ASSERT_TRUE(AfxGetTempvoxApp().IsRunning());
    std::vector<COleObjectFactory*> factories = COleObjectFactory::All();
    ASSERT_EQ(factories.size(), 2u);
    EXPECT_STREQ(factories[0]->GetProgID(), "TEMPVOX.TempvoxCtrl.1");
    EXPECT_TRUE(factories[0]->GetClassID() == TEMPVOX_CLSID_Tempvox);
    EXPECT_STREQ(factories[1]->GetProgID(), "TEMPVOX.TempvoxPropPage.1");
    EXPECT_TRUE(factories[1]->GetClassID() == TEMPVOX_CLSID_TempvoxPropPage);
    for (COleObjectFactory* factory : factories) EXPECT_EQ(factory->IsMultiInstance(), FALSE);

    const CRuntimeClass* view = AfxFindRuntimeClass("CWaveViewCtrl");
    ASSERT_NE(view, nullptr);
    std::unique_ptr<CObject> made(view->m_pfnCreateObject());
    EXPECT_NE(dynamic_cast<CWaveViewCtrl*>(made.get()), nullptr);
    EXPECT_EQ(AfxFindRuntimeClass("CNoSuchClass"), nullptr);
}

TEST(OleControl, StoresOnlyTheVersionAndTheStockState)
{
    struct Case {
        const char* name;
        std::string stored;
        bool loads;
        DWORD version;
        LONG extentX;
    };
    const Case cases[] = {
        {"current", "Tempvox control state\n_ExtentX=320\n_ExtentY=40\n_Version=65536\n", true, 0x10000, 320},
        {"older version", "Tempvox control state\n_Version=256\n", true, 256, 100},
        {"no version", "Tempvox control state\n_ExtentX=7\n", true, 0x10000, 7},
        {"bad numbers", "Tempvox control state\n_Version=x\n_ExtentX=99999999999\n", true, 0x10000, 100},
        {"not a stored control", "something else\n_Version=1\n", false, 0x10000, 100},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        CTempvoxOleControl control;
        control.Control().SetLanguageType(2);
        EXPECT_EQ(control.Load(c.stored), c.loads);
        EXPECT_EQ(control.LoadedVersion(), c.version);
        EXPECT_EQ(control.ExtentX(), c.extentX);
        EXPECT_EQ(control.Control().GetLanguageType(), 2);
        // Stored again, an old control is written in the current version.
        EXPECT_NE(control.Save().find("_Version=65536\n"), std::string::npos);
    }

    CTempvoxOleControl control;
    control.Control().SetLanguageType(3);
    control.SetExtent(640, 80);
    ASSERT_EQ(control.Control().Invoke(4, InvokeKind::Method, {Variant::I4(40)}, nullptr), S_OK);
    control.OnResetState();
    EXPECT_EQ(control.ExtentX(), CTempvoxOleControl::kDefaultExtentX);
    EXPECT_EQ(control.ExtentY(), CTempvoxOleControl::kDefaultExtentY);
    EXPECT_EQ(control.Control().GetLanguageType(), 3);
    EXPECT_EQ(control.Control().Engine().GetVolume(), 40);
    EXPECT_EQ(control.Save().find("Language"), std::string::npos);

    EXPECT_EQ(control.DoVerb(-7), TEMPVOX_S_OK);
    EXPECT_EQ(control.LastPropertyFrame(), std::vector<std::string>{"General"});
}

}  // namespace

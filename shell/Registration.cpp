#include "shell/Registration.h"

#include <cstdio>
#include <filesystem>

#include "resources/StringTable.h"
#include "shell/TypeLibrary.h"

namespace {

// The stock proxy of dispatch interfaces; late-bound hosts look for it.
constexpr const char* kDispatchProxyClass = "{00020420-0000-0000-C000-000000000046}";

std::string VersionText(WORD major, WORD minor)
{
    return std::to_string(major) + "." + std::to_string(minor);
}

std::string TypeLibKey(const TempvoxGuid& libid)
{
    return "TypeLib/" + GuidString(libid);
}

std::string TypeName(UINT id)
{
    const char* text = LoadStringResource(id);
    return text != nullptr ? text : "";
}

}  // namespace

BOOL AfxOleRegisterTypeLib(const CUserRegistry& registry, const std::string& modulePath, const TempvoxGuid& libid)
{
    const TypeLibraryAttributes& library = TempvoxLibraryAttributes();
    if (!(libid == library.libid)) return FALSE;
    const std::string version = VersionText(library.majorVersion, library.minorVersion);
    const std::string versionKey = TypeLibKey(libid) + "/" + version;
    char lcid[16];
    std::snprintf(lcid, sizeof lcid, "%X", library.lcid);
    std::string folder = std::filesystem::path(modulePath).parent_path().string();

    if (!registry.SetValue(versionKey, "@", library.helpString)) return FALSE;
    if (!registry.SetValue(versionKey + "/" + lcid + "/linux64", "@", modulePath)) return FALSE;
    if (!registry.SetValue(versionKey + "/FLAGS", "@", "0")) return FALSE;
    if (!registry.SetValue(versionKey + "/HELPDIR", "@", folder)) return FALSE;
    for (const TypeLibraryElement& element : TempvoxLibraryElements()) {
        if (element.kind != TypeKind::DispInterface) continue;
        const std::string key = "Interface/" + GuidString(element.guid);
        if (!registry.SetValue(key, "@", element.name)) return FALSE;
        if (!registry.SetValue(key + "/ProxyStubClsid32", "@", kDispatchProxyClass)) return FALSE;
        if (!registry.SetValue(key + "/TypeLib", "@", GuidString(libid))) return FALSE;
        if (!registry.SetValue(key + "/TypeLib", "Version", version)) return FALSE;
    }
    return TRUE;
}

BOOL AfxOleUnregisterTypeLib(const CUserRegistry& registry, const TempvoxGuid& libid, WORD major, WORD minor)
{
    const std::string versionKey = TypeLibKey(libid) + "/" + VersionText(major, minor);
    if (!registry.DeleteKeyTree(versionKey)) return FALSE;
    registry.DeleteKeyIfEmpty(TypeLibKey(libid));
    if (libid == TempvoxLibraryAttributes().libid) {
        for (const TypeLibraryElement& element : TempvoxLibraryElements()) {
            if (element.kind == TypeKind::DispInterface) registry.DeleteKeyTree("Interface/" + GuidString(element.guid));
        }
    }
    return TRUE;
}

BOOL AfxOleRegisterControlClass(const CUserRegistry& registry, const std::string& modulePath,
                                const TempvoxGuid& clsid, const char* progId, UINT typeNameId, UINT bitmapId,
                                int regFlags, DWORD miscStatus, const TempvoxGuid& libid, WORD major, WORD minor)
{
    const std::string classKey = "CLSID/" + GuidString(clsid);
    const std::string typeName = TypeName(typeNameId);
    if (!registry.SetValue(classKey, "@", typeName)) return FALSE;
    if (!registry.SetValue(classKey + "/InprocServer32", "@", modulePath)) return FALSE;
    if (regFlags & afxRegApartmentThreading) {
        if (!registry.SetValue(classKey + "/InprocServer32", "ThreadingModel", "Apartment")) return FALSE;
    }
    if (regFlags & afxRegInsertable) {
        if (!registry.CreateKey(classKey + "/Insertable")) return FALSE;
    }
    if (!registry.CreateKey(classKey + "/Control")) return FALSE;
    if (!registry.SetValue(classKey + "/MiscStatus", "@", "0")) return FALSE;
    if (!registry.SetValue(classKey + "/MiscStatus/1", "@", std::to_string(miscStatus))) return FALSE;
    if (!registry.SetValue(classKey + "/ToolboxBitmap32", "@", modulePath + ", " + std::to_string(bitmapId))) {
        return FALSE;
    }
    if (!registry.SetValue(classKey + "/TypeLib", "@", GuidString(libid))) return FALSE;
    if (!registry.SetValue(classKey + "/Version", "@", VersionText(major, minor))) return FALSE;
    if (progId != nullptr) {
        if (!registry.SetValue(classKey + "/ProgID", "@", progId)) return FALSE;
        if (!registry.SetValue(progId, "@", typeName)) return FALSE;
        if (!registry.SetValue(std::string(progId) + "/CLSID", "@", GuidString(clsid))) return FALSE;
    }
    return TRUE;
}

BOOL AfxOleRegisterPropertyPageClass(const CUserRegistry& registry, const std::string& modulePath,
                                     const TempvoxGuid& clsid, UINT typeNameId)
{
    const std::string classKey = "CLSID/" + GuidString(clsid);
    if (!registry.SetValue(classKey, "@", TypeName(typeNameId))) return FALSE;
    if (!registry.SetValue(classKey + "/InprocServer32", "@", modulePath)) return FALSE;
    return TRUE;
}

BOOL AfxOleUnregisterClass(const CUserRegistry& registry, const TempvoxGuid& clsid, const char* progId)
{
    if (!registry.DeleteKeyTree("CLSID/" + GuidString(clsid))) return FALSE;
    if (progId != nullptr) registry.DeleteKeyTree(progId);
    return TRUE;
}

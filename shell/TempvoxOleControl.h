#pragma once
#include <string>
#include <vector>

#include "shell/Guids.h"
#include "shell/PropExchange.h"
#include "shell/TempvoxCtrl.h"

// The framework's side of one Tempvox control: its identity and status bits,
// its (absent) drawing, what it stores, and the properties verb. The
// automation surface and events are the CTempvoxCtrl it owns.
class CTempvoxOleControl {
public:
    static constexpr DWORD kMiscStatus = 0x20191;
    static constexpr DWORD kPersistVersion = 0x00010000;
    // The base's stock state: the control's extent, in pixels.
    static constexpr LONG kDefaultExtentX = 100;
    static constexpr LONG kDefaultExtentY = 50;

    // One entry of the control's message map: a verb, by its message code
    // and the string that names it.
    struct VerbEntry {
        UINT message;
        UINT verbNameId;
        LONG verb;
    };
    static constexpr VerbEntry kPropertiesVerb = {0xC002, 65089, TEMPVOX_OLEIVERB_PROPERTIES};

    CTempvoxOleControl();
    CTempvoxOleControl(const CTempvoxOleControl&) = delete;
    CTempvoxOleControl& operator=(const CTempvoxOleControl&) = delete;

    CTempvoxCtrl& Control() { return m_ctrl; }
    const TempvoxGuid& PrimaryDispatchIID() const { return *m_piidPrimary; }
    const TempvoxGuid& EventsIID() const { return *m_piidEvents; }

    TempvoxGuid GetClassID() const { return TEMPVOX_CLSID_Tempvox; }
    UINT GetUserTypeNameID() const { return 1; }
    UINT GetTypeInfoCount() const { return 1; }
    std::vector<TempvoxGuid> GetPropPageIDs() const { return {TEMPVOX_CLSID_TempvoxPropPage}; }
    DWORD GetMiscStatus() const { return kMiscStatus; }
    // What the base gives: clipPaintDC only, never windowless.
    static DWORD BaseControlFlags() { return 0x02; }
    DWORD GetControlFlags() const { return BaseControlFlags() | 0xFFFFFFEFu; }

    // The control has nothing to show: asked to paint, it hides its window.
    void OnDraw() { m_bWindowVisible = FALSE; }
    void ShowWindow(BOOL show) { m_bWindowVisible = show ? TRUE : FALSE; }
    BOOL IsWindowVisible() const { return m_bWindowVisible; }

    void DoPropExchange(CPropExchange& exchange);
    void OnResetState();
    std::string Save();
    // False, with nothing changed, when `stored` is not a stored control.
    bool Load(const std::string& stored);
    DWORD LoadedVersion() const { return m_dwVersionLoaded; }
    void SetExtent(LONG cx, LONG cy)
    {
        m_extentX = cx;
        m_extentY = cy;
    }
    LONG ExtentX() const { return m_extentX; }
    LONG ExtentY() const { return m_extentY; }

    // TEMPVOX_S_OK for the properties verb, TEMPVOX_OLEOBJ_S_INVALIDVERB
    // for any other.
    TVHRESULT DoVerb(LONG verb);
    // Builds the property frame's pages; the captions of the last frame.
    void OnProperties();
    const std::vector<std::string>& LastPropertyFrame() const { return m_lastPropertyFrame; }

private:
    void InitializeIIDs(const TempvoxGuid* primary, const TempvoxGuid* events);

    CTempvoxCtrl m_ctrl;
    const TempvoxGuid* m_piidPrimary = nullptr;
    const TempvoxGuid* m_piidEvents = nullptr;
    BOOL m_bWindowVisible = FALSE;
    DWORD m_dwVersionLoaded = kPersistVersion;
    LONG m_extentX = kDefaultExtentX;
    LONG m_extentY = kDefaultExtentY;
    std::vector<std::string> m_lastPropertyFrame;
};

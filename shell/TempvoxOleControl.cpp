#include "shell/TempvoxOleControl.h"

#include <memory>

#include "shell/ObjectFactory.h"
#include "shell/TempvoxPropPage.h"

CTempvoxOleControl::CTempvoxOleControl()
{
    InitializeIIDs(&TEMPVOX_DIID_DTempvox, &TEMPVOX_DIID_DTempvoxEvents);
}

void CTempvoxOleControl::InitializeIIDs(const TempvoxGuid* primary, const TempvoxGuid* events)
{
    m_piidPrimary = primary;
    m_piidEvents = events;
}

void CTempvoxOleControl::DoPropExchange(CPropExchange& exchange)
{
    exchange.ExchangeVersion(m_dwVersionLoaded, kPersistVersion, TRUE);
    // The base's stock state; none of the control's own settings, the
    // language slot included, is kept.
    exchange.PX_Long("_ExtentX", m_extentX, kDefaultExtentX);
    exchange.PX_Long("_ExtentY", m_extentY, kDefaultExtentY);
}

void CTempvoxOleControl::OnResetState()
{
    CPropExchange reset = CPropExchange::ForReset();
    DoPropExchange(reset);
}

std::string CTempvoxOleControl::Save()
{
    CPropExchange exchange = CPropExchange::ForSaving();
    DoPropExchange(exchange);
    return exchange.Stored();
}

bool CTempvoxOleControl::Load(const std::string& stored)
{
    CPropExchange exchange = CPropExchange::ForLoading(stored);
    if (!exchange.IsValid()) return false;
    DoPropExchange(exchange);
    return true;
}

TVHRESULT CTempvoxOleControl::DoVerb(LONG verb)
{
    if (verb != kPropertiesVerb.verb) return TEMPVOX_OLEOBJ_S_INVALIDVERB;
    OnProperties();
    return TEMPVOX_S_OK;
}

void CTempvoxOleControl::OnProperties()
{
    // This platform has no modal frame to show; the pages are still made
    // through their factories, as a frame would make them.
    m_lastPropertyFrame.clear();
    for (const TempvoxGuid& pageId : GetPropPageIDs()) {
        COleObjectFactory* factory = COleObjectFactory::Find(pageId);
        if (factory == nullptr || factory->GetRuntimeClass() == nullptr) continue;
        if (factory->GetRuntimeClass()->m_pfnCreateObject == nullptr) continue;
        std::unique_ptr<CObject> object(factory->GetRuntimeClass()->m_pfnCreateObject());
        if (auto* page = dynamic_cast<COlePropertyPage*>(object.get())) m_lastPropertyFrame.push_back(page->GetCaption());
    }
}

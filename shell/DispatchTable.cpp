#include "shell/DispatchTable.h"

#include <cstring>

#include "shell/TempvoxCtrl.h"

namespace {

using C = CTempvoxCtrl;
using Args = std::vector<Variant>;

int16_t I2(const Variant& value) { return static_cast<int16_t>(value.intValue); }
uint32_t U4(const Variant& value) { return static_cast<uint32_t>(value.intValue); }

}  // namespace

const char* VarTypeName(VarType type)
{
    switch (type) {
    case VarType::Empty: return "void";
    case VarType::Bool: return "BOOL";
    case VarType::I2: return "short";
    case VarType::I4: return "long";
    case VarType::R4: return "float";
    case VarType::Str: return "string";
    }
    return "?";
}

const std::vector<MemberInfo>& ControlMembers()
{
    using V = VarType;
    static const std::vector<MemberInfo> members = {
        {1, "StartPlay", V::Bool, {}, false,
         [](C& c, InvokeKind, const Args&) -> Variant { return Variant::Bool(c.StartPlay()); }},
        {2, "PausePlay", V::Empty, {}, false,
         [](C& c, InvokeKind, const Args&) -> Variant { c.PausePlay(); return {}; }},
        {3, "ResumePlay", V::Bool, {}, false,
         [](C& c, InvokeKind, const Args&) -> Variant { return Variant::Bool(c.ResumePlay()); }},
        {4, "SetVolume", V::Bool, {{"volume", V::I4}}, false,
         [](C& c, InvokeKind, const Args& a) -> Variant { return Variant::Bool(c.Engine().SetVolume(a[0].intValue)); }},
        {5, "GetVolume", V::I4, {}, false,
         [](C& c, InvokeKind, const Args&) -> Variant { return Variant::I4(c.Engine().GetVolume()); }},
        {6, "SetChangeSpeedLevel", V::Empty, {{"levelValue", V::I2}}, false,
         [](C& c, InvokeKind, const Args& a) -> Variant { c.Engine().SetChangeSpeedLevel(I2(a[0])); return {}; }},
        {7, "GetChangeSpeedLevel", V::I2, {}, false,
         [](C& c, InvokeKind, const Args&) -> Variant { return Variant::I2(c.Engine().GetChangeSpeedLevel()); }},
        {8, "GetPlayerState", V::I2, {}, false,
         [](C& c, InvokeKind, const Args&) -> Variant { return Variant::I2(static_cast<int16_t>(c.Engine().GetPlayerState())); }},
        {9, "GetTotalPlayTime", V::I4, {}, false,
         [](C& c, InvokeKind, const Args&) -> Variant { return Variant::I4(static_cast<int32_t>(c.Engine().GetTotalPlayTime())); }},
        {10, "SetCurrentPlayTime", V::Empty, {{"curTime", V::I4}}, false,
         [](C& c, InvokeKind, const Args& a) -> Variant { c.Engine().SetCurrentPlayTime(U4(a[0])); return {}; }},
        {11, "GetCurrentPlayTime", V::I4, {}, false,
         [](C& c, InvokeKind, const Args&) -> Variant { return Variant::I4(static_cast<int32_t>(c.Engine().GetCurrentPlayTime())); }},
        {12, "SpeedUp", V::Empty, {{"distance", V::I4}}, false,
         [](C& c, InvokeKind, const Args& a) -> Variant { c.Engine().SpeedUp(U4(a[0])); return {}; }},
        {13, "SpeedBack", V::Empty, {{"distance", V::I4}}, false,
         [](C& c, InvokeKind, const Args& a) -> Variant { c.Engine().SpeedBack(U4(a[0])); return {}; }},
        {14, "StopPlay", V::Empty, {}, false,
         [](C& c, InvokeKind, const Args&) -> Variant { c.StopPlay(); return {}; }},
        {15, "SetPlayFilePath", V::Bool,
         {{"strHttpAddress", V::Str}, {"httpPort_id", V::I2}, {"strFilePath", V::Str}}, false,
         [](C& c, InvokeKind, const Args& a) -> Variant { return Variant::Bool(c.SetPlayFilePath(a[0].CStr(), I2(a[1]), a[2].CStr())); }},
        {16, "GetPlayFilePath", V::Str, {}, false,
         [](C& c, InvokeKind, const Args&) -> Variant { return Variant::Str(c.GetPlayFilePath()); }},
        {17, "SetMixSoundName", V::Empty, {{"mixSoundName", V::Str}}, false,
         [](C& c, InvokeKind, const Args& a) -> Variant { c.Engine().LoadMixSound(a[0].CStr()); return {}; }},
        {18, "SetMixerFlag", V::Empty, {{"bOpen", V::Bool}}, false,
         [](C& c, InvokeKind, const Args& a) -> Variant { c.Engine().SetMixerFlag(a[0].intValue); return {}; }},
        {19, "GetMixerFlag", V::Bool, {}, false,
         [](C& c, InvokeKind, const Args&) -> Variant { return Variant::Bool(c.Engine().GetMixerFlag()); }},
        {20, "CreateWavViewWnd", V::Bool,
         {{"xPos", V::I4}, {"yPos", V::I4}, {"cX", V::I4}, {"cY", V::I4}, {"parentHwnd", V::I4}}, false,
         [](C& c, InvokeKind, const Args& a) -> Variant { return Variant::Bool(c.CreateWavViewWnd(a[0].intValue, a[1].intValue, a[2].intValue, a[3].intValue, a[4].intValue)); }},
        {21, "GetWavViewCtrlHwnd", V::I4, {}, false,
         [](C& c, InvokeKind, const Args&) -> Variant { return Variant::I4(c.GetWavViewCtrlHwnd()); }},
        {22, "AttachWavViewToFile", V::Bool, {{"isAttach", V::Bool}}, false,
         [](C& c, InvokeKind, const Args& a) -> Variant { return Variant::Bool(c.AttachWavViewToFile(a[0].intValue)); }},
        {23, "CreateCaretForWavView", V::Empty, {{"bCreate", V::Bool}}, false,
         [](C& c, InvokeKind, const Args& a) -> Variant { c.CreateCaretForWavView(a[0].intValue); return {}; }},
        {24, "GetIsSelectedWav", V::Bool, {}, false,
         [](C& c, InvokeKind, const Args&) -> Variant { return Variant::Bool(c.GetIsSelectedWav()); }},
        {25, "SetLoopPlaySection", V::Empty, {{"bLoopPlay", V::Bool}, {"startPos", V::I4}, {"endPos", V::I4}}, false,
         [](C& c, InvokeKind, const Args& a) -> Variant { c.Engine().SetLoopPlaySection(a[0].intValue, U4(a[1]), U4(a[2])); return {}; }},
        {26, "ResetToPlayFromCurPos", V::Empty, {}, false,
         [](C& c, InvokeKind, const Args&) -> Variant { c.Engine().ResetToPlayFromCurPos(); return {}; }},
        {27, "SetPlayFilePath2", V::Bool,
         {{"strHttpAddress", V::Str}, {"httpPort_id", V::I2}, {"strFilePath", V::Str}, {"localSaveName", V::Str}},
         false,
         [](C& c, InvokeKind, const Args& a) -> Variant { return Variant::Bool(c.SetPlayFilePath2(a[0].CStr(), I2(a[1]), a[2].CStr(), a[3].CStr())); }},
        {28, "DeleteAllDownedFile", V::Bool, {}, false,
         [](C& c, InvokeKind, const Args&) -> Variant { return Variant::Bool(c.DeleteAllDownedFile()); }},
        {29, "SetCountWordTimeSpan", V::Empty, {{"lTimeSpan", V::I4}}, false,
         [](C& c, InvokeKind, const Args& a) -> Variant { c.Engine().SetCountWordTimeSpan(a[0].intValue); return {}; }},
        {30, "SetCountWordSquare", V::Empty, {{"fSquare", V::R4}}, false,
         [](C& c, InvokeKind, const Args& a) -> Variant { c.SetCountWordSquare(a[0].floatValue); return {}; }},
        {31, "SetJustPlay", V::Empty, {{"bFlag", V::Bool}}, false,
         [](C& c, InvokeKind, const Args& a) -> Variant { c.Engine().SetJustPlay(a[0].intValue); return {}; }},
        {32, "SetOneSentenceTimeSpan", V::Empty, {{"startTimePos", V::I4}, {"endTimePos", V::I4}}, false,
         [](C& c, InvokeKind, const Args& a) -> Variant { c.SetOneSentenceTimeSpan(a[0].intValue, a[1].intValue); return {}; }},
        {33, "GetWordSpeedByAsyn", V::I4, {{"fEpWordNum", V::R4}, {"timeSpan", V::I4}}, false,
         [](C& c, InvokeKind, const Args& a) -> Variant { return Variant::I4(c.Engine().GetWordSpeedByAsyn(a[0].floatValue, a[1].intValue)); }},
        {34, "SetLanguageType", V::I2, {}, true,
         [](C& c, InvokeKind kind, const Args& a) -> Variant {
             if (kind == InvokeKind::PropertyPut) {
                 c.SetLanguageType(I2(a[0]));
                 return {};
             }
             return Variant::I2(c.GetLanguageType());
         }},
        // Beyond the original surface: the playback profile, 0 classic
        // (the default of every control) and 1 refined.
        {35, "SetPlaybackProfile", V::Empty, {{"profile", V::I2}}, false,
         [](C& c, InvokeKind, const Args& a) -> Variant { c.SetPlaybackProfile(I2(a[0])); return {}; }},
        {36, "GetPlaybackProfile", V::I2, {}, false,
         [](C& c, InvokeKind, const Args&) -> Variant { return Variant::I2(c.Engine().GetPlaybackProfile()); }},
        // The sentences of the file named by SetPlayFilePath, found in its
        // sound, and play by sentence.
        {37, "FindSentences", V::I4, {{"minPauseMs", V::I4}}, false,
         [](C& c, InvokeKind, const Args& a) -> Variant { return Variant::I4(c.FindSentences(a[0].intValue)); }},
        {38, "GetSentenceStart", V::I4, {{"index", V::I4}}, false,
         [](C& c, InvokeKind, const Args& a) -> Variant { return Variant::I4(c.GetSentenceStart(a[0].intValue)); }},
        {39, "GetSentenceEnd", V::I4, {{"index", V::I4}}, false,
         [](C& c, InvokeKind, const Args& a) -> Variant { return Variant::I4(c.GetSentenceEnd(a[0].intValue)); }},
        {40, "GetSentenceAt", V::I4, {{"timeMs", V::I4}}, false,
         [](C& c, InvokeKind, const Args& a) -> Variant { return Variant::I4(c.GetSentenceAt(a[0].intValue)); }},
        {41, "PlaySentence", V::Bool, {{"index", V::I4}}, false,
         [](C& c, InvokeKind, const Args& a) -> Variant { return Variant::Bool(c.PlaySentence(a[0].intValue)); }},
        // The speaking rate: syllables per second of a stretch of the file,
        // and the syllables per word that turn it into words.
        {42, "GetSpeakingRate", V::R4, {{"startMs", V::I4}, {"endMs", V::I4}}, false,
         [](C& c, InvokeKind, const Args& a) -> Variant { return Variant::R4(c.GetSpeakingRate(a[0].intValue, a[1].intValue)); }},
        {43, "SetSyllablesPerWord", V::Empty, {{"ratio", V::R4}}, false,
         [](C& c, InvokeKind, const Args& a) -> Variant { c.SetSyllablesPerWord(a[0].floatValue); return {}; }},
    };
    return members;
}

const std::vector<EventInfo>& ControlEvents()
{
    using V = VarType;
    static const std::vector<EventInfo> events = {
        {1, "PlayComplete", {}},
        {2, "CountWordFire", {{"wordNums", V::I4}, {"timeLen", V::I4}}},
        {3, "ComputeSNREvent", {{"sNR", V::R4}}},
        {4, "PlayOneSentenceCompleted", {}},
        {5, "NewWordSpeedDone", {{"wordSpeed", V::I4}}},
    };
    return events;
}

const MemberInfo* FindMember(DISPID id)
{
    for (const MemberInfo& member : ControlMembers()) {
        if (member.id == id) return &member;
    }
    return nullptr;
}

const MemberInfo* FindMemberByName(const char* name)
{
    for (const MemberInfo& member : ControlMembers()) {
        if (std::strcmp(member.name, name) == 0) return &member;
    }
    return nullptr;
}

const EventInfo* FindEvent(DISPID id)
{
    for (const EventInfo& event : ControlEvents()) {
        if (event.id == id) return &event;
    }
    return nullptr;
}

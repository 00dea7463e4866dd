#include "shell/DispatchTable.h"

#include <cstring>

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
        {1, "StartPlay", V::Bool, {}, false},
        {2, "PausePlay", V::Empty, {}, false},
        {3, "ResumePlay", V::Bool, {}, false},
        {4, "SetVolume", V::Bool, {{"volume", V::I4}}, false},
        {5, "GetVolume", V::I4, {}, false},
        {6, "SetChangeSpeedLevel", V::Empty, {{"levelValue", V::I2}}, false},
        {7, "GetChangeSpeedLevel", V::I2, {}, false},
        {8, "GetPlayerState", V::I2, {}, false},
        {9, "GetTotalPlayTime", V::I4, {}, false},
        {10, "SetCurrentPlayTime", V::Empty, {{"curTime", V::I4}}, false},
        {11, "GetCurrentPlayTime", V::I4, {}, false},
        {12, "SpeedUp", V::Empty, {{"distance", V::I4}}, false},
        {13, "SpeedBack", V::Empty, {{"distance", V::I4}}, false},
        {14, "StopPlay", V::Empty, {}, false},
        {15, "SetPlayFilePath", V::Bool,
         {{"strHttpAddress", V::Str}, {"httpPort_id", V::I2}, {"strFilePath", V::Str}}, false},
        {16, "GetPlayFilePath", V::Str, {}, false},
        {17, "SetMixSoundName", V::Empty, {{"mixSoundName", V::Str}}, false},
        {18, "SetMixerFlag", V::Empty, {{"bOpen", V::Bool}}, false},
        {19, "GetMixerFlag", V::Bool, {}, false},
        {20, "CreateWavViewWnd", V::Bool,
         {{"xPos", V::I4}, {"yPos", V::I4}, {"cX", V::I4}, {"cY", V::I4}, {"parentHwnd", V::I4}}, false},
        {21, "GetWavViewCtrlHwnd", V::I4, {}, false},
        {22, "AttachWavViewToFile", V::Bool, {{"isAttach", V::Bool}}, false},
        {23, "CreateCaretForWavView", V::Empty, {{"bCreate", V::Bool}}, false},
        {24, "GetIsSelectedWav", V::Bool, {}, false},
        {25, "SetLoopPlaySection", V::Empty, {{"bLoopPlay", V::Bool}, {"startPos", V::I4}, {"endPos", V::I4}}, false},
        {26, "ResetToPlayFromCurPos", V::Empty, {}, false},
        {27, "SetPlayFilePath2", V::Bool,
         {{"strHttpAddress", V::Str}, {"httpPort_id", V::I2}, {"strFilePath", V::Str}, {"localSaveName", V::Str}},
         false},
        {28, "DeleteAllDownedFile", V::Bool, {}, false},
        {29, "SetCountWordTimeSpan", V::Empty, {{"lTimeSpan", V::I4}}, false},
        {30, "SetCountWordSquare", V::Empty, {{"fSquare", V::R4}}, false},
        {31, "SetJustPlay", V::Empty, {{"bFlag", V::Bool}}, false},
        {32, "SetOneSentenceTimeSpan", V::Empty, {{"startTimePos", V::I4}, {"endTimePos", V::I4}}, false},
        {33, "GetWordSpeedByAsyn", V::I4, {{"fEpWordNum", V::R4}, {"timeSpan", V::I4}}, false},
        {34, "SetLanguageType", V::I2, {}, true},
        // Beyond the original surface: the playback profile, 0 classic
        // (the default of every control) and 1 refined.
        {35, "SetPlaybackProfile", V::Empty, {{"profile", V::I2}}, false},
        {36, "GetPlaybackProfile", V::I2, {}, false},
        // The sentences of the file named by SetPlayFilePath, found in its
        // sound, and play by sentence.
        {37, "FindSentences", V::I4, {{"minPauseMs", V::I4}}, false},
        {38, "GetSentenceStart", V::I4, {{"index", V::I4}}, false},
        {39, "GetSentenceEnd", V::I4, {{"index", V::I4}}, false},
        {40, "GetSentenceAt", V::I4, {{"timeMs", V::I4}}, false},
        {41, "PlaySentence", V::Bool, {{"index", V::I4}}, false},
        // The speaking rate: syllables per second of a stretch of the file,
        // and the syllables per word that turn it into words.
        {42, "GetSpeakingRate", V::R4, {{"startMs", V::I4}, {"endMs", V::I4}}, false},
        {43, "SetSyllablesPerWord", V::Empty, {{"ratio", V::R4}}, false},
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

/*
 * Embedding the Tempvox control in a host program, in C or C++.
 *
 * The module libtempvox.so exports four functions only; everything else is
 * reached through tables of function pointers (interfaces) that the module
 * hands out, each starting with QueryInterface, AddRef and Release.
 *
 *   TempvoxActivation act;
 *   if (TempvoxCreateControl("TEMPVOX.TempvoxCtrl.1", &act) == TEMPVOX_S_OK) {
 *       ITempvoxDispatch* ctl = act.control;
 *       ... ctl->lpVtbl->Invoke(ctl, 5, ...) ...
 *       TempvoxDestroyControl(&act);
 *   }
 *
 * Conventions:
 *  - Every call of a control and its interfaces is made on the thread that
 *    created the control; events fire on that thread, from inside
 *    PumpMessages / PumpUntilEvent / StepDevice of ITempvoxHostServices.
 *  - Arguments in TempvoxDispParams come in reverse order: rgvarg[0] is the
 *    last argument. Events are delivered the same way.
 *  - Strings are UTF-8. A string result is allocated with malloc and owned
 *    by the caller (TempvoxVariantClear frees it). A TEMPVOX_VT_BSTR with a
 *    null pointer is a null string.
 *  - BOOL results are 1 or 0; any non-zero argument counts as true.
 */
#ifndef TEMPVOX_HOST_H
#define TEMPVOX_HOST_H

#include <dlfcn.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#ifdef __cplusplus
extern "C" {
#endif

/* ------------------------------------------------------------ results */

typedef int32_t TVHRESULT;

#define TEMPVOX_S_OK ((TVHRESULT)0)
#define TEMPVOX_S_FALSE ((TVHRESULT)1)
#define TEMPVOX_E_NOTIMPL ((TVHRESULT)0x80004001u)
#define TEMPVOX_E_NOINTERFACE ((TVHRESULT)0x80004002u)
#define TEMPVOX_E_POINTER ((TVHRESULT)0x80004003u)
#define TEMPVOX_E_FAIL ((TVHRESULT)0x80004005u)
#define TEMPVOX_E_OUTOFMEMORY ((TVHRESULT)0x8007000Eu)
#define TEMPVOX_E_INVALIDARG ((TVHRESULT)0x80070057u)
#define TEMPVOX_CLASS_E_NOAGGREGATION ((TVHRESULT)0x80040110u)
#define TEMPVOX_CLASS_E_CLASSNOTAVAILABLE ((TVHRESULT)0x80040111u)
#define TEMPVOX_REGDB_E_CLASSNOTREG ((TVHRESULT)0x80040154u)
#define TEMPVOX_CO_E_DLLNOTFOUND ((TVHRESULT)0x8004F000u)
#define TEMPVOX_SELFREG_E_TYPELIB ((TVHRESULT)0x80040200u)
#define TEMPVOX_SELFREG_E_CLASS ((TVHRESULT)0x80040201u)
#define TEMPVOX_CONNECT_E_NOCONNECTION ((TVHRESULT)0x80040200u)
#define TEMPVOX_DISP_E_MEMBERNOTFOUND ((TVHRESULT)0x80020003u)
#define TEMPVOX_DISP_E_TYPEMISMATCH ((TVHRESULT)0x80020005u)
#define TEMPVOX_DISP_E_UNKNOWNNAME ((TVHRESULT)0x80020006u)
#define TEMPVOX_DISP_E_NONAMEDARGS ((TVHRESULT)0x80020007u)
#define TEMPVOX_DISP_E_EXCEPTION ((TVHRESULT)0x80020009u)
#define TEMPVOX_DISP_E_OVERFLOW ((TVHRESULT)0x8002000Au)
#define TEMPVOX_DISP_E_BADINDEX ((TVHRESULT)0x8002000Bu)
#define TEMPVOX_DISP_E_BADPARAMCOUNT ((TVHRESULT)0x8002000Eu)
#define TEMPVOX_OLEOBJ_S_INVALIDVERB ((TVHRESULT)0x00040181u)

#define TEMPVOX_SUCCEEDED(hr) ((TVHRESULT)(hr) >= 0)
#define TEMPVOX_FAILED(hr) ((TVHRESULT)(hr) < 0)

/* ------------------------------------------------------------ identifiers */

typedef struct TempvoxGuid {
    uint32_t Data1;
    uint16_t Data2;
    uint16_t Data3;
    uint8_t Data4[8];
} TempvoxGuid;

/* The control's own identities; they never change between builds. */
static const TempvoxGuid TEMPVOX_LIBID_TEMPVOXLib =
    {0x0170D2BA, 0x4417, 0x46D7, {0x84, 0x65, 0x31, 0x67, 0xBC, 0x2C, 0xA2, 0x53}};
static const TempvoxGuid TEMPVOX_CLSID_Tempvox =
    {0xB7CA8608, 0x6E21, 0x40F3, {0x86, 0x0A, 0xEC, 0x1D, 0x95, 0x1A, 0x06, 0x86}};
static const TempvoxGuid TEMPVOX_DIID_DTempvox =
    {0xBFBF270B, 0x7053, 0x4813, {0x8D, 0xFB, 0x41, 0xC5, 0x17, 0x4F, 0xBF, 0x12}};
static const TempvoxGuid TEMPVOX_DIID_DTempvoxEvents =
    {0x7DBE9E7F, 0xAFF6, 0x4F30, {0x91, 0x98, 0x8A, 0xB9, 0x57, 0xC8, 0x81, 0xCA}};
static const TempvoxGuid TEMPVOX_CLSID_TempvoxPropPage =
    {0x3E4FBE6C, 0x19D1, 0x481D, {0x97, 0x67, 0xD5, 0x3D, 0x0D, 0x36, 0xF3, 0xEC}};

/* The interfaces of the usual component layout. */
static const TempvoxGuid TEMPVOX_IID_Unknown =
    {0x00000000, 0x0000, 0x0000, {0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46}};
static const TempvoxGuid TEMPVOX_IID_ClassFactory =
    {0x00000001, 0x0000, 0x0000, {0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46}};
static const TempvoxGuid TEMPVOX_IID_Dispatch =
    {0x00020400, 0x0000, 0x0000, {0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46}};

/* The interfaces this platform adds. */
static const TempvoxGuid TEMPVOX_IID_TypeInfo =
    {0x61340501, 0x0C6D, 0x4411, {0xA6, 0x31, 0xBC, 0x71, 0x6F, 0xF0, 0x58, 0xF7}};
static const TempvoxGuid TEMPVOX_IID_ConnectionPoint =
    {0x9B9E7780, 0xE245, 0x44DE, {0x9D, 0xAC, 0x88, 0x8C, 0x7B, 0xD9, 0x5B, 0xEC}};
static const TempvoxGuid TEMPVOX_IID_HostServices =
    {0x082DA794, 0x205E, 0x4D64, {0xB3, 0xD3, 0x37, 0x45, 0x4A, 0xCD, 0xCF, 0xCA}};
static const TempvoxGuid TEMPVOX_IID_OleControl =
    {0xDB428DC1, 0x14E0, 0x4728, {0x9B, 0x61, 0x8E, 0x0E, 0x69, 0xC7, 0x28, 0xDC}};
static const TempvoxGuid TEMPVOX_IID_PropertyPage =
    {0x9604FD17, 0x2EBC, 0x4CAF, {0x8F, 0x36, 0x4F, 0xEC, 0xA4, 0xA2, 0xD6, 0x6E}};

#define TEMPVOX_PROGID_CONTROL "TEMPVOX.TempvoxCtrl.1"
#define TEMPVOX_PROGID_PROPPAGE "TEMPVOX.TempvoxPropPage.1"

/* ------------------------------------------------------------ members */

/* Dispatch ids of the control's members, for Invoke without a look-up by
   name. 1 to 34 are the original surface (34 is the property
   SetLanguageType); the ids after it are members of our own. */
enum {
    TEMPVOX_DISPID_StartPlay = 1,
    TEMPVOX_DISPID_PausePlay = 2,
    TEMPVOX_DISPID_ResumePlay = 3,
    TEMPVOX_DISPID_SetVolume = 4,
    TEMPVOX_DISPID_GetVolume = 5,
    TEMPVOX_DISPID_SetChangeSpeedLevel = 6,
    TEMPVOX_DISPID_GetChangeSpeedLevel = 7,
    TEMPVOX_DISPID_GetPlayerState = 8,
    TEMPVOX_DISPID_GetTotalPlayTime = 9,
    TEMPVOX_DISPID_SetCurrentPlayTime = 10,
    TEMPVOX_DISPID_GetCurrentPlayTime = 11,
    TEMPVOX_DISPID_SpeedUp = 12,
    TEMPVOX_DISPID_SpeedBack = 13,
    TEMPVOX_DISPID_StopPlay = 14,
    TEMPVOX_DISPID_SetPlayFilePath = 15,
    TEMPVOX_DISPID_GetPlayFilePath = 16,
    TEMPVOX_DISPID_SetMixSoundName = 17,
    TEMPVOX_DISPID_SetMixerFlag = 18,
    TEMPVOX_DISPID_GetMixerFlag = 19,
    TEMPVOX_DISPID_CreateWavViewWnd = 20,
    TEMPVOX_DISPID_GetWavViewCtrlHwnd = 21,
    TEMPVOX_DISPID_AttachWavViewToFile = 22,
    TEMPVOX_DISPID_CreateCaretForWavView = 23,
    TEMPVOX_DISPID_GetIsSelectedWav = 24,
    TEMPVOX_DISPID_SetLoopPlaySection = 25,
    TEMPVOX_DISPID_ResetToPlayFromCurPos = 26,
    TEMPVOX_DISPID_SetPlayFilePath2 = 27,
    TEMPVOX_DISPID_DeleteAllDownedFile = 28,
    TEMPVOX_DISPID_SetCountWordTimeSpan = 29,
    TEMPVOX_DISPID_SetCountWordSquare = 30,
    TEMPVOX_DISPID_SetJustPlay = 31,
    TEMPVOX_DISPID_SetOneSentenceTimeSpan = 32,
    TEMPVOX_DISPID_GetWordSpeedByAsyn = 33,
    TEMPVOX_DISPID_SetLanguageType = 34,
    TEMPVOX_DISPID_SetPlaybackProfile = 35,
    TEMPVOX_DISPID_GetPlaybackProfile = 36,
    TEMPVOX_DISPID_FindSentences = 37,
    TEMPVOX_DISPID_GetSentenceStart = 38,
    TEMPVOX_DISPID_GetSentenceEnd = 39,
    TEMPVOX_DISPID_GetSentenceAt = 40,
    TEMPVOX_DISPID_PlaySentence = 41,
    TEMPVOX_DISPID_GetSpeakingRate = 42,
    TEMPVOX_DISPID_SetSyllablesPerWord = 43
};

/* Values of SetPlaybackProfile. */
#define TEMPVOX_PROFILE_CLASSIC 0
#define TEMPVOX_PROFILE_REFINED 1

/* What FindSentences answers when it fails (else the count, 0 or more). */
#define TEMPVOX_SENTENCES_NO_FILE (-1)      /* no file named, or the last naming failed */
#define TEMPVOX_SENTENCES_CANNOT_READ (-2)  /* the file cannot be opened or is no wave file */
#define TEMPVOX_SENTENCES_NOT_PCM (-3)      /* samples other than 8- or 16-bit PCM of 4 kHz or more */
#define TEMPVOX_SENTENCES_BAD_PAUSE (-4)    /* minPauseMs neither 0 (300 ms) nor 50 to 60000 */

/* ------------------------------------------------------------ values */

enum {
    TEMPVOX_VT_EMPTY = 0,
    TEMPVOX_VT_I2 = 2,   /* short */
    TEMPVOX_VT_I4 = 3,   /* long */
    TEMPVOX_VT_R4 = 4,   /* float */
    TEMPVOX_VT_BSTR = 8, /* UTF-8 string, may be null */
    TEMPVOX_VT_BOOL = 11 /* 32-bit BOOL */
};

typedef struct TempvoxVariant {
    uint16_t vt;
    uint16_t reserved1;
    uint16_t reserved2;
    uint16_t reserved3;
    union {
        int16_t iVal;
        int32_t lVal;
        float fltVal;
        int32_t boolVal;
        char* bstrVal;
    };
} TempvoxVariant;

typedef struct TempvoxDispParams {
    TempvoxVariant* rgvarg;      /* reverse order: the last argument first */
    int32_t* rgdispidNamedArgs;  /* only TEMPVOX_DISPID_PROPERTYPUT is known */
    uint32_t cArgs;
    uint32_t cNamedArgs;
} TempvoxDispParams;

typedef struct TempvoxExcepInfo {
    TVHRESULT scode;
    char description[256];
} TempvoxExcepInfo;

#define TEMPVOX_DISPID_UNKNOWN (-1)
#define TEMPVOX_DISPID_PROPERTYPUT (-3)

#define TEMPVOX_DISPATCH_METHOD 1
#define TEMPVOX_DISPATCH_PROPERTYGET 2
#define TEMPVOX_DISPATCH_PROPERTYPUT 4

/* What an interface table starts with. */
typedef struct ITempvoxUnknown ITempvoxUnknown;
typedef struct ITempvoxUnknownVtbl {
    TVHRESULT (*QueryInterface)(ITempvoxUnknown* This, const TempvoxGuid* riid, void** object);
    uint32_t (*AddRef)(ITempvoxUnknown* This);
    uint32_t (*Release)(ITempvoxUnknown* This);
} ITempvoxUnknownVtbl;
struct ITempvoxUnknown {
    const ITempvoxUnknownVtbl* lpVtbl;
};

/* ------------------------------------------------------------ type information */

/* One member or event. The strings and arrays belong to the module and stay
   valid while it is loaded. The property has invkind GET|PUT and no
   parameters; its put takes one value of resultType. */
typedef struct TempvoxFuncDesc {
    int32_t memid;
    const char* name;
    uint16_t invkind;
    uint16_t resultType; /* TEMPVOX_VT_EMPTY for a member without a result */
    uint32_t paramCount;
    const char* const* paramNames;
    const uint16_t* paramTypes;
} TempvoxFuncDesc;

typedef struct ITempvoxTypeInfo ITempvoxTypeInfo;
typedef struct ITempvoxTypeInfoVtbl {
    TVHRESULT (*QueryInterface)(ITempvoxTypeInfo* This, const TempvoxGuid* riid, void** object);
    uint32_t (*AddRef)(ITempvoxTypeInfo* This);
    uint32_t (*Release)(ITempvoxTypeInfo* This);
    TVHRESULT (*GetGuid)(ITempvoxTypeInfo* This, TempvoxGuid* guid);
    TVHRESULT (*GetName)(ITempvoxTypeInfo* This, const char** name);
    TVHRESULT (*GetFuncCount)(ITempvoxTypeInfo* This, uint32_t* count);
    TVHRESULT (*GetFuncDesc)(ITempvoxTypeInfo* This, uint32_t index, TempvoxFuncDesc* desc);
} ITempvoxTypeInfoVtbl;
struct ITempvoxTypeInfo {
    const ITempvoxTypeInfoVtbl* lpVtbl;
};

/* ------------------------------------------------------------ the control */

typedef struct ITempvoxDispatch ITempvoxDispatch;
typedef struct ITempvoxDispatchVtbl {
    TVHRESULT (*QueryInterface)(ITempvoxDispatch* This, const TempvoxGuid* riid, void** object);
    uint32_t (*AddRef)(ITempvoxDispatch* This);
    uint32_t (*Release)(ITempvoxDispatch* This);
    TVHRESULT (*GetTypeInfoCount)(ITempvoxDispatch* This, uint32_t* count);
    TVHRESULT (*GetTypeInfo)(ITempvoxDispatch* This, uint32_t index, uint32_t lcid, ITempvoxTypeInfo** info);
    TVHRESULT (*GetIDsOfNames)(ITempvoxDispatch* This, const TempvoxGuid* riid, const char** names, uint32_t count,
                               uint32_t lcid, int32_t* dispids);
    TVHRESULT (*Invoke)(ITempvoxDispatch* This, int32_t dispid, const TempvoxGuid* riid, uint32_t lcid,
                        uint16_t flags, TempvoxDispParams* params, TempvoxVariant* result,
                        TempvoxExcepInfo* excepInfo, uint32_t* argErr);
} ITempvoxDispatchVtbl;
struct ITempvoxDispatch {
    const ITempvoxDispatchVtbl* lpVtbl;
};

/* An event sink: called on the control's thread with the event's id and
   its arguments (reverse order). The module copies the record at Advise. */
typedef struct TempvoxEventSink {
    void (*OnEvent)(void* context, int32_t dispid, const TempvoxDispParams* params);
    void* context;
} TempvoxEventSink;

typedef struct ITempvoxConnectionPoint ITempvoxConnectionPoint;
typedef struct ITempvoxConnectionPointVtbl {
    TVHRESULT (*QueryInterface)(ITempvoxConnectionPoint* This, const TempvoxGuid* riid, void** object);
    uint32_t (*AddRef)(ITempvoxConnectionPoint* This);
    uint32_t (*Release)(ITempvoxConnectionPoint* This);
    /* TEMPVOX_DIID_DTempvoxEvents */
    TVHRESULT (*GetConnectionInterface)(ITempvoxConnectionPoint* This, TempvoxGuid* iid);
    TVHRESULT (*Advise)(ITempvoxConnectionPoint* This, const TempvoxEventSink* sink, uint32_t* cookie);
    TVHRESULT (*Unadvise)(ITempvoxConnectionPoint* This, uint32_t cookie);
    TVHRESULT (*GetEventTypeInfo)(ITempvoxConnectionPoint* This, ITempvoxTypeInfo** info);
} ITempvoxConnectionPointVtbl;
struct ITempvoxConnectionPoint {
    const ITempvoxConnectionPointVtbl* lpVtbl;
};

/* The host's side of the control's thread: its message loop and the audio
   device. The device choice is process-wide and takes effect at the next
   start of play. */
typedef struct ITempvoxHostServices ITempvoxHostServices;
typedef struct ITempvoxHostServicesVtbl {
    TVHRESULT (*QueryInterface)(ITempvoxHostServices* This, const TempvoxGuid* riid, void** object);
    uint32_t (*AddRef)(ITempvoxHostServices* This);
    uint32_t (*Release)(ITempvoxHostServices* This);
    /* Delivers every queued message and due timer; the number delivered. */
    int32_t (*PumpMessages)(ITempvoxHostServices* This);
    /* Runs the message loop for `ms` of real time. */
    TVHRESULT (*PumpFor)(ITempvoxHostServices* This, uint32_t ms);
    /* Runs the loop until the event `dispid` fires (S_OK) or `timeoutMs`
       passes (S_FALSE). */
    TVHRESULT (*PumpUntilEvent)(ITempvoxHostServices* This, int32_t dispid, uint32_t timeoutMs);
    /* "default", "alsa", "null", "manual" or "capture:FILE.wav". */
    TVHRESULT (*SetAudioDevice)(ITempvoxHostServices* This, const char* device);
    /* Manual device: completes up to `count` buffers, pumping after each;
       S_FALSE when fewer were queued. */
    TVHRESULT (*StepDevice)(ITempvoxHostServices* This, uint32_t count, uint32_t* completed);
    uint32_t (*QueuedBuffers)(ITempvoxHostServices* This);
} ITempvoxHostServicesVtbl;
struct ITempvoxHostServices {
    const ITempvoxHostServicesVtbl* lpVtbl;
};

#define TEMPVOX_OLEIVERB_PROPERTIES (-7)

/* The control as an embedded object: identity, status, drawing, verbs and
   what it keeps when stored. */
typedef struct ITempvoxOleControl ITempvoxOleControl;
typedef struct ITempvoxOleControlVtbl {
    TVHRESULT (*QueryInterface)(ITempvoxOleControl* This, const TempvoxGuid* riid, void** object);
    uint32_t (*AddRef)(ITempvoxOleControl* This);
    uint32_t (*Release)(ITempvoxOleControl* This);
    TVHRESULT (*GetClassID)(ITempvoxOleControl* This, TempvoxGuid* clsid);
    TVHRESULT (*GetUserTypeName)(ITempvoxOleControl* This, char** name); /* malloc'd */
    TVHRESULT (*GetMiscStatus)(ITempvoxOleControl* This, uint32_t aspect, uint32_t* status);
    TVHRESULT (*GetControlFlags)(ITempvoxOleControl* This, uint32_t* flags);
    TVHRESULT (*GetPropertyPages)(ITempvoxOleControl* This, TempvoxGuid* pages, uint32_t capacity,
                                  uint32_t* count);
    TVHRESULT (*DoVerb)(ITempvoxOleControl* This, int32_t verb);
    /* The control draws nothing: a paint hides its window. */
    TVHRESULT (*Draw)(ITempvoxOleControl* This);
    TVHRESULT (*ShowWindow)(ITempvoxOleControl* This, int32_t show);
    TVHRESULT (*IsWindowVisible)(ITempvoxOleControl* This, int32_t* visible);
    TVHRESULT (*IsDirty)(ITempvoxOleControl* This); /* S_OK when modified */
    TVHRESULT (*Save)(ITempvoxOleControl* This, char** data, uint32_t* size); /* malloc'd */
    TVHRESULT (*Load)(ITempvoxOleControl* This, const char* data, uint32_t size);
    TVHRESULT (*ResetState)(ITempvoxOleControl* This);
} ITempvoxOleControlVtbl;
struct ITempvoxOleControl {
    const ITempvoxOleControlVtbl* lpVtbl;
};

typedef struct TempvoxPageInfo {
    const char* title;
    int32_t dialogId;
    int32_t width;  /* dialog units */
    int32_t height;
} TempvoxPageInfo;

typedef struct ITempvoxPropertyPage ITempvoxPropertyPage;
typedef struct ITempvoxPropertyPageVtbl {
    TVHRESULT (*QueryInterface)(ITempvoxPropertyPage* This, const TempvoxGuid* riid, void** object);
    uint32_t (*AddRef)(ITempvoxPropertyPage* This);
    uint32_t (*Release)(ITempvoxPropertyPage* This);
    TVHRESULT (*GetPageInfo)(ITempvoxPropertyPage* This, TempvoxPageInfo* info);
} ITempvoxPropertyPageVtbl;
struct ITempvoxPropertyPage {
    const ITempvoxPropertyPageVtbl* lpVtbl;
};

typedef struct ITempvoxClassFactory ITempvoxClassFactory;
typedef struct ITempvoxClassFactoryVtbl {
    TVHRESULT (*QueryInterface)(ITempvoxClassFactory* This, const TempvoxGuid* riid, void** object);
    uint32_t (*AddRef)(ITempvoxClassFactory* This);
    uint32_t (*Release)(ITempvoxClassFactory* This);
    TVHRESULT (*CreateInstance)(ITempvoxClassFactory* This, ITempvoxUnknown* outer, const TempvoxGuid* riid,
                                void** object);
    TVHRESULT (*LockServer)(ITempvoxClassFactory* This, int32_t lock);
} ITempvoxClassFactoryVtbl;
struct ITempvoxClassFactory {
    const ITempvoxClassFactoryVtbl* lpVtbl;
};

/* ------------------------------------------------------------ the module */

typedef TVHRESULT (*TempvoxDllCanUnloadNowFn)(void);
typedef TVHRESULT (*TempvoxDllGetClassObjectFn)(const TempvoxGuid* clsid, const TempvoxGuid* riid, void** object);
typedef TVHRESULT (*TempvoxDllRegisterServerFn)(void);
typedef TVHRESULT (*TempvoxDllUnregisterServerFn)(void);

/* ------------------------------------------------------------ helpers */

static inline int TempvoxGuidEqual(const TempvoxGuid* a, const TempvoxGuid* b)
{
    return memcmp(a, b, sizeof(TempvoxGuid)) == 0;
}

/* "{XXXXXXXX-XXXX-XXXX-XXXX-XXXXXXXXXXXX}" into `text` (39 bytes). */
static inline void TempvoxGuidToString(const TempvoxGuid* guid, char text[39])
{
    snprintf(text, 39, "{%08X-%04X-%04X-%02X%02X-%02X%02X%02X%02X%02X%02X}", (unsigned)guid->Data1,
             (unsigned)guid->Data2, (unsigned)guid->Data3, guid->Data4[0], guid->Data4[1], guid->Data4[2],
             guid->Data4[3], guid->Data4[4], guid->Data4[5], guid->Data4[6], guid->Data4[7]);
}

/* Parses the braced form; 1 on success. */
static inline int TempvoxGuidFromString(const char* text, TempvoxGuid* guid)
{
    unsigned int part[11];
    char tail = 0;
    if (text == NULL || strlen(text) != 38) return 0;
    if (sscanf(text, "{%8x-%4x-%4x-%2x%2x-%2x%2x%2x%2x%2x%2x}%c", &part[0], &part[1], &part[2], &part[3], &part[4],
               &part[5], &part[6], &part[7], &part[8], &part[9], &part[10], &tail) != 11) {
        return 0;
    }
    guid->Data1 = part[0];
    guid->Data2 = (uint16_t)part[1];
    guid->Data3 = (uint16_t)part[2];
    for (int i = 0; i < 8; ++i) guid->Data4[i] = (uint8_t)part[3 + i];
    return 1;
}

static inline void TempvoxVariantClear(TempvoxVariant* value)
{
    if (value->vt == TEMPVOX_VT_BSTR) free(value->bstrVal);
    memset(value, 0, sizeof *value);
}

/* The per-user registry the module registers itself in:
   $XDG_DATA_HOME/tempvox/registry, else ~/.local/share/tempvox/registry.
   Each key is a folder; its values are "name=value" lines in the file
   ".values" inside it, "@" naming the default value. */
static inline int TempvoxRegistryRoot(char* path, size_t size)
{
    const char* data = getenv("XDG_DATA_HOME");
    int written;
    if (data != NULL && data[0] == '/') {
        written = snprintf(path, size, "%s/tempvox/registry", data);
    } else {
        const char* home = getenv("HOME");
        written = snprintf(path, size, "%s/.local/share/tempvox/registry", home != NULL ? home : "");
    }
    return written > 0 && (size_t)written < size;
}

/* Reads value `name` of key `key` ("CLSID/{...}/InprocServer32"); 1 when found. */
static inline int TempvoxRegistryRead(const char* key, const char* name, char* value, size_t size)
{
    char root[4096];
    char file[8192];
    char line[4096];
    size_t nameLength = strlen(name);
    FILE* stream;
    int found = 0;
    if (!TempvoxRegistryRoot(root, sizeof root)) return 0;
    if (snprintf(file, sizeof file, "%s/%s/.values", root, key) >= (int)sizeof file) return 0;
    stream = fopen(file, "r");
    if (stream == NULL) return 0;
    while (!found && fgets(line, sizeof line, stream) != NULL) {
        if (strncmp(line, name, nameLength) != 0 || line[nameLength] != '=') continue;
        line[strcspn(line, "\n")] = '\0';
        found = snprintf(value, size, "%s", line + nameLength + 1) < (int)size;
    }
    fclose(stream);
    return found;
}

/* A control made by TempvoxCreateControl: the loaded module and the
   control's dispatch interface (one reference). */
typedef struct TempvoxActivation {
    void* module;
    ITempvoxDispatch* control;
} TempvoxActivation;

/* Creates the control registered under a ProgID ("TEMPVOX.TempvoxCtrl.1")
   or a braced class id: finds its module in the registry, loads it and asks
   its class factory. */
static inline TVHRESULT TempvoxCreateControl(const char* name, TempvoxActivation* activation)
{
    char clsidText[64];
    char key[128];
    char modulePath[4096];
    TempvoxGuid clsid;
    TempvoxDllGetClassObjectFn getClassObject;
    TempvoxDllCanUnloadNowFn canUnloadNow;
    ITempvoxClassFactory* factory = NULL;
    TVHRESULT hr;

    activation->module = NULL;
    activation->control = NULL;
    if (name == NULL) return TEMPVOX_E_INVALIDARG;
    if (name[0] == '{') {
        snprintf(clsidText, sizeof clsidText, "%s", name);
    } else {
        /* A ProgID names one key: nothing that could reach outside the registry. */
        if (name[0] == '.' || strchr(name, '/') != NULL || strlen(name) > 100) return TEMPVOX_REGDB_E_CLASSNOTREG;
        snprintf(key, sizeof key, "%s/CLSID", name);
        if (!TempvoxRegistryRead(key, "@", clsidText, sizeof clsidText)) return TEMPVOX_REGDB_E_CLASSNOTREG;
    }
    if (!TempvoxGuidFromString(clsidText, &clsid)) return TEMPVOX_REGDB_E_CLASSNOTREG;
    TempvoxGuidToString(&clsid, clsidText);
    snprintf(key, sizeof key, "CLSID/%s/InprocServer32", clsidText);
    if (!TempvoxRegistryRead(key, "@", modulePath, sizeof modulePath)) return TEMPVOX_REGDB_E_CLASSNOTREG;

    activation->module = dlopen(modulePath, RTLD_NOW | RTLD_LOCAL);
    if (activation->module == NULL) return TEMPVOX_CO_E_DLLNOTFOUND;
    getClassObject = (TempvoxDllGetClassObjectFn)dlsym(activation->module, "DllGetClassObject");
    canUnloadNow = (TempvoxDllCanUnloadNowFn)dlsym(activation->module, "DllCanUnloadNow");
    hr = getClassObject != NULL ? getClassObject(&clsid, &TEMPVOX_IID_ClassFactory, (void**)&factory)
                                : TEMPVOX_CO_E_DLLNOTFOUND;
    if (TEMPVOX_SUCCEEDED(hr)) {
        hr = factory->lpVtbl->CreateInstance(factory, NULL, &TEMPVOX_IID_Dispatch, (void**)&activation->control);
        factory->lpVtbl->Release(factory);
    }
    if (TEMPVOX_FAILED(hr)) {
        activation->control = NULL;
        if (canUnloadNow == NULL || canUnloadNow() == TEMPVOX_S_OK) dlclose(activation->module);
        activation->module = NULL;
    }
    return hr;
}

/* Releases the control, and unloads the module once nothing of it is
   left. Release every other interface of the control before this. */
static inline void TempvoxDestroyControl(TempvoxActivation* activation)
{
    TempvoxDllCanUnloadNowFn canUnloadNow;
    if (activation->control != NULL) activation->control->lpVtbl->Release(activation->control);
    activation->control = NULL;
    if (activation->module == NULL) return;
    canUnloadNow = (TempvoxDllCanUnloadNowFn)dlsym(activation->module, "DllCanUnloadNow");
    /* Still in use elsewhere: the module stays loaded rather than pull code
       from under a live object. */
    if (canUnloadNow != NULL && canUnloadNow() == TEMPVOX_S_OK) dlclose(activation->module);
    activation->module = NULL;
}

#ifdef __cplusplus
}
#endif

#endif /* TEMPVOX_HOST_H */

/*
 * Plays a recording through the Tempvox control at a changed speed and
 * prints every event the control fires.
 *
 *   play_at_speed FILE.wav [--level N] [--refined] [--sentence N] [--audio DEVICE] [--module PATH]
 *
 * --sentence N finds the sentences of the file and plays only sentence N
 * (counted from 0), which pauses at its end.
 *
 * Without --module the control is found through the per-user registry
 * (run `tempvox regsvr /path/to/libtempvox.so` once). DEVICE is "default",
 * "alsa", "null", "manual" or "capture:OUT.wav".
 */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "tempvox/host.h"

enum {
    EVENT_PLAY_COMPLETE = 1,
    EVENT_PLAY_ONE_SENTENCE_COMPLETED = 4,
};

static ITempvoxTypeInfo* g_events;
static int g_completed;
static int g_sentenceDone;

static void PrintEvent(void* context, int32_t dispid, const TempvoxDispParams* params)
{
    (void)context;
    uint32_t count = 0;
    if (dispid == EVENT_PLAY_COMPLETE) g_completed = 1;
    if (dispid == EVENT_PLAY_ONE_SENTENCE_COMPLETED) g_sentenceDone = 1;
    g_events->lpVtbl->GetFuncCount(g_events, &count);
    for (uint32_t i = 0; i < count; ++i) {
        TempvoxFuncDesc desc;
        g_events->lpVtbl->GetFuncDesc(g_events, i, &desc);
        if (desc.memid != dispid) continue;
        printf("event %s", desc.name);
        /* The arguments arrive last first. */
        for (uint32_t a = 0; a < params->cArgs && a < desc.paramCount; ++a) {
            const TempvoxVariant* value = &params->rgvarg[params->cArgs - 1 - a];
            if (value->vt == TEMPVOX_VT_R4) {
                printf(" %s=%g", desc.paramNames[a], value->fltVal);
            } else {
                printf(" %s=%d", desc.paramNames[a], (int)value->lVal);
            }
        }
        printf("\n");
        fflush(stdout);
        return;
    }
    printf("event #%d\n", (int)dispid);
}

static TVHRESULT Call(ITempvoxDispatch* control, int32_t id, TempvoxVariant* reversedArgs, uint32_t count,
                      TempvoxVariant* result)
{
    TempvoxDispParams params = {reversedArgs, NULL, count, 0};
    TempvoxExcepInfo failure;
    memset(&failure, 0, sizeof failure);
    TVHRESULT hr = control->lpVtbl->Invoke(control, id, &TEMPVOX_IID_Unknown, 0, TEMPVOX_DISPATCH_METHOD, &params,
                                           result, &failure, NULL);
    if (TEMPVOX_FAILED(hr)) fprintf(stderr, "member %d failed (0x%08X): %s\n", (int)id, (unsigned)hr, failure.description);
    return hr;
}

static int32_t CallWithLong(ITempvoxDispatch* control, int32_t id, int32_t argument)
{
    TempvoxVariant value;
    TempvoxVariant result;
    memset(&value, 0, sizeof value);
    memset(&result, 0, sizeof result);
    value.vt = TEMPVOX_VT_I4;
    value.lVal = argument;
    if (TEMPVOX_FAILED(Call(control, id, &value, 1, &result))) return -1;
    return result.vt == TEMPVOX_VT_BOOL ? result.boolVal : result.lVal;
}

/* Pumps (or, on the manual device, steps) until `*flag` is set. */
static void WaitFor(ITempvoxHostServices* services, const char* device, int32_t event, const int* flag,
                    uint32_t timeoutMs)
{
    if (strcmp(device, "manual") == 0) {
        /* Nothing plays by itself: each step completes one buffer. */
        uint32_t stepped = 1;
        while (!*flag && stepped > 0) services->lpVtbl->StepDevice(services, 1, &stepped);
    } else if (!*flag) {
        services->lpVtbl->PumpUntilEvent(services, event, timeoutMs);
    }
}

/* Finds the sentences and plays one; 0 when it played to its end and play
   stands paused there. */
static int PlayOneSentence(ITempvoxDispatch* control, ITempvoxHostServices* services, const char* device,
                           int32_t index)
{
    /* 0: the default minimum pause, 300 ms. */
    int32_t count = CallWithLong(control, TEMPVOX_DISPID_FindSentences, 0);
    if (count <= index) {
        fprintf(stderr, "found %d sentences (code %d): no sentence %d\n", count > 0 ? (int)count : 0, (int)count,
                (int)index);
        return 1;
    }
    int32_t start = CallWithLong(control, TEMPVOX_DISPID_GetSentenceStart, index);
    int32_t end = CallWithLong(control, TEMPVOX_DISPID_GetSentenceEnd, index);
    printf("sentence %d of %d: %d to %d ms\n", (int)index, (int)count, (int)start, (int)end);
    fflush(stdout);
    if (!CallWithLong(control, TEMPVOX_DISPID_PlaySentence, index)) return 1;
    WaitFor(services, device, EVENT_PLAY_ONE_SENTENCE_COMPLETED, &g_sentenceDone, (uint32_t)(end - start) * 3 + 5000);
    TempvoxVariant result;
    memset(&result, 0, sizeof result);
    Call(control, TEMPVOX_DISPID_GetPlayerState, NULL, 0, &result);
    printf("%s\n", result.iVal == 2 ? "paused" : "not paused");
    return g_sentenceDone && result.iVal == 2 ? 0 : 1;
}

/* Loads a module file directly, without the registry. */
static TVHRESULT CreateFromModule(const char* path, TempvoxActivation* activation)
{
    ITempvoxClassFactory* factory = NULL;
    TempvoxDllGetClassObjectFn getClassObject;
    TVHRESULT hr;
    activation->control = NULL;
    activation->module = dlopen(path, RTLD_NOW | RTLD_LOCAL);
    if (activation->module == NULL) {
        fprintf(stderr, "%s\n", dlerror());
        return TEMPVOX_CO_E_DLLNOTFOUND;
    }
    getClassObject = (TempvoxDllGetClassObjectFn)dlsym(activation->module, "DllGetClassObject");
    if (getClassObject == NULL) return TEMPVOX_CO_E_DLLNOTFOUND;
    hr = getClassObject(&TEMPVOX_CLSID_Tempvox, &TEMPVOX_IID_ClassFactory, (void**)&factory);
    if (TEMPVOX_FAILED(hr)) return hr;
    hr = factory->lpVtbl->CreateInstance(factory, NULL, &TEMPVOX_IID_Dispatch, (void**)&activation->control);
    factory->lpVtbl->Release(factory);
    return hr;
}

int main(int argc, char** argv)
{
    const char* file = NULL;
    const char* modulePath = NULL;
    const char* device = "default";
    int level = 20;
    int profile = TEMPVOX_PROFILE_CLASSIC;
    int sentence = -1;
    for (int i = 1; i < argc; ++i) {
        if (strcmp(argv[i], "--level") == 0 && i + 1 < argc) {
            level = atoi(argv[++i]);
        } else if (strcmp(argv[i], "--audio") == 0 && i + 1 < argc) {
            device = argv[++i];
        } else if (strcmp(argv[i], "--sentence") == 0 && i + 1 < argc) {
            sentence = atoi(argv[++i]);
        } else if (strcmp(argv[i], "--refined") == 0) {
            profile = TEMPVOX_PROFILE_REFINED;
        } else if (strcmp(argv[i], "--module") == 0 && i + 1 < argc) {
            modulePath = argv[++i];
        } else if (file == NULL) {
            file = argv[i];
        } else {
            file = NULL;
            break;
        }
    }
    if (file == NULL) {
        fprintf(stderr, "usage: %s FILE.wav [--level N] [--refined] [--sentence N] [--audio DEVICE] [--module PATH]\n",
                argv[0]);
        return 2;
    }

    TempvoxActivation activation;
    TVHRESULT hr = modulePath != NULL ? CreateFromModule(modulePath, &activation)
                                      : TempvoxCreateControl(TEMPVOX_PROGID_CONTROL, &activation);
    if (TEMPVOX_FAILED(hr)) {
        fprintf(stderr, "cannot create the control (0x%08X)\n", (unsigned)hr);
        return 1;
    }
    ITempvoxDispatch* control = activation.control;
    ITempvoxHostServices* services = NULL;
    ITempvoxConnectionPoint* connection = NULL;
    control->lpVtbl->QueryInterface(control, &TEMPVOX_IID_HostServices, (void**)&services);
    control->lpVtbl->QueryInterface(control, &TEMPVOX_IID_ConnectionPoint, (void**)&connection);
    if (services == NULL || connection == NULL) {
        fprintf(stderr, "the control lacks an interface\n");
        return 1;
    }
    if (TEMPVOX_FAILED(services->lpVtbl->SetAudioDevice(services, device))) {
        fprintf(stderr, "unknown audio device '%s'\n", device);
        return 2;
    }
    connection->lpVtbl->GetEventTypeInfo(connection, &g_events);
    TempvoxEventSink sink = {PrintEvent, NULL};
    uint32_t cookie = 0;
    connection->lpVtbl->Advise(connection, &sink, &cookie);

    int status = 1;
    TempvoxVariant args[3];
    TempvoxVariant result;
    memset(args, 0, sizeof args);
    memset(&result, 0, sizeof result);
    /* SetPlayFilePath(strHttpAddress, httpPort_id, strFilePath), last first. */
    args[0].vt = TEMPVOX_VT_BSTR;
    args[0].bstrVal = (char*)file;
    args[1].vt = TEMPVOX_VT_I2;
    args[1].iVal = -1;
    args[2].vt = TEMPVOX_VT_BSTR;
    args[2].bstrVal = NULL;
    if (TEMPVOX_SUCCEEDED(Call(control, TEMPVOX_DISPID_SetPlayFilePath, args, 3, &result)) && result.boolVal) {
        TempvoxVariant speed;
        memset(&speed, 0, sizeof speed);
        speed.vt = TEMPVOX_VT_I2;
        speed.iVal = (int16_t)level;
        Call(control, TEMPVOX_DISPID_SetChangeSpeedLevel, &speed, 1, NULL);
        /* The refined profile changes the tempo exactly, channels apart. */
        TempvoxVariant profileValue;
        memset(&profileValue, 0, sizeof profileValue);
        profileValue.vt = TEMPVOX_VT_I2;
        profileValue.iVal = (int16_t)profile;
        Call(control, TEMPVOX_DISPID_SetPlaybackProfile, &profileValue, 1, NULL);
        Call(control, TEMPVOX_DISPID_GetPlaybackProfile, NULL, 0, &result);
        int activeProfile = result.iVal;
        if (sentence >= 0) {
            status = PlayOneSentence(control, services, device, sentence);
            Call(control, TEMPVOX_DISPID_StopPlay, NULL, 0, NULL);
        } else if (TEMPVOX_SUCCEEDED(Call(control, TEMPVOX_DISPID_StartPlay, NULL, 0, &result)) && result.boolVal) {
            Call(control, TEMPVOX_DISPID_GetTotalPlayTime, NULL, 0, &result);
            int32_t totalMs = result.lVal;
            printf("playing %s (%d ms) at speed level %d, profile %d\n", file, (int)totalMs, level, activeProfile);
            fflush(stdout);
            /* At the slowest level play takes 2.5 times as long. */
            WaitFor(services, device, EVENT_PLAY_COMPLETE, &g_completed, (uint32_t)totalMs * 3 + 5000);
            status = g_completed ? 0 : 1;
            Call(control, TEMPVOX_DISPID_StopPlay, NULL, 0, NULL);
        }
    } else {
        fprintf(stderr, "cannot open %s\n", file);
    }

    connection->lpVtbl->Unadvise(connection, cookie);
    g_events->lpVtbl->Release(g_events);
    connection->lpVtbl->Release(connection);
    services->lpVtbl->Release(services);
    TempvoxDestroyControl(&activation);
    return status;
}

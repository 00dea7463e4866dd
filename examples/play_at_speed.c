/*
 * Plays a recording through the Tempvox control at a changed speed and
 * prints every event the control fires.
 *
 *   play_at_speed FILE.wav [--level N] [--audio DEVICE] [--module PATH]
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
};

static ITempvoxTypeInfo* g_events;
static int g_completed;

static void PrintEvent(void* context, int32_t dispid, const TempvoxDispParams* params)
{
    (void)context;
    uint32_t count = 0;
    if (dispid == EVENT_PLAY_COMPLETE) g_completed = 1;
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
    for (int i = 1; i < argc; ++i) {
        if (strcmp(argv[i], "--level") == 0 && i + 1 < argc) {
            level = atoi(argv[++i]);
        } else if (strcmp(argv[i], "--audio") == 0 && i + 1 < argc) {
            device = argv[++i];
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
        fprintf(stderr, "usage: %s FILE.wav [--level N] [--refined] [--audio DEVICE] [--module PATH]\n", argv[0]);
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
        if (TEMPVOX_SUCCEEDED(Call(control, TEMPVOX_DISPID_StartPlay, NULL, 0, &result)) && result.boolVal) {
            Call(control, TEMPVOX_DISPID_GetTotalPlayTime, NULL, 0, &result);
            int32_t totalMs = result.lVal;
            printf("playing %s (%d ms) at speed level %d, profile %d\n", file, (int)totalMs, level, activeProfile);
            fflush(stdout);
            /* At the slowest level play takes 2.5 times as long. */
            uint32_t timeoutMs = (uint32_t)totalMs * 3 + 5000;
            if (strcmp(device, "manual") == 0) {
                /* Nothing plays by itself: each step completes one buffer. */
                uint32_t stepped = 1;
                while (!g_completed && stepped > 0) services->lpVtbl->StepDevice(services, 1, &stepped);
            } else if (!g_completed) {
                services->lpVtbl->PumpUntilEvent(services, EVENT_PLAY_COMPLETE, timeoutMs);
            }
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

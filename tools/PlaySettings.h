#pragma once
#include <string>
#include <vector>

#include "shell/TempvoxCtrl.h"

// What `play` and `render` share: the source, the settings a learner can
// give, and how they reach the control.
struct PlaySettings {
    std::string source;
    int level = 0;
    int volume = 100;
    bool loop = false;
    int loopStartMs = 0;
    int loopEndMs = 0;
    std::string noise;
    bool justPlay = false;
    // Our tools play in the refined profile unless asked for the classic one.
    bool classic = false;
    // The catalogue slot of the control's boxes and menu: from --lang, else
    // from the locale (tools/Language.h).
    short languageSlot = 0;
};

namespace CLI {
class App;
}

// Declares the source argument and the options `play`, `render` and `view`
// share on `app`; their values land in `settings` when it parses.
void AddPlaySettingsOptions(CLI::App& app, PlaySettings& settings);

// Names the source (a local path, or an http/ftp address split into server
// and path) and applies the settings through the control's members. 0, or
// the exit status of the failure after its reason was printed (a missing or
// unreadable file, not audio, a download refused or not connected).
int ApplyPlaySettings(CTempvoxCtrl& control, const PlaySettings& settings, const char* command);

// Says why StartPlay failed after the source was named, and gives the exit
// status: the file's fault when it is missing, unreadable or not audio (the
// engine loads it only now), else `deviceFailure`, the way out.
struct Failure;
int ReportStartFailure(CTempvoxCtrl& control, const PlaySettings& settings, const char* command,
                       const Failure& deviceFailure);

// Waits, pumping messages, until the buffers still queued when the end of
// play was told have been heard.
void WaitForPlayOut(CTempvoxCtrl& control);

std::string FormatMs(uint32_t ms);

// An http, https or ftp address rather than a local path.
bool IsRemoteSource(const std::string& source);

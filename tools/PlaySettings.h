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
};

// Takes the options both commands know from `args`, leaving the others in
// `rest`. False with a message on standard error for a bad value.
bool ParsePlaySettings(const std::vector<std::string>& args, PlaySettings& settings,
                       std::vector<std::string>& rest, const char* command);

// Names the source (a local path, or an http/ftp address split into server
// and path) and applies the settings through the control's members.
bool ApplyPlaySettings(CTempvoxCtrl& control, const PlaySettings& settings, const char* command);

// Waits, pumping messages, until the buffers still queued when the end of
// play was told have been heard.
void WaitForPlayOut(CTempvoxCtrl& control);

std::string FormatMs(uint32_t ms);

#pragma once
#include <string>
#include <vector>

#include "platform/WaveOut.h"

int RunPlayCommand(const std::vector<std::string>& args);
int RunHostCommand(const std::vector<std::string>& args);
int RunRenderCommand(const std::vector<std::string>& args);
int RunEncodeCommand(const std::vector<std::string>& args);
int RunViewCommand(const std::vector<std::string>& args);
int RunRegsvrCommand(const std::vector<std::string>& args);
int RunRateCommand(const std::vector<std::string>& args);
int RunSegmentsCommand(const std::vector<std::string>& args);

// Parses an --audio value ("alsa", "null", "manual", "capture:FILE").
// False with a message on standard error for anything else.
bool ParseAudioOption(const std::string& value, platform::AudioBackendConfig& config);
// The default device: ALSA when a card answers, else the null device with a
// one-line notice.
platform::AudioBackendConfig DefaultAudioBackend();

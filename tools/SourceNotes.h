#pragma once
#include <chrono>
#include <string>

#include "media/DecodedAudio.h"

// What the tools tell their user about the file they were given: a progress
// line on a terminal while a long file is downloaded or decoded, and
// afterwards why a file could not be decoded or why it plays less than it
// holds.

// The progress line, on standard error and only when that is a terminal.
// While it lives, the downloads of this thread report to it; its decoding
// callback stops the decoding when a termination signal came. The line is
// cleared when it goes.
class SourceProgressLine {
public:
    SourceProgressLine(const std::string& name, const char* command);
    ~SourceProgressLine();
    SourceProgressLine(const SourceProgressLine&) = delete;
    SourceProgressLine& operator=(const SourceProgressLine&) = delete;

    media::DecodeProgress DecodeCallback();
    void Clear();

private:
    bool ShowDecoding(double doneSeconds, double totalSeconds);
    void ShowDownload(uint64_t received, uint64_t total);
    void Print(const std::string& text);

    std::string m_name;
    std::string m_command;
    bool m_terminal;
    bool m_shown = false;
    std::chrono::steady_clock::time_point m_started = std::chrono::steady_clock::now();
    std::chrono::steady_clock::time_point m_lastDownloadLine{};
};

// Prints to standard error what `report` says beyond success: nothing for a
// file that needed no decoding or decoded whole.
void PrintDecodeNotes(const media::DecodeReport& report, const std::string& name, const char* command);

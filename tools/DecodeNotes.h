#pragma once
#include <string>

#include "media/DecodedAudio.h"

// What the tools tell their user about a file that had to be decoded: a
// progress line on a terminal while a long file is decoded, and afterwards
// why a file could not be decoded or why it plays less than it holds.

// A progress callback for the decoding: on standard error, only when that
// is a terminal and the file is longer than a few seconds. It stops the
// decoding when a termination signal came. The line is cleared at the end.
class DecodeProgressLine {
public:
    DecodeProgressLine(const std::string& name, const char* command);
    ~DecodeProgressLine();
    DecodeProgressLine(const DecodeProgressLine&) = delete;
    DecodeProgressLine& operator=(const DecodeProgressLine&) = delete;

    media::DecodeProgress Callback();
    void Clear();

private:
    bool Show(double doneSeconds, double totalSeconds);

    std::string m_name;
    std::string m_command;
    bool m_terminal;
    bool m_shown = false;
};

// Prints to standard error what `report` says beyond success: nothing for a
// file that needed no decoding or decoded whole.
void PrintDecodeNotes(const media::DecodeReport& report, const std::string& name, const char* command);

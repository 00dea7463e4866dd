#pragma once
// Why a tool could not do what it was asked, told in one line on standard
// error that names the file and the cause, with the exit status of its class
// (tools/ExitCodes.h).
#include <optional>
#include <string>

struct Failure {
    int exitCode;
    std::string reason;
};

// The formats the tools read, for a reason that says what would have worked.
extern const char* const kSupportedInputs;

// Why the local file at `path` cannot be read as an input: missing, not
// readable, a folder or not a regular file. Nothing when it can be opened.
std::optional<Failure> CheckInputFile(const std::string& path);

// Why `path` cannot be written as an output: its folder is missing, is not a
// folder, or is not writable. Nothing when a file can be made there.
std::optional<Failure> CheckOutputPath(const std::string& path);

// Prints "tempvox COMMAND: NAME: REASON" on standard error and gives the
// failure's exit status.
int ReportFailure(const char* command, const std::string& name, const Failure& failure);

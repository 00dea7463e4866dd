#pragma once
// How every subcommand takes its arguments: options declared on a CLI11
// application, in any order around the files, as `--opt value` or
// `--opt=value`, with `--` ending the options.
#include <CLI/CLI.hpp>

#include <optional>
#include <string>
#include <vector>

// A command's parser, named "tempvox COMMAND" so that its help and its
// errors say which command they are about.
void SetUpCommand(CLI::App& app, const std::string& footer = "");

// Parses `args` (the words after the command's name). Nothing when the
// command should go on; otherwise the status to exit with: 0 after -h or
// --help (the help on standard output), kExitUsage after a missing value, an
// unknown option or a bad value (one line on standard error).
std::optional<int> ParseCommandLine(CLI::App& app, const std::vector<std::string>& args);

// For a check made after parsing: prints "tempvox COMMAND: message" and a
// pointer to the help on standard error, and gives kExitUsage.
int UsageError(const CLI::App& app, const std::string& message);

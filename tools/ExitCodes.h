#pragma once
// The tool's exit statuses, one for each class of failure, so that a script
// can tell a typing error from a missing file or a network outage without
// reading the message. 1 is left for failures of no other class.
constexpr int kExitOk = 0;
constexpr int kExitFailure = 1;
constexpr int kExitUsage = 2;        // bad option, missing value, missing file argument
constexpr int kExitCannotRead = 3;   // input missing or not readable
constexpr int kExitUnsupported = 4;  // input is not audio, or in a format we do not decode
constexpr int kExitDevice = 5;       // the sound device is absent or busy
constexpr int kExitNetwork = 6;      // HTTP error status or no connection
constexpr int kExitCannotWrite = 7;  // output folder missing or not writable

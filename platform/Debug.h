#pragma once
#include <functional>
#include <string>

// Debug output: off by default; a host switches it on by installing a sink,
// which then receives each text byte for byte, on the thread that wrote it.
void OutputDebugStringA(const char* text);

namespace platform {
using DebugSink = std::function<void(const std::string& text)>;
void SetDebugSink(DebugSink sink);
}  // namespace platform

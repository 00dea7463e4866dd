// The container's command language: each line of the input is read as
// `tempvox host` reads a line of its script, and a member line is turned
// into the call it names, without running it.
#include <cstdint>
#include <string>

#include "tools/HostScript.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const std::string text(reinterpret_cast<const char*>(data), size);
    size_t start = 0;
    while (start <= text.size()) {
        size_t end = text.find('\n', start);
        if (end == std::string::npos) end = text.size();
        std::string line = text.substr(start, end - start);
        if (!line.empty() && line.back() == '\r') line.pop_back();
        const hostscript::Line parsed = hostscript::ParseLine(line, 65536);
        if (parsed.kind == hostscript::Line::Command) {
            if (parsed.tokens.empty() || parsed.word.empty()) __builtin_trap();
            hostscript::MemberCall call;
            std::string error;
            if (hostscript::ReadMemberCall(parsed.tokens, call, error) && call.member == nullptr) __builtin_trap();
        }
        start = end + 1;
    }
    return 0;
}

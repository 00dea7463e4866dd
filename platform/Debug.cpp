#include "platform/Debug.h"

#include <memory>
#include <mutex>

namespace platform {
namespace {

struct DebugOutput {
    // Held while the sink runs, so that texts from several threads never
    // interleave and an uninstalled sink is no longer running once
    // SetDebugSink returns. Recursive: a sink may log or swap itself.
    std::recursive_mutex mutex;
    std::shared_ptr<const DebugSink> sink;
};

DebugOutput& Output()
{
    static DebugOutput* output = new DebugOutput;  // usable from static destructors
    return *output;
}

}  // namespace

void SetDebugSink(DebugSink sink)
{
    DebugOutput& output = Output();
    std::lock_guard lock(output.mutex);
    output.sink = sink ? std::make_shared<const DebugSink>(std::move(sink)) : nullptr;
}

}  // namespace platform

void OutputDebugStringA(const char* text)
{
    if (text == nullptr)
        return;
    auto& output = platform::Output();
    std::lock_guard lock(output.mutex);
    std::shared_ptr<const platform::DebugSink> sink = output.sink;
    if (sink)
        (*sink)(std::string(text));
}

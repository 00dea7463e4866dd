// The view's reading of a file: the private copy, the mapping and the walk
// over its chunks, then a paint that turns the numbers of the head into a
// ruler and a trace, in the classic or the refined drawing.
#include <cstdint>
#include <exception>

#include "fuzz/FuzzSupport.h"
#include "platform/Messages.h"
#include "platform/Window.h"
#include "view/WaveViewCtrl.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static const fuzzsupport::Scratch scratch("view");
    static CWaveViewCtrl* view = [] {
        fuzzsupport::AnswerBoxesQuietly();
        auto* made = new CWaveViewCtrl;
        // Small, so that a paint is cheap.
        if (!made->Create(ViewRect{0, 0, 64, 40}, CreateMessageWindow(nullptr))) std::abort();
        platform::PumpPendingMessages();
        return made;
    }();
    // Both readings of the mapping: the last byte picks the drawing, so
    // the refined walk and its column pass see the same heads.
    view->SetRefined(size > 0 && (data[size - 1] & 1) != 0);
    const std::string path = scratch.Write("shown.wav", data, size);
    try {
        view->AttachFile(path);
    } catch (const std::exception&) {
        // The view's refusals are exceptions, as a host sees them.
    }
    platform::PumpPendingMessages();
    return 0;
}

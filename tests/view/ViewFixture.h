#pragma once
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "platform/HostUi.h"
#include "platform/Messages.h"
#include "platform/Window.h"
#include "support/WavFiles.h"
#include "view/WaveViewCtrl.h"

namespace viewtest {

// How a test file's head is laid out around the samples.
struct Layout {
    uint32_t formatLength = 16;     // 18 adds a two-byte extension
    bool factChunk = false;         // "fact" with the sample count between fmt and data
    std::string chunkBeforeFormat;  // a whole chunk put ahead of "fmt "
};

inline std::string WaveBytes(const testwav::Format& format, const std::string& data, const Layout& layout = {})
{
    std::string bytes = testwav::RiffAndFormat(format, layout.formatLength);
    bytes.insert(12, layout.chunkBeforeFormat);
    if (layout.formatLength == 18)
        testwav::PutU16(bytes, 0);
    if (layout.factChunk) {
        bytes += "fact";
        testwav::PutU32(bytes, 4);
        testwav::PutU32(bytes, static_cast<uint32_t>(data.size() / format.BlockAlign()));
    }
    bytes += "data";
    testwav::PutU32(bytes, static_cast<uint32_t>(data.size()));
    bytes += data;
    const uint32_t riffLength = static_cast<uint32_t>(bytes.size() - 8);
    for (int i = 0; i < 4; ++i)
        bytes[4 + i] = static_cast<char>(riffLength >> (8 * i));
    return bytes;
}

inline testwav::Format Mono(uint32_t rate, uint16_t bits)
{
    testwav::Format format;
    format.samplesPerSec = rate;
    format.bitsPerSample = bits;
    return format;
}

// `count` samples of one value.
inline std::string Constant(uint16_t bits, uint32_t count, int value)
{
    if (bits == 8)
        return std::string(count, static_cast<char>(value));
    return testwav::Samples16(std::vector<int16_t>(count, static_cast<int16_t>(value)));
}

// Black, white and the trace's blue as the framebuffer holds them.
constexpr uint32_t kBlack = 0x000000;
constexpr uint32_t kWhite = 0xFFFFFF;
constexpr uint32_t kTrace = 0x005AB4;
constexpr uint32_t kTintOnBlack = 0x3DB04F;
constexpr uint32_t kTintOnTrace = 0x3DEAFB;

// A view in a parent window on this thread, with every box and dialogue
// answered from the script. The script is made first so that it outlives
// the view, whose end may still show a box.
class ViewFixture {
public:
    platform::ScriptedHostUi ui;
    HWND parent = CreateMessageWindow(nullptr);
    CWaveViewCtrl view;

    ViewFixture(int width, int height)
    {
        EXPECT_TRUE(view.Create(ViewRect{0, 0, width, height}, parent));
        platform::PumpPendingMessages();
    }
    ~ViewFixture() { DestroyWindow(parent); }

    HWND Window() const { return view.GetSafeHwnd(); }

    void Attach(const std::string& path)
    {
        view.AttachFile(path);
        platform::PumpPendingMessages();
    }

    uint32_t Pixel(int x, int y) const { return platform::WindowSurface(Window())->At(x, y); }
    int Width() const { return platform::WindowSurface(Window())->width; }
    int Height() const { return platform::WindowSurface(Window())->height; }

    LRESULT Mouse(UINT message, int x, WPARAM flags = MK_LBUTTON, int y = 100)
    {
        return SendMessageA(Window(), message, flags, MAKELPARAM(x, y));
    }

    // Button down at `from`, one move to `to` with the button held, up there.
    void Drag(int from, int to, WPARAM moveFlags = MK_LBUTTON)
    {
        Mouse(WM_LBUTTONDOWN, from);
        Mouse(WM_MOUSEMOVE, to, moveFlags);
        Mouse(WM_LBUTTONUP, to, 0);
        platform::PumpPendingMessages();
    }

    std::pair<int32_t, int32_t> SelectionPixels() const
    {
        int32_t start = 0;
        int32_t end = 0;
        view.GetSelectionPixels(start, end);
        return {start, end};
    }

    // Boxes shown with this text since the fixture began.
    int BoxesSaying(const std::string& text) const
    {
        int count = 0;
        for (const platform::MessageBoxRequest& box : ui.boxes)
            count += box.text == text;
        return count;
    }
};

}  // namespace viewtest

#pragma once
#include <cstddef>
#include <cstdint>

namespace platform {

// The player's keys: n, b, r and s are Next, Back, Repeat and StopEach;
// p Pause; [ ] Slower, Faster; { } Halve, Double; backspace TempoReset;
// 9 0 VolumeDown, VolumeUp; m Mute; l LoopPoint; ? Help; q and Esc Quit.
enum class Key {
    None, Space, Left, Right, Up, Down, Quit, Next, Back, Repeat, StopEach, Other,
    Pause, Slower, Faster, Halve, Double, TempoReset, VolumeDown, VolumeUp, Mute, LoopPoint, Help
};

bool IsTerminal(int fd);

// Puts standard input into single-key mode while it lives, when standard
// input is a terminal; restores it on destruction.
class RawKeyboard {
public:
    RawKeyboard();
    ~RawKeyboard();
    RawKeyboard(const RawKeyboard&) = delete;
    RawKeyboard& operator=(const RawKeyboard&) = delete;

    bool Active() const { return m_active; }
    // The next key, waiting at most `timeoutMs`; Key::None when none came.
    Key Read(uint32_t timeoutMs);

private:
    bool m_active = false;
    unsigned char m_saved[64] = {};
    unsigned char m_pending[64] = {};
    size_t m_pendingCount = 0;
};

// Takes the first key off `count` bytes that a terminal sent, removing its
// bytes; for the keyboard and its tests.
Key TakeKey(unsigned char* bytes, size_t& count);

}  // namespace platform

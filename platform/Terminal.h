#pragma once
#include <cstdint>

namespace platform {

enum class Key { None, Space, Left, Right, Up, Down, Quit, Other };

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
};

}  // namespace platform

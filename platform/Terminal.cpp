#include "platform/Terminal.h"

#include <cstring>
#include <poll.h>
#include <termios.h>
#include <unistd.h>

#include "platform/Termination.h"

namespace platform {

static_assert(sizeof(termios) <= 64, "saved terminal state must fit");

bool IsTerminal(int fd)
{
    return isatty(fd) == 1;
}

RawKeyboard::RawKeyboard()
{
    if (!IsTerminal(STDIN_FILENO)) return;
    termios state{};
    if (tcgetattr(STDIN_FILENO, &state) != 0) return;
    std::memcpy(m_saved, &state, sizeof state);
    RememberTerminalMode(&state, sizeof state);
    state.c_lflag &= static_cast<tcflag_t>(~(ICANON | ECHO));
    state.c_cc[VMIN] = 0;
    state.c_cc[VTIME] = 0;
    m_active = tcsetattr(STDIN_FILENO, TCSANOW, &state) == 0;
}

RawKeyboard::~RawKeyboard()
{
    if (!m_active) return;
    termios state{};
    std::memcpy(&state, m_saved, sizeof state);
    tcsetattr(STDIN_FILENO, TCSANOW, &state);
    ForgetTerminalMode();
}

Key RawKeyboard::Read(uint32_t timeoutMs)
{
    if (!m_active) return Key::None;
    pollfd input{STDIN_FILENO, POLLIN, 0};
    if (poll(&input, 1, static_cast<int>(timeoutMs)) <= 0) return Key::None;
    unsigned char bytes[8] = {};
    ssize_t got = read(STDIN_FILENO, bytes, sizeof bytes);
    if (got <= 0) return Key::None;
    if (bytes[0] == ' ') return Key::Space;
    if (bytes[0] == 'q' || bytes[0] == 'Q') return Key::Quit;
    // Arrow keys arrive as ESC [ A..D.
    if (got >= 3 && bytes[0] == 0x1b && bytes[1] == '[') {
        switch (bytes[2]) {
        case 'A': return Key::Up;
        case 'B': return Key::Down;
        case 'C': return Key::Right;
        case 'D': return Key::Left;
        default: break;
        }
    }
    return Key::Other;
}

}  // namespace platform

#include "platform/Terminal.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using platform::Key;

// What a terminal sends when keys come faster than they are read: several
// keys in one read, each to be taken in turn.
TEST(Terminal, KeysThatArriveTogetherAreEachTaken)
{
    struct Case {
        const char* name;
        std::string bytes;
        std::vector<Key> keys;
    };
    const Case cases[] = {
        {"one space", " ", {Key::Space}},
        {"two Right presses", "\x1b[C\x1b[C", {Key::Right, Key::Right}},
        {"up, space, down", "\x1b[A \x1b[B", {Key::Up, Key::Space, Key::Down}},
        {"a lone escape, then q", "\x1bq", {Key::Other, Key::Quit}},
        {"an unknown sequence is one key", "\x1b[Zq", {Key::Other, Key::Quit}},
        {"the sentence keys, either case", "nbrsNBRSx", {Key::Next, Key::Back, Key::Repeat, Key::StopEach, Key::Next,
                                                       Key::Back, Key::Repeat, Key::StopEach, Key::Other}},
        {"the player's other keys, as a terminal sends them", "p[]{}\x7f\x08" "90ml?",
         {Key::Pause, Key::Slower, Key::Faster, Key::Halve, Key::Double, Key::TempoReset, Key::TempoReset,
          Key::VolumeDown, Key::VolumeUp, Key::Mute, Key::LoopPoint, Key::Help}},
        {"escape alone in its read quits", "\x1b", {Key::Quit}},
        {"left, then slower and faster together", "\x1b[D[]", {Key::Left, Key::Slower, Key::Faster}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        std::vector<unsigned char> bytes(c.bytes.begin(), c.bytes.end());
        size_t count = bytes.size();
        std::vector<Key> taken;
        while (count > 0) taken.push_back(platform::TakeKey(bytes.data(), count));
        EXPECT_EQ(taken, c.keys);
    }
}

#include <cstdio>
#include <string>
#include <vector>

#include "platform/Termination.h"
#include "tools/CommandLine.h"
#include "tools/Commands.h"
#include "tools/ExitCodes.h"

namespace {

const char* kUsage =
    "usage: tempvox [-h] [-V] COMMAND [ARGS...]   ('tempvox COMMAND --help' for a command's options)\n"
    "  play FILE|URL      play a recording to its end, with keys on a terminal\n"
    "  render IN OUT      write what would be played (.wav .mp3 .m4a .ogg .opus .flac, by OUT's extension)\n"
    "  view FILE|URL -o OUT.png\n"
    "                     draw the waveform view to a PNG\n"
    "  segments FILE      list the sentences of a recording\n"
    "  rate FILE.wav      syllables per second and words per minute\n"
    "  encode IN.wav OUT.wzq\n"
    "                     encode 16-bit PCM as wzq\n"
    "  regsvr [-u] MODULE register (-u: unregister) a control module\n"
    "  host               run the test container\n";

using Command = int (*)(const std::vector<std::string>&);

struct CommandEntry {
    const char* name;
    Command run;
    // Plays, fetches or writes: cleans up on Ctrl-C, SIGTERM and SIGHUP as
    // on a normal end.
    bool catchesSignals;
};

constexpr CommandEntry kCommands[] = {
    {"play", RunPlayCommand, true},         {"render", RunRenderCommand, true},
    {"host", RunHostCommand, true},         {"view", RunViewCommand, true},
    {"encode", RunEncodeCommand, false},    {"regsvr", RunRegsvrCommand, false},
    {"segments", RunSegmentsCommand, false}, {"rate", RunRateCommand, false},
};

}  // namespace

int main(int argc, char** argv)
{
    CLI::App app{"", "tempvox"};
    app.set_help_flag("-h,--help");
    app.set_version_flag("-V,--version", std::string("tempvox ") + TEMPVOX_VERSION);
    // Everything from the command's name on is the command's own.
    app.prefix_command();
    try {
        app.parse(argc, argv);
    } catch (const CLI::CallForHelp&) {
        std::fputs(kUsage, stdout);
        return kExitOk;
    } catch (const CLI::CallForVersion& version) {
        std::printf("%s\n", version.what());
        return kExitOk;
    } catch (const CLI::ParseError& error) {
        std::fprintf(stderr, "tempvox: %s\n%s", error.what(), kUsage);
        return kExitUsage;
    }
    std::vector<std::string> words = app.remaining();
    if (words.empty()) {
        std::fputs(kUsage, stderr);
        return kExitUsage;
    }
    const std::string command = words.front();
    const std::vector<std::string> args(words.begin() + 1, words.end());
    if (command == "help") {
        std::fputs(kUsage, stdout);
        return kExitOk;
    }
    for (const CommandEntry& entry : kCommands) {
        if (command != entry.name) continue;
        if (entry.catchesSignals) platform::CatchTerminationSignals();
        return entry.run(args);
    }
    std::fprintf(stderr, "tempvox: unknown command '%s'\n%s", command.c_str(), kUsage);
    return kExitUsage;
}

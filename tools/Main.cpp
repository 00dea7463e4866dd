#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "platform/Termination.h"
#include "tools/Commands.h"

namespace {

void PrintUsage()
{
    std::fprintf(stderr,
                 "usage: tempvox <command> [arguments]\n"
                 "  play FILE|URL [--level N] [--volume N] [--loop START END] [--noise FILE] [--just-play] [--classic]\n"
                 "       [--audio alsa|null|capture:OUT.wav]        play a recording to its end\n"
                 "  render IN OUT [--level N] [--volume N] [--noise FILE] [--just-play] [--classic] [--bitrate N[k]]\n"
                 "                                                  write what would be played (.wav .mp3\n"
                 "                                                  .m4a .ogg .opus .flac, by OUT's extension)\n"
                 "  host [--audio ...] [--clock real|manual] [--debug] [--script FILE]\n"
                 "                                                  run the test container\n"
                 "  encode IN.wav OUT.wzq [--variant ZQ|ZR] [--frame-bytes N]\n"
                 "                                                  encode 16-bit PCM as wzq\n"
                 "  view FILE|URL -o OUT.png [--size WxH] [--classic]\n"
                 "                                                  draw the waveform view to a PNG\n"
                 "  segments FILE [--min-pause MS] [--format json|srt|vtt|labels]\n"
                 "                                                  list the sentences of a recording\n"
                 "  regsvr [-u] [-s] MODULE                         register (-u: unregister) a control module\n"
                 "  rate FILE.wav [--per-sentence] [--syllables-per-word R]\n"
                 "                                                  syllables per second and words per minute\n");
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc < 2) {
        PrintUsage();
        return 2;
    }
    std::string command = argv[1];
    std::vector<std::string> args(argv + 2, argv + argc);
    // Every command that plays, fetches or writes cleans up on Ctrl-C,
    // SIGTERM and SIGHUP as on a normal end.
    if (command == "play" || command == "host" || command == "render" || command == "view")
        platform::CatchTerminationSignals();
    if (command == "play") return RunPlayCommand(args);
    if (command == "host") return RunHostCommand(args);
    if (command == "render") return RunRenderCommand(args);
    if (command == "encode") return RunEncodeCommand(args);
    if (command == "view") return RunViewCommand(args);
    if (command == "regsvr") return RunRegsvrCommand(args);
    if (command == "segments") return RunSegmentsCommand(args);
    if (command == "rate") return RunRateCommand(args);
    if (command == "--help" || command == "-h" || command == "help") {
        PrintUsage();
        return 0;
    }
    std::fprintf(stderr, "tempvox: unknown command '%s'\n", command.c_str());
    PrintUsage();
    return 2;
}

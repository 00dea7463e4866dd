#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "tools/Commands.h"

namespace {

void PrintUsage()
{
    std::fprintf(stderr,
                 "usage: tempvox <command> [arguments]\n"
                 "  play FILE [--audio alsa|null|capture:OUT.wav]   play a .wav file to its end\n"
                 "  host [--audio ...] [--clock real|manual] [--debug] [--script FILE]\n"
                 "                                                  run the test container\n"
                 "  encode IN.wav OUT.wzq [--variant ZQ|ZR] [--frame-bytes N]\n"
                 "                                                  encode 16-bit PCM as wzq\n"
                 "  view FILE -o OUT.png [--size WxH]               draw the waveform view to a PNG\n");
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
    if (command == "play") return RunPlayCommand(args);
    if (command == "host") return RunHostCommand(args);
    if (command == "encode") return RunEncodeCommand(args);
    if (command == "view") return RunViewCommand(args);
    if (command == "--help" || command == "-h" || command == "help") {
        PrintUsage();
        return 0;
    }
    std::fprintf(stderr, "tempvox: unknown command '%s'\n", command.c_str());
    PrintUsage();
    return 2;
}

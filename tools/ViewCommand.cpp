#include <cstdio>

#include "tools/Commands.h"

int RunViewCommand(const std::vector<std::string>&)
{
    std::fprintf(stderr, "tempvox view: the waveform view is not built yet\n");
    return 2;
}

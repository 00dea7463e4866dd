#include <cstdio>

#include "tools/Commands.h"

int RunEncodeCommand(const std::vector<std::string>&)
{
    std::fprintf(stderr, "tempvox encode: the wzq encoder is not built yet\n");
    return 2;
}

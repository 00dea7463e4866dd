#include "tools/CommandLine.h"

#include <algorithm>
#include <cstdio>

#include "tools/ExitCodes.h"

void SetUpCommand(CLI::App& app, const std::string& footer)
{
    app.set_help_flag("-h,--help", "print this help and exit");
    if (!footer.empty()) app.footer(footer);
    app.get_formatter()->column_width(34);
}

std::optional<int> ParseCommandLine(CLI::App& app, const std::vector<std::string>& args)
{
    // CLI11 takes the words last first.
    std::vector<std::string> reversed(args.rbegin(), args.rend());
    try {
        app.parse(reversed);
    } catch (const CLI::CallForHelp&) {
        std::string help = app.help();
        if (help.empty() || help.back() != '\n') help += '\n';
        std::fputs(help.c_str(), stdout);
        return kExitOk;
    } catch (const CLI::ParseError& error) {
        return UsageError(app, error.what());
    }
    return std::nullopt;
}

int UsageError(const CLI::App& app, const std::string& message)
{
    std::fprintf(stderr, "%s: %s (see '%s --help')\n", app.get_name().c_str(), message.c_str(),
                 app.get_name().c_str());
    return kExitUsage;
}

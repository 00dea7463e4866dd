#pragma once
#include <string>
#include <vector>

namespace platform {

// Names (not paths) of the plain files in `folder` that match `wildcard`,
// where '*' stands for any run of characters and '?' for one. Order: as the
// folder lists them.
enum class MatchCase { Exact, Ignore };
std::vector<std::string> FindFiles(const std::string& folder, const std::string& wildcard,
                                   MatchCase matchCase = MatchCase::Exact);

// Removes an empty folder.
bool RemoveDirectory(const std::string& path);

}  // namespace platform

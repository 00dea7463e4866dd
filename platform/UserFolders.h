#pragma once
#include <string>

namespace platform {

// The user's cache folder, without a trailing '/': $XDG_CACHE_HOME when it
// is an absolute path, else $HOME/.cache, else the home folder of the
// user's password entry + "/.cache"; empty when none is known.
std::string UserCacheHome();

// Makes `path` and every missing folder above it; true when it stands as
// a folder afterwards.
bool CreateDirectories(const std::string& path);

}  // namespace platform

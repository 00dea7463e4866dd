#pragma once
#include <cstdint>
#include <string>

// The heavy libraries (GTK, FFmpeg's, libcurl) live in plugins that are
// loaded the first time something needs them, so that a tool run that needs
// none of them (--help, a render of a .wav) neither maps nor relocates them.
//
// A plugin is a shared object with one C entry, tempvox_plugin_table, that
// returns a table of function pointers starting with a PluginHeader. The
// members of a table may use the project's own C++ types: plugins are built
// by the same tree and compiler as the code that loads them and installed
// beside it. The header's version, size and compiler stamp are checked, so
// a plugin left over from another build is refused instead of called.
//
// Plugins are looked for, in order, in the folder of the object that holds
// this loader (the tool, a test, or libtempvox.so), in its tempvox/ folder,
// in its <libdir>/tempvox/ folder (the build tree), and in ../<libdir>/tempvox/
// (an installed /usr/bin/tempvox). A loaded plugin stays loaded until the
// process ends. Any thread may call.

namespace platform {

struct PluginHeader {
    uint32_t version;   // of the table's layout; bumped with every change to it
    uint32_t size;      // sizeof the whole table
    const char* build;  // kPluginBuild of the plugin's compiler
};

// Code compiled by another compiler may lay the C++ types out otherwise.
inline constexpr const char* kPluginBuild = __VERSION__;

// The header of the table that plugin `fileName` (e.g. "tempvox-curl.so")
// gives, if its version and size are the ones asked for; otherwise null with
// `error` saying which file was missing or why it was refused. The first
// call loads the plugin; later calls answer from memory, failures included.
const PluginHeader* LoadPlugin(const char* fileName, uint32_t version, uint32_t size, std::string& error);

template <class Table>
const Table* LoadPluginTable(const char* fileName, uint32_t version, std::string& error)
{
    return reinterpret_cast<const Table*>(LoadPlugin(fileName, version, sizeof(Table), error));
}

}  // namespace platform

// The one symbol a plugin exports.
extern "C" const platform::PluginHeader* tempvox_plugin_table();

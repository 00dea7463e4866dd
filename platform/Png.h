#pragma once
#include <string>

#include "platform/Gdi.h"

namespace platform {
// Writes the pixels as an 8-bit RGB PNG. False when the file can't be
// written or the picture is empty.
bool WritePng(const std::string& path, const Framebuffer& picture);
// Reads an 8-bit RGB or RGBA PNG back (alpha dropped); false otherwise.
bool ReadPng(const std::string& path, Framebuffer& picture);
}  // namespace platform

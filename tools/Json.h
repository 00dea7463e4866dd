#pragma once
#include <string>

// Minimal JSON writing for the tools' line output.
std::string JsonString(const std::string& text);
std::string JsonNumber(double value);

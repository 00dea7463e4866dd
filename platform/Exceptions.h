#pragma once
#include <stdexcept>
#include <string>

// The file and archive failures that the automation layer, not the caller,
// turns into an error for the host.
class CFileException : public std::runtime_error {
public:
    explicit CFileException(const std::string& path) : std::runtime_error("cannot open file: " + path) {}
};

class CArchiveException : public std::runtime_error {
public:
    explicit CArchiveException(const std::string& what) : std::runtime_error(what) {}
};

#pragma once
#include <string>

// Files that this process made for its own use: the .wav converted from an
// encoded file, the view's private copy, a finished download. The rule that
// keeps a user's files safe rests here: such a file is only ever made where
// nothing stood before, and only a file recorded here, and still the same
// file (device and inode) as when it was recorded, is ever deleted.
//
// Every function is thread-safe. Paths are taken as given; a path is the
// same file as another when both name the same device and inode.
namespace platform {

// Makes a new empty file at `path`, failing when anything already stands
// there or the folder refuses; on success the file is recorded as owned.
bool CreateOwnedFile(const std::string& path);

// Makes a new empty file for the process's own use, preferably at
// `preferred`. That place is taken when nothing stands there and its folder
// can be written, or when what stands there is already this process's own
// (it is then reused, emptied). Otherwise the file goes into
// `fallbackFolder` (ending in '/') as "STEM-N.EXT", the first N from 1 that
// is free. The path used, or empty when neither place can be written.
std::string CreateOwnedFileNear(const std::string& preferred, const std::string& fallbackFolder);

// Records a file that this process made some other way.
void RecordOwnedFile(const std::string& path);

// True while `path` is recorded and still names the file that was recorded.
bool IsOwnedFile(const std::string& path);

// Deletes `path` when it is owned and forgets it. False when it is not
// owned (nothing is touched) or the deletion failed.
bool DeleteOwnedFile(const std::string& path);

// True when files can be made in `folder` by this process.
bool IsWritableFolder(const std::string& folder);

// The folder part of `path` with its trailing '/', or "" for a bare name.
std::string FolderOfPath(const std::string& path);

}  // namespace platform

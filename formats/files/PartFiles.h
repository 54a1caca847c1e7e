#pragma once

#include <string>

/// Files and folders that are being written under a name of their own and must not be left behind
/// by a process that a signal ends. Any thread.
namespace gk::formats {

/// Takes note of a file. One that finds no room in the list is not remembered.
void rememberPartFile(const std::string& path) noexcept;
void forgetPartFile(const std::string& path) noexcept;

/// Removes all files that are taken note of. For handlers of signals that end the process:
/// async-signal-safe.
void removePartFiles() noexcept;

} // namespace gk::formats

#include "formats/files/OutputFolder.h"

#include "formats/files/OutputError.h"
#include "formats/files/OutputFile.h"
#include "formats/files/PartFiles.h"

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <filesystem>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

namespace gk::formats {

namespace {

std::string reasonOf(int error) {
  return std::generic_category().message(error);
}

} // namespace

OutputFolder::OutputFolder(const std::string& path) : fPath(path) {
  while (fPath.size() > 1 && fPath.ends_with('/')) {
    fPath.pop_back();
  }
  if (isTaken(fPath)) {
    xFailOnExisting();
  }
  fName = std::filesystem::path(fPath).filename().string();
  if (fName.empty()) {
    xFail("it has no name");
  }
  std::string part = fPath + ".part" + std::to_string(::getpid());
  constexpr mode_t mode = 0777;
  if (::mkdir(part.c_str(), mode) != 0) {
    xFail(reasonOf(errno));
  }
  rememberPartFile(part);
  fPart = std::move(part);
}

OutputFolder::~OutputFolder() {
  if (!fPart.empty()) {
    std::error_code ignored;
    std::filesystem::remove_all(fPart, ignored);
    forgetPartFile(fPart);
  }
}

void OutputFolder::appear() {
  const auto rename = [this](unsigned flags) {
    return ::renameat2(AT_FDCWD, fPart.c_str(), AT_FDCWD, fPath.c_str(), flags) == 0 ? 0 : errno;
  };
  int error = rename(RENAME_NOREPLACE);
  if (error == EINVAL) {
    // A file system that cannot do that in one step.
    error = isTaken(fPath) ? EEXIST : rename(0);
  }
  if (error == EEXIST) {
    xFailOnExisting();
  }
  if (error != 0) {
    throw OutputError(OutputError::Kind::Write, "cannot write " + fPath + ": " + reasonOf(error));
  }
  forgetPartFile(fPart);
  fPart.clear();
}

void OutputFolder::xFail(const std::string& why) const {
  throw OutputError(OutputError::Kind::Name, "cannot make the folder " + fPath + ": " + why);
}

void OutputFolder::xFailOnExisting() const {
  throw OutputError(OutputError::Kind::Exists,
                    fPath + " exists already; " + nextFreeName(fPath) + " is free");
}

} // namespace gk::formats

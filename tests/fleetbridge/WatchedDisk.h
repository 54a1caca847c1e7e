#pragma once

#include <cstring>
#include <filesystem>
#include <functional>
#include <map>
#include <set>
#include <sqlite3.h>
#include <stdexcept>
#include <string>

namespace gk::test {

/// A disk that tells of each write, knows what was written through, and can be full. SQLite reaches
/// its files by it under the name `kName`. One at a time.
class WatchedDisk {
public:
  static constexpr const char* kName = "watched";

  WatchedDisk() : fReal(sqlite3_vfs_find(nullptr)) {
    sDisk = this;
    fVfs = *fReal;
    fVfs.zName = kName;
    fVfs.pNext = nullptr;
    fVfs.szOsFile = static_cast<int>(sizeof(File)) + fReal->szOsFile;
    fVfs.xOpen = open;
    fVfs.xDelete = [](sqlite3_vfs*, const char* name, int isFolderSynced) {
      sDisk->fDeleted.insert(std::filesystem::path(name).filename());
      return sDisk->fReal->xDelete(sDisk->fReal, name, isFolderSynced);
    };
    sqlite3_vfs_register(&fVfs, 0);
  }
  ~WatchedDisk() {
    sqlite3_vfs_unregister(&fVfs);
    sDisk = nullptr;
  }
  WatchedDisk(const WatchedDisk&) = delete;
  WatchedDisk& operator=(const WatchedDisk&) = delete;

  /// Called after each change of a file.
  std::function<void()> onChange;
  /// Whether nothing more can be written; never where it is empty. On the thread that writes.
  std::function<bool()> full;

  /// What survives when the power goes now: of each file what was there when it was written through
  /// last.
  const std::map<std::string, std::string>& survivors() const { return fSurvivors; }

private:
  /// Where the real file follows.
  struct File {
    sqlite3_file base;
    const char* name;
  };

  static sqlite3_file* real(sqlite3_file* file) {
    return reinterpret_cast<sqlite3_file*>(reinterpret_cast<File*>(file) + 1);
  }
  static const sqlite3_io_methods* methods(sqlite3_file* file) { return real(file)->pMethods; }

  static int changed(int code) {
    if (code == SQLITE_OK && sDisk->onChange) {
      sDisk->onChange();
    }
    return code;
  }

  static int open(sqlite3_vfs* vfs, const char* name, sqlite3_file* file, int flags, int* out) {
    static_cast<void>(vfs);
    auto* const own = reinterpret_cast<File*>(file);
    own->base.pMethods = nullptr;
    own->name = name;
    const int code = sDisk->fReal->xOpen(sDisk->fReal, name, real(file), flags, out);
    if (code == SQLITE_OK) {
      static const sqlite3_io_methods table = makeMethods();
      own->base.pMethods = &table;
    }
    return code;
  }

  static sqlite3_io_methods makeMethods() {
    sqlite3_io_methods table{};
    table.iVersion = 2;
    table.xClose = [](sqlite3_file* f) { return methods(f)->xClose(real(f)); };
    table.xRead = [](sqlite3_file* f, void* data, int size, sqlite3_int64 place) {
      return methods(f)->xRead(real(f), data, size, place);
    };
    table.xWrite = [](sqlite3_file* f, const void* data, int size, sqlite3_int64 place) {
      return sDisk->full && sDisk->full() ? SQLITE_FULL
                                          : changed(methods(f)->xWrite(real(f), data, size, place));
    };
    table.xTruncate = [](sqlite3_file* f, sqlite3_int64 size) {
      return changed(methods(f)->xTruncate(real(f), size));
    };
    table.xSync = [](sqlite3_file* f, int flags) {
      const int code = methods(f)->xSync(real(f), flags);
      if (code == SQLITE_OK) {
        sDisk->keep(f);
      }
      return changed(code);
    };
    table.xFileSize = [](sqlite3_file* f, sqlite3_int64* size) {
      return methods(f)->xFileSize(real(f), size);
    };
    table.xLock = [](sqlite3_file* f, int level) { return methods(f)->xLock(real(f), level); };
    table.xUnlock = [](sqlite3_file* f, int level) { return methods(f)->xUnlock(real(f), level); };
    table.xCheckReservedLock = [](sqlite3_file* f, int* out) {
      return methods(f)->xCheckReservedLock(real(f), out);
    };
    table.xFileControl = [](sqlite3_file* f, int operation, void* argument) {
      return methods(f)->xFileControl(real(f), operation, argument);
    };
    table.xSectorSize = [](sqlite3_file* f) { return methods(f)->xSectorSize(real(f)); };
    table.xDeviceCharacteristics = [](sqlite3_file* f) {
      return methods(f)->xDeviceCharacteristics(real(f));
    };
    table.xShmMap = [](sqlite3_file* f, int page, int size, int extend, void volatile** out) {
      return methods(f)->xShmMap(real(f), page, size, extend, out);
    };
    table.xShmLock = [](sqlite3_file* f, int offset, int n, int flags) {
      return methods(f)->xShmLock(real(f), offset, n, flags);
    };
    table.xShmBarrier = [](sqlite3_file* f) { methods(f)->xShmBarrier(real(f)); };
    table.xShmUnmap = [](sqlite3_file* f, int remove) {
      return methods(f)->xShmUnmap(real(f), remove);
    };
    return table;
  }

  void keep(sqlite3_file* file) {
    sqlite3_int64 size = 0;
    methods(file)->xFileSize(real(file), &size);
    std::string content(static_cast<std::size_t>(size), '\0');
    if (size > 0) {
      methods(file)->xRead(real(file), content.data(), static_cast<int>(size), 0);
    }
    const std::string name = std::filesystem::path(reinterpret_cast<File*>(file)->name).filename();
    if (name.ends_with("-wal") && !fSurvivors.contains(name)) {
      // With a new log the folder is written through as well, and with it what left the folder.
      for (const std::string& deleted : fDeleted) {
        fSurvivors.erase(deleted);
      }
      fDeleted.clear();
    }
    fSurvivors[name] = std::move(content);
  }

  static inline WatchedDisk* sDisk = nullptr;
  sqlite3_vfs* fReal;
  sqlite3_vfs fVfs{};
  std::map<std::string, std::string> fSurvivors;
  std::set<std::string> fDeleted;
};

} // namespace gk::test

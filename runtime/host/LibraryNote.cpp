#include "runtime/host/LibraryNote.h"

#include "gk/GKModuleNote.h"

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <elf.h>
#include <fcntl.h>
#include <link.h>
#include <optional>
#include <span>
#include <string_view>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

/// The linker's name for where the program's own header lies.
// NOLINTNEXTLINE(bugprone-reserved-identifier): it is the linker's
extern "C" const ElfW(Ehdr) __ehdr_start __attribute__((visibility("hidden")));

namespace gk::runtime {

namespace {

using ElfHeader = ElfW(Ehdr);
using Segment = ElfW(Phdr);
using Bytes = std::span<const std::byte>;

LoadError misfit(const std::string& path, const std::string& why) {
  return LoadError("cannot load " + path + ": " + why);
}

/// A file as it lies in memory.
class MappedFile {
public:
  /// Raises `LoadError`.
  explicit MappedFile(const std::string& path) {
    const int file = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    struct stat about {};
    if (file < 0 || ::fstat(file, &about) != 0) {
      const int error = errno;
      ::close(file);
      throw misfit(path, std::strerror(error));
    }
    if (!S_ISREG(about.st_mode)) {
      ::close(file);
      throw misfit(path, "it is no file");
    }
    fSize = static_cast<std::size_t>(about.st_size);
    fAddress = fSize == 0 ? nullptr : ::mmap(nullptr, fSize, PROT_READ, MAP_PRIVATE, file, 0);
    const int error = errno;
    ::close(file);
    if (fAddress == MAP_FAILED) {
      throw misfit(path, std::strerror(error));
    }
  }
  ~MappedFile() {
    if (fAddress != nullptr) {
      ::munmap(fAddress, fSize);
    }
  }
  MappedFile(const MappedFile&) = delete;
  MappedFile& operator=(const MappedFile&) = delete;

  Bytes bytes() const { return {static_cast<const std::byte*>(fAddress), fSize}; }

private:
  void* fAddress = nullptr;
  std::size_t fSize = 0;
};

/// Part of a file, as far as it is there.
Bytes partOf(Bytes all, std::uint64_t begin, std::uint64_t size) {
  if (begin > all.size()) {
    return {};
  }
  return all.subspan(begin, std::min<std::uint64_t>(size, all.size() - begin));
}

/// What lies at the beginning of `bytes`; nothing when they end before.
template <class T> std::optional<T> readAs(Bytes bytes) {
  if (bytes.size() < sizeof(T)) {
    return std::nullopt;
  }
  T value;
  std::memcpy(&value, bytes.data(), sizeof value);
  return value;
}

/// The header of a shared library for this machine. Raises `LoadError`.
ElfHeader headerOf(const std::string& path, Bytes file) {
  if (file.size() < EI_NIDENT || std::memcmp(file.data(), ELFMAG, SELFMAG) != 0) {
    throw misfit(path, "it is no ELF file");
  }
  const std::optional<ElfHeader> header = readAs<ElfHeader>(file);
  // This program begins with a header as well, where the loader has put it.
  const ElfHeader& own = __ehdr_start;
  if (!header || std::memcmp(header->e_ident, own.e_ident, EI_VERSION) != 0 ||
      header->e_machine != own.e_machine) {
    throw misfit(path, "it is for another machine than this one");
  }
  if (header->e_type != ET_DYN) {
    throw misfit(path, "it is no shared library");
  }
  return *header;
}

/// A text that fills its place at most.
template <std::size_t N> std::string textIn(const char (&place)[N]) {
  return {place, ::strnlen(place, N)};
}

/// What does not fit; empty when all does.
std::string misfitOf(const GK::GKModuleNote& note) {
  const GK::GKModuleNote own;
  const auto wrong = [](const std::string& what, const std::string& expected,
                        const std::string& found, const std::string& cure) {
    return what + ": expected " + expected + ", found " + found + "; " + cure;
  };
  const std::string rebuild = "build it anew with the platform " + textIn(own.version);
  if (textIn(note.abi) != textIn(own.abi) || note.format != own.format) {
    return wrong("it was built for another platform", textIn(own.abi),
                 textIn(note.abi) + " (version " + textIn(note.version) + ")", rebuild);
  }
  if (textIn(note.cxxLibrary) != textIn(own.cxxLibrary)) {
    return wrong("it was built for another C++ library", textIn(own.cxxLibrary),
                 textIn(note.cxxLibrary),
                 "build it anew with the compiler options of the platform");
  }
  if (note.sizeOfModule != own.sizeOfModule || note.sizeOfValue != own.sizeOfValue) {
    const auto sizes = [](const GK::GKModuleNote& of) {
      return std::to_string(of.sizeOfModule) + " and " + std::to_string(of.sizeOfValue) + " bytes";
    };
    return wrong("its modules and values have other sizes", sizes(own), sizes(note), rebuild);
  }
  return {};
}

/// The module notes among those that a segment holds.
void addNotes(Bytes segment, std::size_t alignment, std::vector<GK::GKModuleNote>& notes) {
  const auto aligned = [alignment](std::size_t size) {
    return (size + alignment - 1) / alignment * alignment;
  };
  while (const auto header = readAs<ElfW(Nhdr)>(segment)) {
    const std::size_t owner = sizeof *header;
    const std::size_t content = owner + aligned(header->n_namesz);
    const Bytes name = partOf(segment, owner, header->n_namesz);
    const std::string_view text(reinterpret_cast<const char*>(name.data()), name.size());
    const auto note = readAs<GK::GKModuleNote>(partOf(segment, content, header->n_descsz));
    if (header->n_type == GK::GKModuleNote::kType &&
        text == std::string_view(GK::GKModuleNote::kOwner, sizeof GK::GKModuleNote::kOwner) &&
        note) {
      notes.push_back(*note);
    }
    segment = partOf(segment, content + aligned(header->n_descsz), segment.size());
  }
}

std::vector<GK::GKModuleNote> notesOf(const ElfHeader& header, Bytes file) {
  std::vector<GK::GKModuleNote> notes;
  for (std::size_t i = 0; i < header.e_phnum; ++i) {
    const auto segment =
        readAs<Segment>(partOf(file, header.e_phoff + i * sizeof(Segment), sizeof(Segment)));
    if (segment && segment->p_type == PT_NOTE) {
      constexpr std::size_t usual = 4;
      constexpr std::size_t wide = 8;
      addNotes(partOf(file, segment->p_offset, segment->p_filesz),
               segment->p_align == wide ? wide : usual, notes);
    }
  }
  return notes;
}

} // namespace

LibraryNote checkLibrary(const std::string& path) {
  const MappedFile file(path);
  const ElfHeader header = headerOf(path, file.bytes());
  const std::vector<GK::GKModuleNote> notes = notesOf(header, file.bytes());
  if (notes.empty()) {
    throw misfit(path, "no note of a module platform: build it with gk_add_module_library");
  }
  for (const GK::GKModuleNote& note : notes) {
    if (const std::string why = misfitOf(note); !why.empty()) {
      throw misfit(path, why);
    }
  }
  const GK::GKModuleNote& note = notes.front();
  return {textIn(note.abi), textIn(note.version), textIn(note.cxxLibrary)};
}

} // namespace gk::runtime

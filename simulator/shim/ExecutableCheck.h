#pragma once

#include <elf.h>
#include <fcntl.h>
#include <link.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/types.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <initializer_list>

/// Whether a program can run on the instrument: the dynamic loader has to load the shim into it.
/// Nothing here allocates memory or calls a function that may be interposed, so that it can be used
/// between vfork and exec. Descriptors are closed again; errno may change.
namespace orvane::executable {

/// The programs that this machine's loader can load.
struct Machine {
  unsigned char elfClass = 0;  // EI_CLASS
  unsigned char data = 0;      // EI_DATA
  std::uint16_t machine = 0;   // e_machine
  char loader[256] = {};       // path of the dynamic loader; empty: not known
};

enum class Kind {
  kFine,        // the loader loads the shim into it
  kFails,       // the system refuses to execute it, or the shell has to read it (ENOEXEC)
  kStatic,      // an ELF file without a dynamic loader
  kForeign,     // an ELF file for another architecture
  kOtherLibc,   // an ELF file whose dynamic loader is not ours
  kUnreadable,  // can be executed, but its contents cannot be read
};

struct Verdict {
  Kind kind = Kind::kFine;
  int error = 0;        // the errno of kFails or kUnreadable
  char file[256] = {};  // of a refusal: which file it is about, perhaps cut
};

inline bool IsRefused(const Verdict& verdict) {
  return verdict.kind != Kind::kFine && verdict.kind != Kind::kFails;
}

/// The text of a refusal: "'./program' is statically linked: it cannot run on the instrument".
struct RefusalText {
  char text[384];
  std::size_t length;
};

namespace detail {

constexpr std::size_t kHeadBytes = 256;  // the part of a file in which the kernel looks for "#!"
constexpr int kMostScripts = 5;          // the kernel's limit for scripts run by scripts
constexpr std::size_t kMaxProgramHeaderBytes = 65536;  // the kernel's limit

inline void Copy(char* to, std::size_t size, const char* from) {
  std::size_t i = 0;
  for (; i + 1 < size && from[i] != '\0'; ++i) {
    to[i] = from[i];
  }
  to[i] = '\0';
}

inline Verdict Fails(int error) { return {.kind = Kind::kFails, .error = error}; }

inline Verdict Refuse(Kind kind, const char* file) {
  Verdict verdict{.kind = kind};
  Copy(verdict.file, sizeof verdict.file, file);
  return verdict;
}

/// A descriptor that is closed with the object.
class File {
 public:
  File(int directory, const char* path, int flags)
      : descriptor_(static_cast<int>(
            ::syscall(SYS_openat, directory, path, flags | O_CLOEXEC | O_NOCTTY | O_NONBLOCK))) {}
  File(const File&) = delete;
  File& operator=(const File&) = delete;
  ~File() {
    if (descriptor_ >= 0) {
      static_cast<void>(::syscall(SYS_close, descriptor_));
    }
  }
  int Get() const { return descriptor_; }

  /// @return how many bytes were read: less than asked for at the end of the file or after an error
  std::size_t ReadAt(std::uint64_t offset, void* buffer, std::size_t size) const {
    std::size_t done = 0;
    while (done < size) {
      const ssize_t got = ::pread64(descriptor_,
                                    static_cast<char*>(buffer) + done,
                                    size - done,
                                    static_cast<off64_t>(offset + done));
      if (got <= 0) {
        break;
      }
      done += static_cast<std::size_t>(got);
    }
    return done;
  }

 private:
  int descriptor_;
};

inline const char* BaseName(const char* path) {
  const char* const slash = std::strrchr(path, '/');
  return slash == nullptr ? path : slash + 1;
}

inline bool IsSameFile(const File& file, const char* path) {
  const File other(AT_FDCWD, path, O_PATH);
  struct stat mine {};
  struct stat its {};
  return other.Get() >= 0 && ::fstat(file.Get(), &mine) == 0 && ::fstat(other.Get(), &its) == 0 &&
         mine.st_dev == its.st_dev && mine.st_ino == its.st_ino;
}

inline bool IsBlank(char letter) { return letter == ' ' || letter == '\t'; }

/// The interpreter that the first line of a script names.
/// @param head  starts with "#!"; the rest of a short file is zeros
/// @return false when there is none, or when it may have been cut
inline bool InterpreterOf(const char (&head)[kHeadBytes], char (&interpreter)[kHeadBytes]) {
  std::size_t start = 2;
  while (start < kHeadBytes && IsBlank(head[start])) {
    ++start;
  }
  std::size_t end = start;
  while (end < kHeadBytes && !IsBlank(head[end]) && head[end] != '\n' && head[end] != '\0') {
    ++end;
  }
  if (end == start || end == kHeadBytes) {
    return false;
  }
  std::memcpy(interpreter, head + start, end - start);
  interpreter[end - start] = '\0';
  return true;
}

/// What the program headers of an ELF file say about its dynamic loader.
enum class Interpreter { kNone, kNamed, kBad };

/// @param loader  the path of the dynamic loader, when there is one
inline Interpreter FindInterpreter(const File& file,
                                   const ElfW(Ehdr) & header,
                                   char (&loader)[sizeof Machine::loader]) {
  const std::size_t bytes = std::size_t{header.e_phnum} * sizeof(ElfW(Phdr));
  if (header.e_phentsize != sizeof(ElfW(Phdr)) || bytes == 0 || bytes > kMaxProgramHeaderBytes) {
    return Interpreter::kBad;
  }
  for (std::size_t i = 0; i < header.e_phnum; ++i) {
    ElfW(Phdr) segment{};
    if (file.ReadAt(header.e_phoff + i * sizeof segment, &segment, sizeof segment) <
        sizeof segment) {
      return Interpreter::kBad;
    }
    if (segment.p_type != PT_INTERP) {
      continue;
    }
    const std::size_t length = segment.p_filesz;
    if (length < 2 || length > sizeof loader ||
        file.ReadAt(segment.p_offset, loader, length) < length || loader[length - 1] != '\0') {
      return Interpreter::kBad;
    }
    return Interpreter::kNamed;
  }
  return Interpreter::kNone;
}

inline bool IsOneOf(const char* word, std::initializer_list<const char*> words) {
  for (const char* const other : words) {
    if (std::strcmp(word, other) == 0) {
      return true;
    }
  }
  return false;
}

/// The program that the dynamic loader is to run, when it is started by hand.
/// @return null when it runs none
inline const char* ProgramForLoader(char* const* arguments) {
  if (arguments == nullptr || arguments[0] == nullptr) {
    return nullptr;
  }
  for (char* const* word = arguments + 1; *word != nullptr; ++word) {
    if (std::strncmp(*word, "--", 2) != 0) {
      return *word;
    }
    const bool takesValue = IsOneOf(*word,
                                    {"--library-path",
                                     "--glibc-hwcaps-prepend",
                                     "--glibc-hwcaps-mask",
                                     "--inhibit-rpath",
                                     "--audit",
                                     "--preload",
                                     "--argv0"});
    if (IsOneOf(*word, {"--list", "--verify"}) || (takesValue && *++word == nullptr)) {
      return nullptr;
    }
  }
  return nullptr;
}

inline Verdict JudgeElf(const File& file, const char* name, const Machine& own) {
  unsigned char ident[EI_NIDENT + 4];  // up to e_machine, at the same place in both classes
  if (file.ReadAt(0, ident, sizeof ident) < sizeof ident) {
    return Fails(ENOEXEC);
  }
  const unsigned low = ident[EI_NIDENT + 2];
  const unsigned high = ident[EI_NIDENT + 3];
  const unsigned machine = ident[EI_DATA] == ELFDATA2MSB ? low << 8U | high : high << 8U | low;
  if (ident[EI_CLASS] != own.elfClass || ident[EI_DATA] != own.data || machine != own.machine) {
    return Refuse(Kind::kForeign, name);
  }
  ElfW(Ehdr) header{};
  if (file.ReadAt(0, &header, sizeof header) < sizeof header ||
      (header.e_type != ET_EXEC && header.e_type != ET_DYN)) {
    return Fails(ENOEXEC);
  }
  char loader[sizeof own.loader];
  switch (FindInterpreter(file, header, loader)) {
    case Interpreter::kBad:
      return Fails(ENOEXEC);
    case Interpreter::kNone:
      return Refuse(Kind::kStatic, name);
    case Interpreter::kNamed:
      break;
  }
  if (own.loader[0] == '\0' || std::strcmp(BaseName(loader), BaseName(own.loader)) == 0) {
    return {};
  }
  // One that is missing makes the exec fail.
  const bool isThere = ::syscall(SYS_faccessat, AT_FDCWD, loader, F_OK) == 0;
  return isThere ? Refuse(Kind::kOtherLibc, name) : Fails(ENOENT);
}

/// Whether the system would execute a file, as far as its place and permissions say.
/// @return 0, or the errno that execve fails with
inline int ProblemOf(int directory, const char* path) {
  const File place(directory, path, O_PATH);  // has no effect on devices
  struct stat status {};
  if (place.Get() < 0 || ::fstat(place.Get(), &status) != 0) {
    return errno;
  }
  const bool isExecutable =
      S_ISREG(status.st_mode) && ::syscall(SYS_faccessat, directory, path, X_OK) == 0;
  return isExecutable ? 0 : EACCES;
}

/// What is in a file that can be executed.
/// @param interpreter  of a script
/// @return false for a script: it is its interpreter that counts
inline bool JudgeContents(const File& file,
                          const char* name,
                          const Machine& own,
                          Verdict& verdict,
                          char (&interpreter)[kHeadBytes]) {
  char head[kHeadBytes] = {};
  file.ReadAt(0, head, sizeof head);
  if (std::memcmp(head, ELFMAG, SELFMAG) == 0) {
    verdict = JudgeElf(file, name, own);
    return true;
  }
  if (head[0] == '#' && head[1] == '!' && InterpreterOf(head, interpreter)) {
    return false;
  }
  verdict = Fails(ENOEXEC);
  return true;
}

/// Whether execvp looks into the next folder after this errno.
inline bool GoesOnAfter(int error) {
  return error == EACCES || error == ENOENT || error == ESTALE || error == ENOTDIR ||
         error == ENODEV || error == ETIMEDOUT;
}

}  // namespace detail

/// The machine that this process runs on.
inline Machine OwnMachine() {
  Machine own;
  ::dl_iterate_phdr(
      [](dl_phdr_info* info, std::size_t, void* data) {
        auto& found = *static_cast<Machine*>(data);
        for (int i = 0; i < info->dlpi_phnum; ++i) {
          const auto& segment = info->dlpi_phdr[i];
          if (segment.p_type == PT_INTERP) {
            detail::Copy(found.loader,
                         sizeof found.loader,
                         // NOLINTNEXTLINE(performance-no-int-to-ptr): the ELF headers hold numbers
                         reinterpret_cast<const char*>(info->dlpi_addr + segment.p_vaddr));
          }
        }
        return 1;  // the first is the program
      },
      &own);
  const detail::File self(AT_FDCWD, own.loader, O_RDONLY);
  ElfW(Ehdr) header{};
  if (self.ReadAt(0, &header, sizeof header) == sizeof header) {
    own.elfClass = header.e_ident[EI_CLASS];
    own.data = header.e_ident[EI_DATA];
    own.machine = header.e_machine;
  }
  return own;
}

namespace detail {

/// Whether a file without a dynamic loader is this machine's dynamic loader itself.
inline bool IsLoader(const Verdict& verdict, const File& file, const Machine& own) {
  return verdict.kind == Kind::kStatic && own.loader[0] != '\0' && IsSameFile(file, own.loader);
}

/// Follows scripts to their interpreters.
/// @param runsLoader  whether the file itself is this machine's dynamic loader
inline Verdict Follow(int directory, const char* path, const Machine& own, bool& runsLoader) {
  char interpreter[kHeadBytes];
  for (int scripts = 0; scripts <= kMostScripts; ++scripts) {
    const int problem = ProblemOf(directory, path);
    if (problem != 0 && problem != EMFILE && problem != ENFILE) {
      return Fails(problem);
    }
    const File file(directory, path, O_RDONLY);
    if (file.Get() < 0) {
      Verdict verdict = Refuse(Kind::kUnreadable, path);
      verdict.error = errno;
      return verdict;
    }
    Verdict verdict;
    if (JudgeContents(file, path, own, verdict, interpreter)) {
      const bool isLoader = IsLoader(verdict, file, own);
      runsLoader = isLoader && scripts == 0;
      return isLoader ? Verdict{} : verdict;
    }
    directory = AT_FDCWD;
    path = interpreter;
  }
  return Fails(ELOOP);
}

/// The path of a file in a folder of PATH.
/// @return false when it is too long
inline bool Join(const char* folder, std::size_t bytes, const char* name, char (&path)[4096]) {
  const std::size_t nameBytes = std::strlen(name) + 1;
  if (bytes + 1 + nameBytes > sizeof path) {
    return false;
  }
  std::size_t length = 0;
  for (; length < bytes; ++length) {
    path[length] = folder[length];
  }
  if (bytes > 0) {
    path[length++] = '/';
  }
  std::memcpy(path + length, name, nameBytes);
  return true;
}

}  // namespace detail

/// Judges a file as execve would find it. Scripts are followed to their interpreters.
/// @param directory  that a relative path starts from; AT_FDCWD for the working directory
/// @param arguments  as for execve; may be null
inline Verdict Judge(int directory, const char* path, char* const* arguments, const Machine& own) {
  bool runsLoader = false;
  const Verdict verdict = detail::Follow(directory, path, own, runsLoader);
  // Run by hand, the loader loads the shim too, unless its program is no dynamic one.
  const char* const program = runsLoader ? detail::ProgramForLoader(arguments) : nullptr;
  return program == nullptr ? verdict : Judge(AT_FDCWD, program, nullptr, own);
}

/// As Judge(), for execvp, which lets the shell read what the system cannot execute.
inline Verdict JudgeOrShell(const char* path, char* const* arguments, const Machine& own) {
  const Verdict verdict = Judge(AT_FDCWD, path, arguments, own);
  const bool isForShell = verdict.kind == Kind::kFails && verdict.error == ENOEXEC;
  return isForShell ? Judge(AT_FDCWD, "/bin/sh", nullptr, own) : verdict;
}

/// Judges what execvp executes: a name without a slash is searched for.
/// @param searchPath  the value of PATH; null when it is not set
inline Verdict JudgeSearched(const char* name,
                             const char* searchPath,
                             char* const* arguments,
                             const Machine& own) {
  if (std::strchr(name, '/') != nullptr) {
    return JudgeOrShell(name, arguments, own);
  }
  int error = ENOENT;
  const char* next = searchPath == nullptr ? "/bin:/usr/bin" : searchPath;
  while (name[0] != '\0' && next != nullptr) {
    const char* const folder = next;
    const std::size_t bytes = std::strcspn(folder, ":");
    next = folder[bytes] == '\0' ? nullptr : folder + bytes + 1;
    char path[4096];
    if (!detail::Join(folder, bytes, name, path)) {
      continue;
    }
    const Verdict verdict = JudgeOrShell(path, arguments, own);
    if (verdict.kind != Kind::kFails || !detail::GoesOnAfter(verdict.error)) {
      return verdict;
    }
    error = verdict.error == EACCES ? EACCES : error;
  }
  return detail::Fails(error);
}

inline RefusalText TextOf(const Verdict& verdict) {
  const bool noDescriptor = verdict.error == EMFILE || verdict.error == ENFILE;
  const char* reason = noDescriptor ? "cannot be read, no descriptor is left" : "cannot be read";
  if (verdict.kind == Kind::kStatic) {
    reason = "is statically linked";
  } else if (verdict.kind == Kind::kForeign) {
    reason = "is for another architecture";
  } else if (verdict.kind == Kind::kOtherLibc) {
    reason = "is for another C library";
  }
  RefusalText text{};
  for (const char* const piece :
       {"'", verdict.file, "' ", reason, ": it cannot run on the instrument"}) {
    detail::Copy(text.text + text.length, sizeof text.text - text.length, piece);
    text.length += std::strlen(text.text + text.length);
  }
  return text;
}

}  // namespace orvane::executable

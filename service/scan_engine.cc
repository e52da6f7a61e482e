#include "service/scan_engine.h"

#include <clamav.h>
#include <elf.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <mutex>
#include <new>
#include <system_error>
#include <vector>

#include "taskstore/schedule_scan_entry.h"

namespace service {
namespace {

// The parsers these option bits switch; every other parser is always on.
constexpr std::uint32_t kOptionalParsers = CL_SCAN_PARSE_ARCHIVE | CL_SCAN_PARSE_PE;
constexpr std::uint32_t kEveryParser =
    CL_SCAN_PARSE_ARCHIVE | CL_SCAN_PARSE_ELF | CL_SCAN_PARSE_PDF | CL_SCAN_PARSE_SWF |
    CL_SCAN_PARSE_HWP3 | CL_SCAN_PARSE_XMLDOCS | CL_SCAN_PARSE_MAIL | CL_SCAN_PARSE_OLE2 |
    CL_SCAN_PARSE_HTML | CL_SCAN_PARSE_PE | CL_SCAN_PARSE_ONENOTE | CL_SCAN_PARSE_IMAGE |
    CL_SCAN_PARSE_IMAGE_FUZZY_HASH;
constexpr char kPuaPrefix[] = "PUA.";
// Enough of a file's start to tell a memory dump by its header.
constexpr std::size_t kHeadSize = 18;

std::string ErrnoText(int number) { return std::generic_category().message(number); }

// The error lines libclamav reports on a thread while it loads databases:
// the first gives the cause, the last names the file it gave up on.
struct LoadErrors {
  std::string first;
  std::string last;
};
thread_local LoadErrors* tLoadErrors = nullptr;

// A message without its end of line and the "cli_function: " it may start with.
std::string Tidy(std::string line) {
  while (!line.empty() && (line.back() == '\n' || line.back() == ' ')) line.pop_back();
  const std::size_t colon = line.find(": ");
  if (line.starts_with("cli_") && colon != std::string::npos) line.erase(0, colon + 2);
  return line;
}

// libclamav's warnings and errors still go to standard error, as they do
// without a callback; verbose lines are dropped.
void OnEngineMessage(cl_msg severity, const char* fullMessage, const char* message, void*) {
  if (severity == CL_MSG_INFO_VERBOSE) return;
  // Standard error is the last resort: a failed write there has nowhere to go.
  static_cast<void>(std::fputs(fullMessage, stderr));
  if (severity != CL_MSG_ERROR || tLoadErrors == nullptr) return;
  try {
    tLoadErrors->last = Tidy(message);
    if (tLoadErrors->first.empty()) tLoadErrors->first = tLoadErrors->last;
  } catch (...) {
    // Out of memory: the message falls back to cl_strerror's words alone.
  }
}

// Leaves out PUA signatures for a scan that does not look for them; libclamav
// itself loads those of unofficial databases whatever the options say.
int SkipPua(const char*, const char* name, unsigned, void*) {
  return name != nullptr && std::strncmp(name, kPuaPrefix, sizeof kPuaPrefix - 1) == 0;
}

cl_error_t InitializeOnce() {
  static std::once_flag once;
  static cl_error_t result = CL_SUCCESS;
  std::call_once(once, [] {
    cl_set_clcb_msg(OnEngineMessage);
    result = cl_init(CL_INIT_DEFAULT);
  });
  return result;
}

// Every detection of one scan, in the order the engine reported them.
struct ScanContext {
  std::vector<std::string> names;
};

void OnVirusFound(int, const char* name, void* context) {
  if (context == nullptr || name == nullptr) return;
  try {
    static_cast<ScanContext*>(context)->names.emplace_back(name);
  } catch (...) {
    // Out of memory: the name the scan itself returns stands in.
  }
}

cl_scan_options ScanSettings(std::uint8_t scanOptions) {
  cl_scan_options settings{};
  settings.parse = kEveryParser & ~kOptionalParsers;
  if ((scanOptions & SCAN_OPT_ARCHIVE) != 0) settings.parse |= CL_SCAN_PARSE_ARCHIVE;
  if ((scanOptions & SCAN_OPT_PACKED) != 0) settings.parse |= CL_SCAN_PARSE_PE;
  // Every match, so that a PUA detection never hides a real one behind it.
  if ((scanOptions & SCAN_OPT_SPYWARE) != 0) settings.general |= CL_SCAN_GENERAL_ALLMATCHES;
  return settings;
}

// Reads up to `size` bytes from the start of `fd`: the count, or -1 with errno.
ssize_t ReadFromStart(int fd, unsigned char* buffer, std::size_t size) {
  std::size_t done = 0;
  while (done < size) {
    const ssize_t got = pread(fd, buffer + done, size - done, static_cast<off_t>(done));
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) return -1;
    if (got == 0) break;
    done += static_cast<std::size_t>(got);
  }
  return static_cast<ssize_t>(done);
}

// A process or system memory dump: an ELF core file in either byte order, a
// Windows minidump, or a Windows full memory dump (32 or 64 bit).
bool IsMemoryDump(const unsigned char* head, std::size_t size) {
  const auto startsWith = [&](const char* magic, std::size_t length) {
    return size >= length && std::memcmp(head, magic, length) == 0;
  };
  if (startsWith("MDMP", 4) || startsWith("PAGEDUMP", 8) || startsWith("PAGEDU64", 8)) return true;
  if (!startsWith(ELFMAG, SELFMAG) || size < 18) return false;
  // e_type sits at offset 16 in both the 32- and the 64-bit header.
  unsigned type = 0;
  if (head[EI_DATA] == ELFDATA2LSB) type = head[16] | head[17] << 8;
  if (head[EI_DATA] == ELFDATA2MSB) type = head[16] << 8 | head[17];
  return type == ET_CORE;
}

}  // namespace

std::unique_ptr<ScanEngine> ScanEngine::Load(const std::string& databaseDir,
                                             std::uint8_t scanOptions, std::string* error) {
  const auto fail = [&](const std::string& message) {
    if (error != nullptr) *error = message;
    return nullptr;
  };
  if (const cl_error_t started = InitializeOnce(); started != CL_SUCCESS) {
    return fail(std::string("cannot start the scan engine: ") + cl_strerror(started));
  }
  struct stat info;
  if (stat(databaseDir.c_str(), &info) != 0) {
    return fail("signature directory " + databaseDir + ": " + ErrnoText(errno));
  }
  if (!S_ISDIR(info.st_mode)) return fail("signature directory " + databaseDir + ": not a directory");
  cl_engine* raw = cl_engine_new();
  if (raw == nullptr) return fail("cannot create the scan engine: out of memory");
  std::unique_ptr<ScanEngine> engine(new ScanEngine(raw, scanOptions));
  // Set before the engine is compiled and shared: callbacks are not
  // thread-safe to change on an engine in use.
  cl_engine_set_clcb_virus_found(raw, OnVirusFound);
  if ((scanOptions & SCAN_OPT_SPYWARE) == 0) cl_engine_set_clcb_sigload(raw, SkipPua, nullptr);

  unsigned databaseOptions = CL_DB_STDOPT;
  if ((scanOptions & SCAN_OPT_SPYWARE) != 0) databaseOptions |= CL_DB_PUA;
  LoadErrors engineErrors;
  tLoadErrors = &engineErrors;
  cl_error_t result = cl_load(databaseDir.c_str(), raw, &engine->signatures_, databaseOptions);
  if (result == CL_SUCCESS && engine->signatures_ > 0) result = cl_engine_compile(raw);
  tLoadErrors = nullptr;

  if (result != CL_SUCCESS) {
    std::string message = "cannot load signatures from " + databaseDir + ": " + cl_strerror(result);
    if (!engineErrors.first.empty()) {
      message += " (" + engineErrors.first;
      if (engineErrors.last != engineErrors.first) message += "; " + engineErrors.last;
      message += ")";
    }
    return fail(message);
  }
  if (engine->signatures_ == 0) return fail("no signatures in " + databaseDir);
  return engine;
}

ScanEngine::ScanEngine(cl_engine* engine, std::uint8_t scanOptions)
    : engine_(engine), scanOptions_(scanOptions) {}

ScanEngine::~ScanEngine() {
  // It fails only for a null engine, which Load never keeps.
  static_cast<void>(cl_engine_free(engine_));
}

std::string ScanEngine::DatabaseVersion() const {
  int status = CL_SUCCESS;
  const long long version = cl_engine_get_num(engine_, CL_ENGINE_DB_VERSION, &status);
  if (status != CL_SUCCESS || version <= 0) return "unversioned";
  return std::to_string(version);
}

std::string ScanEngine::Description() const {
  const std::string version = DatabaseVersion();
  return (version == "unversioned" ? version : "version " + version) + ", " +
         std::to_string(signatures_) + " signatures";
}

FileVerdict ScanEngine::Scan(int fd, const char* path) const {
  FileVerdict verdict;
  const auto fail = [&](const std::string& reason) {
    verdict.verdict = Verdict::kError;
    verdict.error = std::string(path != nullptr ? path : "(no name)") + ": " + reason;
    return verdict;
  };
  // A file up to kBufferedFileSize is read whole into this thread's buffer,
  // which the thread keeps from file to file, and scanned from there. Given
  // the descriptor, libclamav maps fresh anonymous memory for each file and
  // reads the file into it, so that every page faults in; with several
  // scanning threads, each such fault makes the other cores flush their TLBs.
  // Larger files go to libclamav by descriptor, so that the buffer stays
  // bounded; of them only the first bytes are read here. Either way the file
  // is read here first, whatever the options, since libclamav logs a file it
  // cannot read and calls it clean; the first bytes also tell a memory dump.
  thread_local std::unique_ptr<unsigned char[]> buffer;
  thread_local std::size_t capacity = 0;
  struct stat status;
  if (fstat(fd, &status) != 0) return fail(ErrnoText(errno));
  const bool buffered = status.st_size >= 0 &&
                        static_cast<std::uint64_t>(status.st_size) <= kBufferedFileSize;
  // A byte more than the file holds, to see whether it grew since.
  const std::size_t wanted =
      buffered ? static_cast<std::size_t>(status.st_size) + 1 : kHeadSize;
  if (capacity < wanted) {
    // Doubled, so that growing costs no more than the reads; left
    // uninitialised, so that only the pages read into are ever resident.
    const std::size_t grown = std::max(wanted, std::min(2 * capacity, kBufferedFileSize + 1));
    buffer.reset();
    capacity = 0;
    try {
      buffer = std::make_unique_for_overwrite<unsigned char[]>(grown);
    } catch (const std::bad_alloc&) {
      return fail("out of memory");
    }
    capacity = grown;
  }
  const ssize_t got = ReadFromStart(fd, buffer.get(), wanted);
  if (got < 0) return fail(ErrnoText(errno));
  const auto length = static_cast<std::size_t>(got);
  if ((scanOptions_ & SCAN_OPT_DUMP) == 0 && IsMemoryDump(buffer.get(), length)) {
    verdict.verdict = Verdict::kSkippedDump;
    return verdict;
  }
  // An empty file, one that grew while it was read, or a large one: by
  // descriptor, as it is when libclamav reads it.
  cl_fmap_t* map = buffered && length > 0 && length < wanted
                       ? cl_fmap_open_memory(buffer.get(), length)
                       : nullptr;

  ScanContext context;
  cl_scan_options settings = ScanSettings(scanOptions_);
  const char* name = nullptr;
  unsigned long scanned = 0;
  const cl_error_t result =
      map != nullptr
          ? cl_scanmap_callback(map, path, &name, &scanned, engine_, &settings, &context)
          : cl_scandesc_callback(fd, path, &name, &scanned, engine_, &settings, &context);
  if (map != nullptr) cl_fmap_close(map);
  if (result == CL_CLEAN) return verdict;
  if (result != CL_VIRUS) return fail(cl_strerror(result));

  // The first real detection, else the first PUA one.
  const auto& names = context.names;
  const auto real = std::find_if(names.begin(), names.end(),
                                 [](const std::string& found) { return !found.starts_with(kPuaPrefix); });
  verdict.verdict = Verdict::kInfected;
  verdict.signature = real != names.end() ? *real
                      : !names.empty()    ? names.front()
                      : name != nullptr   ? name
                                          : "unnamed";
  return verdict;
}

}  // namespace service

// A tiny signature database of our own for the scan engine's tests, and the
// sample files those tests scan.
#pragma once

#include <string>

namespace testing_support {

// The detection names of the database's four signatures.
inline constexpr char kMarkerSignature[] = "Korvane.Test.Marker";
inline constexpr char kHashSignature[] = "Korvane.Test.Hash";
inline constexpr char kPuaSignature[] = "PUA.Korvane.Test.Marker";
inline constexpr char kEicarSignature[] = "Korvane.Test.Eicar";

// Writes korvane.ndb (the marker, the PUA marker and the EICAR test file's
// body) and korvane.hdb (the hash sample's MD5) into the existing
// `directory`. The marker signature matches only the last bytes of a file,
// so a stored ZIP entry holding the marker is found only when the archive is
// opened, never by reading the archive's own bytes.
void WriteSignatureDatabase(const std::string& directory);

enum class Sample {
  kEmpty,
  kClean,
  kMarker,            // ends with the marker
  kHashContent,       // the content whose MD5 is in korvane.hdb
  kEicar,             // the EICAR test file
  kZippedMarker,      // a stored ZIP archive whose one entry is kMarker
  kPuaMarker,         // the PUA marker alone
  kPuaAndMarker,      // the PUA marker, then the marker
  kElfCore,           // a 64-bit little-endian ELF core header, then the marker
  kElfCoreBigEndian,  // the same as a 32-bit big-endian core file
  kElfExecutable,     // a 64-bit little-endian ELF executable header, then the marker
  kMinidump,          // "MDMP", then the marker
  kFullDump,          // "PAGEDU64", then the marker
};

// The bytes of a sample file.
std::string SampleContent(Sample sample);

// Creates or replaces `path` with `content`; throws std::system_error.
void WriteFile(const std::string& path, const std::string& content);

}  // namespace testing_support

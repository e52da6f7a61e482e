#include "testing/signature_database.h"

#include <clamav.h>

#include <cerrno>
#include <cstdint>
#include <fstream>
#include <stdexcept>
#include <system_error>

namespace testing_support {
namespace {

constexpr char kMarker[] = "KORVANE-TEST-MARKER-1";
constexpr char kPuaMarker[] = "KORVANE-TEST-PUA-MARKER-1";

// The EICAR test file, put together here so that no source file holds it whole.
std::string Eicar() {
  std::string text = "X5O!P%@AP[4\\PZX54(P^)7CC)7}$";
  text += "EICAR-STANDARD-";
  text += "ANTIVIRUS-TEST-";
  return text + "FILE!$H+H*";
}

std::string Hex(const std::string& bytes) {
  static constexpr char kDigits[] = "0123456789abcdef";
  std::string hex;
  for (const unsigned char byte : bytes) {
    hex += kDigits[byte >> 4];
    hex += kDigits[byte & 0x0f];
  }
  return hex;
}

std::string Md5(const std::string& bytes) {
  unsigned char digest[MD5_HASH_SIZE];
  unsigned int length = sizeof digest;
  if (cl_hash_data("md5", bytes.data(), bytes.size(), digest, &length) == nullptr) {
    throw std::runtime_error("cl_hash_data(md5) failed");
  }
  return Hex(std::string(reinterpret_cast<const char*>(digest), length));
}

// Appends the low `bytes` bytes of `value`, little-endian unless `bigEndian`.
void Put(std::string& out, std::uint32_t value, int bytes, bool bigEndian = false) {
  for (int i = 0; i < bytes; ++i) {
    out += static_cast<char>(value >> (8 * (bigEndian ? bytes - 1 - i : i)) & 0xff);
  }
}

std::uint32_t Crc32(const std::string& bytes) {
  std::uint32_t crc = 0xffffffffu;
  for (const unsigned char byte : bytes) {
    crc ^= byte;
    for (int bit = 0; bit < 8; ++bit) crc = (crc >> 1) ^ (0xedb88320u & (0u - (crc & 1u)));
  }
  return ~crc;
}

// A ZIP archive holding `content` stored, uncompressed, under `name`.
std::string StoredZip(const std::string& name, const std::string& content) {
  const std::uint32_t crc = Crc32(content);
  const auto size = static_cast<std::uint32_t>(content.size());
  // The fields the local and the central header share, from "version needed".
  std::string common;
  Put(common, 10, 2);    // version needed: 1.0
  Put(common, 0, 2);     // flags
  Put(common, 0, 2);     // method: stored
  Put(common, 0, 2);     // time
  Put(common, 0x21, 2);  // date: 1980-01-01
  Put(common, crc, 4);
  Put(common, size, 4);  // compressed
  Put(common, size, 4);  // uncompressed
  Put(common, static_cast<std::uint32_t>(name.size()), 2);
  Put(common, 0, 2);  // extra field length

  std::string zip;
  Put(zip, 0x04034b50, 4);
  zip += common + name + content;
  const auto centralOffset = static_cast<std::uint32_t>(zip.size());
  Put(zip, 0x02014b50, 4);
  Put(zip, 20, 2);  // made by
  zip += common;
  Put(zip, 0, 2);  // comment length
  Put(zip, 0, 2);  // disk
  Put(zip, 0, 2);  // internal attributes
  Put(zip, 0, 4);  // external attributes
  Put(zip, 0, 4);  // offset of the local header
  zip += name;
  const auto centralSize = static_cast<std::uint32_t>(zip.size()) - centralOffset;
  Put(zip, 0x06054b50, 4);
  Put(zip, 0, 4);  // this disk, the central directory's disk
  Put(zip, 1, 2);  // entries on this disk
  Put(zip, 1, 2);  // entries in all
  Put(zip, centralSize, 4);
  Put(zip, centralOffset, 4);
  Put(zip, 0, 2);  // comment length
  return zip;
}

// An ELF header of `type` (ET_*) with no program or section headers. Its
// sizes are those of a real one: libclamav resolves end-relative signature
// offsets in an ELF file only when it can read the header.
std::string ElfHeader(bool bits64, bool bigEndian, std::uint16_t type) {
  std::string header = "\x7f" "ELF";
  header += static_cast<char>(bits64 ? 2 : 1);     // EI_CLASS
  header += static_cast<char>(bigEndian ? 2 : 1);  // EI_DATA
  header += '\x01';                                // EI_VERSION
  header.resize(16, '\0');
  Put(header, type, 2, bigEndian);
  Put(header, bits64 ? 62 : 8, 2, bigEndian);  // e_machine: x86-64, MIPS
  Put(header, 1, 4, bigEndian);                // e_version
  header.append(bits64 ? 28 : 16, '\0');       // entry, header offsets, flags
  Put(header, bits64 ? 64 : 52, 2, bigEndian);  // e_ehsize
  Put(header, bits64 ? 56 : 32, 2, bigEndian);  // e_phentsize
  Put(header, 0, 2);                            // e_phnum
  Put(header, bits64 ? 64 : 40, 2, bigEndian);  // e_shentsize
  header.append(4, '\0');                       // e_shnum, e_shstrndx
  return header;
}

}  // namespace

void WriteSignatureDatabase(const std::string& directory) {
  const std::string marker = kMarker;
  WriteFile(directory + "/korvane.ndb",
            std::string(kMarkerSignature) + ":0:EOF-" + std::to_string(marker.size()) + ":" +
                Hex(marker) + "\n" + kPuaSignature + ":0:*:" + Hex(kPuaMarker) + "\n" +
                kEicarSignature + ":0:*:" + Hex(Eicar()) + "\n");
  const std::string hashed = SampleContent(Sample::kHashContent);
  WriteFile(directory + "/korvane.hdb",
            Md5(hashed) + ":" + std::to_string(hashed.size()) + ":" + kHashSignature + "\n");
}

std::string SampleContent(Sample sample) {
  const std::string marked = std::string("a sample that ends with ") + kMarker;
  switch (sample) {
    case Sample::kEmpty: return "";
    case Sample::kClean: return "nothing in here but words\n";
    case Sample::kMarker: return marked;
    case Sample::kHashContent: return "the content the hash signature names\n";
    case Sample::kEicar: return Eicar();
    case Sample::kZippedMarker: return StoredZip("marked.txt", marked);
    case Sample::kPuaMarker: return std::string("unwanted: ") + kPuaMarker + "\n";
    case Sample::kPuaAndMarker: return std::string(kPuaMarker) + "\n" + marked;
    case Sample::kElfCore: return ElfHeader(true, false, 4) + marked;
    case Sample::kElfCoreBigEndian: return ElfHeader(false, true, 4) + marked;
    case Sample::kElfExecutable: return ElfHeader(true, false, 2) + marked;
    case Sample::kMinidump: return "MDMP" + std::string(28, '\0') + marked;
    case Sample::kFullDump: return "PAGEDU64" + std::string(24, '\0') + marked;
  }
  throw std::invalid_argument("unknown sample");
}

void WriteFile(const std::string& path, const std::string& content) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out << content;
  out.close();
  if (!out) throw std::system_error(errno, std::generic_category(), "cannot write " + path);
}

}  // namespace testing_support

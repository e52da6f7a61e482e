// The duplicate rules of the directory prompt, written out independently of
// the prompt's code for the fuzz targets to compare against: a new path P is
// a duplicate of a listed path I when they are equal, when P ends in "/" and
// I begins with P less that slash, or when I ends in "/" and P begins with I
// less that slash. Byte-wise, no separator needed after the prefix.
#pragma once

#include <string>
#include <vector>

namespace fuzz {

inline bool BeginsWithoutSlash(const std::string& withSlash, const std::string& other) {
  if (withSlash.empty() || withSlash.back() != '/') return false;
  return other.compare(0, withSlash.size() - 1, withSlash, 0, withSlash.size() - 1) == 0;
}

inline bool ExpectedDuplicate(const std::string& path, const std::vector<std::string>& items) {
  for (const std::string& item : items) {
    if (path == item || BeginsWithoutSlash(path, item) || BeginsWithoutSlash(item, path)) {
      return true;
    }
  }
  return false;
}

}  // namespace fuzz

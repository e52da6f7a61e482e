// Result codes: one numbering shared by the task store, the report index
// routines and the command functions, left in an out-parameter on failure.
#pragma once

#include <cstdint>

enum : std::uint32_t {
  SCHSCAN_OK = 0,
  SCHSCAN_ERR_LIST_NOT_FOUND = 1001,       // no list, or it holds nothing
  SCHSCAN_ERR_LIST_ACCESS = 1002,          // the list file cannot be opened
  SCHSCAN_ERR_LIST_OPERATION = 1003,       // any other failure of the list
  SCHSCAN_ERR_LIST_SEEK = 1004,            // positioning in the file failed
  SCHSCAN_ERR_LIST_READ = 1005,            // the header could not be read whole
  SCHSCAN_ERR_NAME_CONFIGURED = 1019,      // the name is already in use
  SCHSCAN_ERR_NAME_NOT_CONFIGURED = 1020,  // no scan of that name
  SCHSCAN_ERR_PATH_NOT_FOUND = 1022,       // the directory does not exist
  SCHSCAN_ERR_NOT_FOLDER = 1023,           // the path is not a directory
  SCHSCAN_ERR_PATH_NOT_ALLOWED = 1024,     // relative, or a system directory
  SCHSCAN_ERR_OTHER_USER = 1026,           // the scan belongs to another user
  SCHSCAN_ERR_PATH_PERMISSION = 1029,      // the user may not read the directory
  SCHSCAN_ERR_NAME_LENGTH = 1030,          // too long, or a forbidden character
  SCHSCAN_ERR_NAME_EMPTY = 1031,           // empty name
};

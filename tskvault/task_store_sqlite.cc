#include "taskstore/task_store.h"
// Placeholder until the SQLite store lands.

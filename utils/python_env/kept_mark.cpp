// The mark of a kept interpreter: an entry in libpython's table of frozen modules, which a process may extend at any
// time (PyImport_FrozenModules). It survives this library, because libpython stays loaded.

#include "utils/python_env/kept_mark.h"

#include <cstddef>
#include <cstdlib>
#include <cstring>

#include "utils/python_env/python.h"

namespace {

constexpr char kName[] = "_rubruf_kept_interpreter";

// The memory of the extended table: the previous table, the mark's name, and the entries (the mark, then the previous
// ones).
struct MarkedTable {
  const _frozen* before;
  char name[sizeof kName];
  _frozen entries[1];  // all entries; the last one is empty
};

MarkedTable* FindTable() {
  const _frozen* const table = PyImport_FrozenModules;
  if (table == nullptr || table->name == nullptr || strcmp(table->name, kName) != 0) return nullptr;
  return reinterpret_cast<MarkedTable*>(const_cast<char*>(table->name) - offsetof(MarkedTable, name));
}

}  // namespace

bool HasKeptMark() { return FindTable() != nullptr; }

bool SetKeptMark() {
  size_t count = 0;
  const _frozen* const before = PyImport_FrozenModules;
  if (before != nullptr) {
    while (before[count].name != nullptr) ++count;
  }
  auto* const table = static_cast<MarkedTable*>(calloc(1, sizeof(MarkedTable) + (count + 1) * sizeof(_frozen)));
  if (table == nullptr) return false;
  table->before = before;
  memcpy(table->name, kName, sizeof kName);
  table->entries[0].name = table->name;
  if (count != 0) memcpy(&table->entries[1], before, count * sizeof(_frozen));
  PyImport_FrozenModules = table->entries;
  return true;
}

void RemoveKeptMark() {
  MarkedTable* const table = FindTable();
  if (table == nullptr) return;
  PyImport_FrozenModules = table->before;
  free(table);
}

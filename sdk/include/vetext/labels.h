/* vetext SDK: the module's label table, handed to the host at global setup.
 *
 * The module passes the address of its LabelTable as the initial value of the registration
 * token; the host reads the entries and answers lookup_string(token, index, 0, 0) with the text
 * after the first "=" of entry `index`. The table is static data of the module: it must stay valid
 * while the module is loaded. The three host fields of each entry start at 0 and belong to the
 * host. The last entry is the terminator: key null, then -1, -1, 0. */
#ifndef VETEXT_LABELS_H
#define VETEXT_LABELS_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct LabelEntry {
  const char* key; /* "$$$/.../kStrName=English text" */
  intptr_t host1;
  intptr_t host2;
  intptr_t host3;
} LabelEntry;

typedef struct LabelTable {
  const char* short_name; /* "FX" */
  int32_t count;          /* entries including the terminator */
  LabelEntry* entries;
} LabelTable;

#ifdef __cplusplus
}
#endif

#endif

#include "kestor.h"

#include <string.h>

/* The records have the sizes of the reference layout. */
typedef char field[sizeof(kestor_field) == 262 ? 1 : -1];
typedef char legacy_field[sizeof(kestor_legacy_field) == 274 ? 1 : -1];
typedef char column[sizeof(kestor_column) == 30 ? 1 : -1];
typedef char export_settings[sizeof(kestor_export) == 612 ? 1 : -1];
typedef char export_item[sizeof(kestor_export_item) == 228 ? 1 : -1];
typedef char filter_entry[sizeof(kestor_filter_entry) == 104 ? 1 : -1];
typedef char code_change[sizeof(kestor_code_change) == 4 ? 1 : -1];

kestor_result read_model(const char *name, kestor_content *content);

kestor_result read_model(const char *name, kestor_content *content) {
  kestor_options options;
  kestor_reports *store = NULL;
  kestor_result result;
  memset(&options, 0, sizeof options);
  options.size = sizeof options;
  result = kestor_reports_open(&options, "CT", "01", &store);
  if (result == 0) result = kestor_reports_read(store, name, content);
  kestor_reports_close(store);
  return result;
}

/* Replaces a text in a report model, through the client library in C.
 *
 *   replace MODULE COMPONENT NAME OLD NEW
 *
 * Lists the models, reads one, changes it and writes it back:
 *
 *   cc -o replace replace.c $(pkg-config --cflags --libs kestor)
 */
#include <kestor.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

static int fail(kestor_result result) {
  fprintf(stderr, "replace: %s: %s", kestor_result_name(result), kestor_result_meaning(result));
  fprintf(stderr, " (%s)\n", kestor_last_reason());
  return 1;
}

/* Returns whether the old text begins at this byte of the content. */
static int begins(const kestor_content *content, size_t at, const char *old) {
  const size_t size = strlen(old);
  return size != 0 && content->size - at >= size && memcmp(content->bytes + at, old, size) == 0;
}

/* Copies the content to `copy` with each `old` replaced, unless `copy` is NULL. Returns the size of the result. */
static size_t copy_replaced(const kestor_content *content, const char *old, const char *now, uint8_t *copy,
                            size_t *places) {
  size_t size = 0;
  size_t at = 0;
  *places = 0;
  while (at < content->size) {
    const int found = begins(content, at, old);
    const void *next = found ? (const void *)now : content->bytes + at;
    const size_t next_size = found ? strlen(now) : 1;
    if (copy != NULL) memcpy(copy + size, next, next_size);
    size += next_size;
    at += found ? strlen(old) : 1;
    *places += (size_t)found;
  }
  return size;
}

static int replace(kestor_reports *store, const char *name, const char *old, const char *now) {
  kestor_names names;
  kestor_content content;
  kestor_result result = kestor_reports_list(store, &names);
  uint8_t *changed;
  size_t size;
  size_t places;
  if (result != 0) return fail(result);
  for (size_t i = 0; i < names.count; ++i)
    puts(names.names[i]);
  kestor_free(names.names);

  result = kestor_reports_read(store, name, &content);
  if (result != 0) return fail(result);
  changed = malloc(copy_replaced(&content, old, now, NULL, &places) + 1);
  if (changed != NULL) {
    size = copy_replaced(&content, old, now, changed, &places);
    result = kestor_reports_write(store, name, content.version, 0, changed, size);
  }
  kestor_free(content.bytes);
  if (changed == NULL) return fail(KESTOR_OUT_OF_MEMORY);
  free(changed);
  if (result != 0) return fail(result);
  printf("%s: %zu replaced\n", name, places);
  return 0;
}

int main(int count, char **arguments) {
  kestor_reports *store = NULL;
  kestor_result result;
  int status;
  if (count != 6) {
    fprintf(stderr, "usage: replace MODULE COMPONENT NAME OLD NEW\n");
    return 2;
  }
  result = kestor_reports_open(NULL, arguments[1], arguments[2], &store);
  status = result < 0 ? fail(result) : replace(store, arguments[3], arguments[4], arguments[5]);
  kestor_reports_close(store);
  return status;
}

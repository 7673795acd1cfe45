/* The client library of KESTOR, the report-model repository: every method of the server's three classes, in C.
 *
 *   kestor_reports *store = NULL;
 *   kestor_content content;
 *   kestor_result result = kestor_reports_open(NULL, "CT", "01", &store);
 *   if (result == 0) result = kestor_reports_read(store, "Vendas", &content);
 *   if (result == 0) fwrite(content.bytes, 1, content.size, stdout), kestor_free(content.bytes);
 *   else fprintf(stderr, "%s: %s\n", kestor_result_name(result), kestor_last_reason());
 *   kestor_reports_close(store);
 *
 * Texts are UTF-8 with a terminating NUL. In records they are code page 1252, as the server has them, with a NUL inside
 * the field (kestor_to_utf8). Results are the server's own: negative for a failure, 0 for success, positive for an
 * expected outcome such as "no such model". NULL where it is not allowed gives KESTOR_INVALID_POINTER.
 *
 * The caller owns what a function hands out and frees it with kestor_free; handles have a close function of their own.
 * After a result other than 0 nothing is handed out: pointers are NULL and counts 0. Only a store is open after any
 * result that is not negative.
 *
 * One thread at a time may use a handle; different threads may use different handles. All handles of a process belong
 * to one home.
 */
#ifndef KESTOR_H
#define KESTOR_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#if defined(__GNUC__)
#define KESTOR_API __attribute__((visibility("default")))
#else
#define KESTOR_API
#endif

/* ---- Results -------------------------------------------------------------------------------------------------- */

typedef int32_t kestor_result;

enum {
  KESTOR_NO_SUCH_MODEL = 0x00040001,         /* or it cannot be opened */
  KESTOR_MODEL_EXISTS = 0x00040004,          /* and was not to be overwritten */
  KESTOR_NO_MODELS = 0x00040008,             /* no first-generation models to list */
  KESTOR_COLUMNS_DIFFER = 0x0004000B,        /* the columns to update, from those of the model */
  KESTOR_DEMONSTRATION_DELETED = 0x0004000C, /* the name is that of a deleted one */
  KESTOR_INVALID_POINTER = -0x7FFFBFFD,      /* 0x80004003 */
  KESTOR_NOT_REGISTERED = -0x7FFBFEAC,       /* 0x80040154: no server is registered; see kestorctl setup */
  KESTOR_OUT_OF_MEMORY = -0x7FF8FFF2,        /* 0x8007000E */
  KESTOR_INVALID_ARGUMENT = -0x7FF8FFA9,     /* 0x80070057 */
  KESTOR_TIMED_OUT = -0x7FF8FA4C,            /* 0x800705B4: the call may still take effect */
  KESTOR_NO_SERVER = -0x7FF8F946,            /* 0x800706BA: none runs, or it ended before the call */
  KESTOR_SERVER_LOST = -0x7FF8F942           /* 0x800706BE: it ended during the call */
};

/* Return the name of a result, such as KESTOR_ARQUIVO_JA_EXISTE, and its meaning in English. Valid until the thread's
 * next call of the same function. */
KESTOR_API const char* kestor_result_name(kestor_result result);
KESTOR_API const char* kestor_result_meaning(kestor_result result);

/* Returns why the calling thread's last call ended as it did, a sentence for people; "" when the server gives no
 * reason. Even a success may have one: what went wrong besides. Asks the server, within the time limit of the handle.
 * Valid until the thread's next call of this library. */
KESTOR_API const char* kestor_last_reason(void);

/* Frees what the library hands out. NULL is allowed. */
KESTOR_API void kestor_free(void* block);

/* ---- Home and connection -------------------------------------------------------------------------------------- */

/* Sets the home whose server is asked. Without this call it is $KESTOR_HOME, else $XDG_CONFIG_HOME/kestor, else
 * ~/.config/kestor. Call it before any other function and before starting threads. KESTOR_INVALID_ARGUMENT for an empty
 * path. */
KESTOR_API kestor_result kestor_use_home(const char* folder);

typedef struct kestor_options {
  uint32_t size;           /* of this structure, in bytes: sizeof(kestor_options) */
  uint32_t milliseconds;   /* limit of each call of the handle; 0: waits as long as the server lives */
  uint8_t only_if_running; /* 1: KESTOR_NO_SERVER when no server runs, instead of starting one */
} kestor_options;

/* ---- Records -------------------------------------------------------------------------------------------------- */
/* Packed by 2 bytes, without gaps; numbers are little-endian. */

#pragma pack(push, 2)

/* A field of the field catalogue. */
typedef struct kestor_field {
  uint16_t code;
  uint16_t width; /* printed, in characters */
  char description[26];
  char alias[26];
  char options[200];
  char may_filter; /* 1 or 0 */
  char may_total;
  char may_sort;
  char type;      /* A text, N number, V amount, D date, d month and year, C account, H history, X options */
  char alignment; /* E left, D right, C centre */
  char filler;
} kestor_field;

/* A field as first-generation clients get it. */
typedef struct kestor_legacy_field {
  int32_t code;
  int32_t width;
  char description[26];
  char alias[26];
  char options[200];
  int32_t may_filter;
  int32_t may_total;
  int32_t may_sort;
  char type;
  char alignment;
} kestor_legacy_field;

/* A column of a first-generation model, listed in its new place with its new width. */
typedef struct kestor_column {
  char alias[26];
  int32_t width;
} kestor_column;

/* The export settings of a first-generation model without their items, and an item. */
typedef struct kestor_export {
  char file_name[200];
  char header_description[200];
  char footer_description[200];
  uint16_t header_length;
  uint16_t footer_length;
  uint16_t item_count;
  char header_type;
  char footer_type;
  char decimal_separator;
  char field_separator;
  char version;
  char delimiter;
} kestor_export;

typedef struct kestor_export_item {
  char content[200];
  char alias[26];
  char type;
  char filler; /* carried unchanged */
} kestor_export_item;

/* An entry of a filter. Clients decide which form of the value counts. */
typedef struct kestor_filter_entry {
  uint16_t code; /* of the field */
  union {
    float f;
    int64_t amount; /* in ten-thousandths */
    uint16_t u;
    int32_t i;
    char text[100];
    char flag;
  } value;
  int16_t type;
} kestor_filter_entry;

/* A renumbering of a field code. */
typedef struct kestor_code_change {
  uint16_t from;
  uint16_t to;
} kestor_code_change;

#pragma pack(pop)

/* Returns text of a record as UTF-8, to be freed with kestor_free. The field has `room` bytes and need not contain a
 * NUL. NULL when memory runs out. */
KESTOR_API char* kestor_to_utf8(const char* field, size_t room);

/* Writes UTF-8 as text of a record, cut to `room` - 1 bytes and padded with NULs. KESTOR_INVALID_ARGUMENT when code
 * page 1252 lacks a character, or the text is too long; the field is filled even then. */
KESTOR_API kestor_result kestor_from_utf8(const char* utf8, char* field, size_t room);

/* ---- Report models of the second generation ------------------------------------------------------------------- */

typedef struct kestor_reports kestor_reports;

typedef struct kestor_content {
  uint8_t* bytes;
  size_t size;
  uint16_t version;
} kestor_content;

typedef struct kestor_names {
  char** names; /* one block, freed as a whole */
  size_t count;
} kestor_names;

/* Opens the models of a module and component, and migrates those of the first generation (Inicializa). `options` may be
 * NULL. */
KESTOR_API kestor_result kestor_reports_open(const kestor_options* options, const char* module, const char* component,
                                             kestor_reports** store);
KESTOR_API void kestor_reports_close(kestor_reports* store); /* NULL is allowed */

/* Lists the names of the models, sorted (GetNomeRelatorios). */
KESTOR_API kestor_result kestor_reports_list(kestor_reports* store, kestor_names* names);

/* Le. KESTOR_NO_SUCH_MODEL */
KESTOR_API kestor_result kestor_reports_read(kestor_reports* store, const char* name, kestor_content* content);

/* Stores a content (Grava). `flags` combines these bits. KESTOR_MODEL_EXISTS, KESTOR_DEMONSTRATION_DELETED */
enum { KESTOR_KEEP_EXISTING = 1, KESTOR_CHECK_DEMONSTRATIONS = 2 };
KESTOR_API kestor_result kestor_reports_write(kestor_reports* store, const char* name, uint16_t version, unsigned flags,
                                              const void* bytes, size_t size);

/* Deletes a model (ExcluiRelatorio). `demonstration` 1: remembers its name and hides it from then on. */
KESTOR_API kestor_result kestor_reports_delete(kestor_reports* store, const char* name, int demonstration);

/* Returns the default report; NULL when there is none (GetRelatorioPadrao). */
KESTOR_API kestor_result kestor_reports_get_default(kestor_reports* store, char** name);

/* Sets the default report; NULL clears it (SetRelatorioPadrao). 1 when there is no such model. */
KESTOR_API kestor_result kestor_reports_set_default(kestor_reports* store, const char* name);

/* Lists the deleted demonstration models (GetNomeRelatoriosDemonstracaoExcluidos). */
KESTOR_API kestor_result kestor_reports_deleted(kestor_reports* store, kestor_names* names);

/* Lists the fields that reports can use (GetCamposDisponiveis). */
KESTOR_API kestor_result kestor_reports_fields(kestor_reports* store, kestor_field** fields, size_t* count);

/* ---- Models of the first generation --------------------------------------------------------------------------- */

typedef struct kestor_legacy kestor_legacy;

KESTOR_API kestor_result kestor_legacy_open(const kestor_options* options, const char* module, const char* component,
                                            kestor_legacy** store);
KESTOR_API void kestor_legacy_close(kestor_legacy* store);

/* BuscaNomeRelatoriosExistentes. KESTOR_NO_MODELS */
KESTOR_API kestor_result kestor_legacy_list(kestor_legacy* store, kestor_names* names);

/* BuscaTamanhoRelatorio and BuscaRelatorio; the version is 0. KESTOR_NO_SUCH_MODEL */
KESTOR_API kestor_result kestor_legacy_read(kestor_legacy* store, const char* name, kestor_content* content);

/* GravaRelatorio; flags: KESTOR_KEEP_EXISTING. KESTOR_MODEL_EXISTS */
KESTOR_API kestor_result kestor_legacy_write(kestor_legacy* store, const char* name, unsigned flags, const void* bytes,
                                             size_t size);

/* Does the same through the method that older clients call (GravaRelatorioSemCallBack). */
KESTOR_API kestor_result kestor_legacy_write_quietly(kestor_legacy* store, const char* name, unsigned flags,
                                                     const void* bytes, size_t size);

/* Deletes a model and its export settings (ExcluiRelatorio). 0 even when there is none. */
KESTOR_API kestor_result kestor_legacy_delete(kestor_legacy* store, const char* name);

/* Sets margins, order and widths of columns (AtualizaRelatorio). KESTOR_NO_SUCH_MODEL, KESTOR_COLUMNS_DIFFER */
KESTOR_API kestor_result kestor_legacy_update(kestor_legacy* store, const char* name, uint16_t left, uint16_t top,
                                              const kestor_column* columns, size_t count);

/* BuscaDadosExportacaoDoRelatorio, GravaDadosExportacaoDoRelatorio. `settings` has the number of items. */
KESTOR_API kestor_result kestor_legacy_get_export(kestor_legacy* store, const char* name, kestor_export* settings,
                                                  kestor_export_item** items);
KESTOR_API kestor_result kestor_legacy_put_export(kestor_legacy* store, const char* name, const kestor_export* settings,
                                                  const kestor_export_item* items);

/* LeFiltroRelatorio, GravaFiltroRelatorio. */
KESTOR_API kestor_result kestor_legacy_get_filter(kestor_legacy* store, const char* name, kestor_filter_entry** entries,
                                                  size_t* count);
KESTOR_API kestor_result kestor_legacy_put_filter(kestor_legacy* store, const char* name,
                                                  const kestor_filter_entry* entries, size_t count);

/* BuscaQdeCamposArquivo and BuscaCampos. */
KESTOR_API kestor_result kestor_legacy_fields(kestor_legacy* store, kestor_legacy_field** fields, size_t* count);

/* ---- Renumbering ---------------------------------------------------------------------------------------------- */

/* Renumbers field codes in all report models of a module and component (AlteraCodigoCampos). */
KESTOR_API kestor_result kestor_renumber(const kestor_options* options, const char* module, const char* component,
                                         const kestor_code_change* changes, size_t count);

#ifdef __cplusplus
}
#endif

#endif

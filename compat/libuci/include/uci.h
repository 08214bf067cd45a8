/*
 * Stand-in for the configuration library's header: the part that reads packages. Names, values and struct
 * layouts are those of the real library, so that one binary runs with either.
 *
 * Ownership: a context owns its packages, a package its sections, and so on; pointers into a package die with
 * uci_unload or uci_free_context.
 * Results: 0 or a positive UCI_ERR_* code, which is also kept in the context for uci_perror.
 */
#ifndef LIBUCI_STANDIN_UCI_H
#define LIBUCI_STANDIN_UCI_H

#include <setjmp.h>
#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>

#ifdef __cplusplus
extern "C" {
#endif

#define UCI_CONFDIR "/etc/config"
#define UCI_CONF2DIR "/var/run/uci"
#define UCI_SAVEDIR "/tmp/.uci"
#define UCI_DIRMODE 0700
#define UCI_FILEMODE 0600

enum {
    UCI_OK = 0,
    UCI_ERR_MEM,
    UCI_ERR_INVAL,
    UCI_ERR_NOTFOUND,
    UCI_ERR_IO,
    UCI_ERR_PARSE,
    UCI_ERR_DUPLICATE,
    UCI_ERR_UNKNOWN,
    UCI_ERR_LAST
};

enum uci_type {
    UCI_TYPE_UNSPEC = 0,
    UCI_TYPE_DELTA = 1,
    UCI_TYPE_PACKAGE = 2,
    UCI_TYPE_SECTION = 3,
    UCI_TYPE_OPTION = 4,
    UCI_TYPE_PATH = 5,
    UCI_TYPE_BACKEND = 6,
    UCI_TYPE_ITEM = 7,
    UCI_TYPE_HOOK = 8
};

enum uci_option_type { UCI_TYPE_STRING = 0, UCI_TYPE_LIST = 1 };

enum uci_flags {
    UCI_FLAG_STRICT = 1,
    UCI_FLAG_PERROR = 2,
    UCI_FLAG_EXPORT_NAME = 4,
    UCI_FLAG_SAVED_DELTA = 8
};

struct uci_backend;
struct uci_parse_context;

struct uci_list {
    struct uci_list *next;
    struct uci_list *prev;
};

struct uci_element {
    struct uci_list list;
    enum uci_type type;
    char *name; /* of a list item: its value */
};

struct uci_context {
    struct uci_list root; /* the loaded packages */
    struct uci_parse_context *pctx;
    struct uci_backend *backend;
    struct uci_list backends;
    enum uci_flags flags;
    char *confdir;
    char *savedir;
    char *conf2dir;
    struct uci_list delta_path;
    /* private */
    int err;
    const char *func;
    jmp_buf trap;
    bool internal, nested;
    char *buf;
    int bufsz;
};

struct uci_package {
    struct uci_element e;
    struct uci_list sections;
    struct uci_context *ctx;
    bool has_delta, uses_conf2;
    char *path;
    /* private */
    struct uci_backend *backend;
    void *priv;
    int n_section;
    struct uci_list delta;
    struct uci_list saved_delta;
};

struct uci_section {
    struct uci_element e;
    struct uci_list options;
    struct uci_package *package;
    bool anonymous;
    char *type;
};

struct uci_option {
    struct uci_element e;
    struct uci_section *section;
    enum uci_option_type type;
    union {
        struct uci_list list;
        char *string;
    } v;
};

struct uci_ptr {
    enum uci_type target;
    enum { UCI_LOOKUP_DONE = 1, UCI_LOOKUP_COMPLETE = 2, UCI_LOOKUP_EXTENDED = 4 } flags;
    struct uci_package *p;
    struct uci_section *s;
    struct uci_option *o;
    struct uci_element *last;
    const char *package;
    const char *section;
    const char *option;
    const char *value;
};

/* A context with the default folders, strict, nothing loaded; null when memory is short. */
struct uci_context *uci_alloc_context(void);
void uci_free_context(struct uci_context *ctx);

int uci_set_confdir(struct uci_context *ctx, const char *dir);
/* The folder looked into before confdir; null or "" switches it off. */
int uci_set_conf2dir(struct uci_context *ctx, const char *dir);
/* Changes not yet committed are read from here, after those of every other delta folder. */
int uci_set_savedir(struct uci_context *ctx, const char *dir);
/* UCI_ERR_DUPLICATE when the folder is already one of them. */
int uci_add_delta_path(struct uci_context *ctx, const char *dir);

/* *package is not touched on error. A package that is already loaded: UCI_ERR_DUPLICATE. */
int uci_load(struct uci_context *ctx, const char *name, struct uci_package **package);
int uci_unload(struct uci_context *ctx, struct uci_package *p);
/* Names of the packages there are, null at the end; one block of memory, to be freed by the caller. */
int uci_list_configs(struct uci_context *ctx, char ***list);
/* A null package: all that are loaded. */
int uci_export(struct uci_context *ctx, FILE *stream, struct uci_package *package, bool header);

/* Absent: UCI_ERR_NOTFOUND and *e null. */
int uci_lookup_next(struct uci_context *ctx, struct uci_element **e, struct uci_list *list, const char *name);
/* Takes "package[.section[.option]][=value]" apart; ptr then points into str, which is cut up. */
int uci_parse_ptr(struct uci_context *ctx, struct uci_ptr *ptr, char *str);
/* The same (or with a null str what ptr names), and finds it, loading the package if needed. 0 even when
 * section or option are absent: see UCI_LOOKUP_COMPLETE. */
int uci_lookup_ptr(struct uci_context *ctx, struct uci_ptr *ptr, char *str, bool extended);

/* "[str: ]error[ (reason) at line L, byte B]"; *dest is malloc'ed. */
void uci_get_errorstr(struct uci_context *ctx, char **dest, const char *str);
void uci_perror(struct uci_context *ctx, const char *str);

#ifndef container_of
#define container_of(ptr, type, member) ((type *)((char *)(ptr)-offsetof(type, member)))
#endif

#define list_to_element(ptr) container_of(ptr, struct uci_element, list)
#define uci_to_package(ptr) container_of(ptr, struct uci_package, e)
#define uci_to_section(ptr) container_of(ptr, struct uci_section, e)
#define uci_to_option(ptr) container_of(ptr, struct uci_option, e)

#define uci_list_empty(listptr) ((listptr)->next == (listptr))

#define uci_foreach_element(listptr, elem)                                                                   \
    for ((elem) = list_to_element((listptr)->next); &(elem)->list != (listptr);                              \
         (elem) = list_to_element((elem)->list.next))

#define uci_foreach_element_safe(listptr, tmp, elem)                                                         \
    for ((elem) = list_to_element((listptr)->next), (tmp) = list_to_element((elem)->list.next);              \
         &(elem)->list != (listptr); (elem) = (tmp), (tmp) = list_to_element((elem)->list.next))

static inline struct uci_package *uci_lookup_package(struct uci_context *ctx, const char *name)
{
    struct uci_element *e;
    return uci_lookup_next(ctx, &e, &ctx->root, name) == UCI_OK ? uci_to_package(e) : NULL;
}

static inline struct uci_section *uci_lookup_section(struct uci_context *ctx, struct uci_package *p,
                                                     const char *name)
{
    struct uci_element *e;
    return uci_lookup_next(ctx, &e, &p->sections, name) == UCI_OK ? uci_to_section(e) : NULL;
}

static inline struct uci_option *uci_lookup_option(struct uci_context *ctx, struct uci_section *s,
                                                   const char *name)
{
    struct uci_element *e;
    return uci_lookup_next(ctx, &e, &s->options, name) == UCI_OK ? uci_to_option(e) : NULL;
}

/* Null for an absent option and for a list. */
static inline const char *uci_lookup_option_string(struct uci_context *ctx, struct uci_section *s,
                                                   const char *name)
{
    struct uci_option *o = uci_lookup_option(ctx, s, name);
    return o && o->type == UCI_TYPE_STRING ? o->v.string : NULL;
}

#ifdef __cplusplus
}
#endif

#endif

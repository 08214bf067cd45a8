/*
 * Messages to and from JSON text.
 *
 * The add functions append to an initialised buffer and return false when the text does not parse, is not an
 * object, or the buffer cannot grow. The format functions return a malloc'ed text the caller frees, or null
 * without memory. indent below 0: one line without blanks; from 0 on: that many tabs to start with, one value
 * a line. list: print the members of attr as a container instead of attr itself.
 */
#pragma once

#include "blobmsg.h"

#include <stdbool.h>

struct json_object;

typedef const char *(*blobmsg_json_format_t)(void *priv, struct blob_attr *attr);

bool blobmsg_add_object(struct blob_buf *b, struct json_object *obj);
bool blobmsg_add_json_element(struct blob_buf *b, const char *name, struct json_object *obj);
bool blobmsg_add_json_from_string(struct blob_buf *b, const char *str);
bool blobmsg_add_json_from_file(struct blob_buf *b, const char *file);

char *blobmsg_format_json_with_cb(struct blob_attr *attr, bool list, blobmsg_json_format_t cb, void *priv,
                                  int indent);
char *blobmsg_format_json_value_with_cb(struct blob_attr *attr, blobmsg_json_format_t cb, void *priv,
                                        int indent);

static inline char *blobmsg_format_json(struct blob_attr *attr, bool list)
{
    return blobmsg_format_json_with_cb(attr, list, NULL, NULL, -1);
}

static inline char *blobmsg_format_json_indent(struct blob_attr *attr, bool list, int indent)
{
    return blobmsg_format_json_with_cb(attr, list, NULL, NULL, indent);
}

static inline char *blobmsg_format_json_value(struct blob_attr *attr)
{
    return blobmsg_format_json_value_with_cb(attr, NULL, NULL, -1);
}

static inline char *blobmsg_format_json_value_indent(struct blob_attr *attr, int indent)
{
    return blobmsg_format_json_value_with_cb(attr, NULL, NULL, indent);
}

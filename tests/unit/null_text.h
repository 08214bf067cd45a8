// Put before the sources of bus methods: their texts may be null, as null_text_test.cpp says.
#pragma once

#include <libubus.h>
#include <string.h>

static inline char *text_or_null(struct blob_attr *attr)
{
    char *text = blobmsg_get_string(attr);
    return text != nullptr && strcmp(text, "<null>") == 0 ? nullptr : text;
}

#define blobmsg_get_string text_or_null

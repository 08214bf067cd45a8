/* Comparison functions for avl trees, with results as strcmp has them; the last argument is not used. */
#pragma once

int avl_strcmp(const void *k1, const void *k2, void *ptr);
/* Of two struct blob_attr: the shorter one first, then by content. */
int avl_blobcmp(const void *k1, const void *k2, void *ptr);

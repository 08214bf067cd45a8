/* Comparison functions for avl trees: order of two keys as strcmp; the last argument is not used. */
#pragma once

int avl_strcmp(const void *k1, const void *k2, void *ptr);

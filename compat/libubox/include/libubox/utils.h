/*
 * Small helpers shared by the other headers: array length, byte order, attribute shorthands.
 *
 * The cpu_to_* and *_to_cpu forms take and give values of exactly the named width; the const_ forms are
 * usable in constant expressions. C and C++; callers wrap the inclusion in extern "C".
 */
#pragma once

#include <byteswap.h>
#include <endian.h>
#include <stdbool.h>
#include <stdint.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/types.h>
#include <time.h>
#include <unistd.h>

#ifndef ARRAY_SIZE
#define ARRAY_SIZE(arr) (sizeof(arr) / sizeof((arr)[0]))
#endif

#define BUILD_BUG_ON(condition) ((void)sizeof(char[1 - 2 * !!(condition)]))

#define const_bswap16(x) ((uint16_t)((((x)&0x00ffU) << 8) | (((x)&0xff00U) >> 8)))
#define const_bswap32(x)                                                                                     \
    ((uint32_t)((((x)&0x000000ffU) << 24) | (((x)&0x0000ff00U) << 8) | (((x)&0x00ff0000U) >> 8) |            \
                (((x)&0xff000000U) >> 24)))
#define const_bswap64(x)                                                                                     \
    ((((uint64_t)const_bswap32((uint32_t)(x))) << 32) |                                                      \
     (uint64_t)const_bswap32((uint32_t)((uint64_t)(x) >> 32)))

#if __BYTE_ORDER == __LITTLE_ENDIAN
#define const_cpu_to_be16(x) const_bswap16((uint16_t)(x))
#define const_cpu_to_be32(x) const_bswap32((uint32_t)(x))
#define const_cpu_to_be64(x) const_bswap64((uint64_t)(x))
#define const_cpu_to_le16(x) ((uint16_t)(x))
#define const_cpu_to_le32(x) ((uint32_t)(x))
#define const_cpu_to_le64(x) ((uint64_t)(x))
#else
#define const_cpu_to_be16(x) ((uint16_t)(x))
#define const_cpu_to_be32(x) ((uint32_t)(x))
#define const_cpu_to_be64(x) ((uint64_t)(x))
#define const_cpu_to_le16(x) const_bswap16((uint16_t)(x))
#define const_cpu_to_le32(x) const_bswap32((uint32_t)(x))
#define const_cpu_to_le64(x) const_bswap64((uint64_t)(x))
#endif
#define const_be16_to_cpu(x) const_cpu_to_be16(x)
#define const_be32_to_cpu(x) const_cpu_to_be32(x)
#define const_be64_to_cpu(x) const_cpu_to_be64(x)
#define const_le16_to_cpu(x) const_cpu_to_le16(x)
#define const_le32_to_cpu(x) const_cpu_to_le32(x)
#define const_le64_to_cpu(x) const_cpu_to_le64(x)

#define cpu_to_be16(x) htobe16((uint16_t)(x))
#define cpu_to_be32(x) htobe32((uint32_t)(x))
#define cpu_to_be64(x) htobe64((uint64_t)(x))
#define be16_to_cpu(x) be16toh((uint16_t)(x))
#define be32_to_cpu(x) be32toh((uint32_t)(x))
#define be64_to_cpu(x) be64toh((uint64_t)(x))
#define cpu_to_le16(x) htole16((uint16_t)(x))
#define cpu_to_le32(x) htole32((uint32_t)(x))
#define cpu_to_le64(x) htole64((uint64_t)(x))
#define le16_to_cpu(x) le16toh((uint16_t)(x))
#define le32_to_cpu(x) le32toh((uint32_t)(x))
#define le64_to_cpu(x) le64toh((uint64_t)(x))

#ifndef __packed
#define __packed __attribute__((packed))
#endif
#ifndef __constructor
#define __constructor __attribute__((constructor))
#endif
#ifndef __destructor
#define __destructor __attribute__((destructor))
#endif
#ifndef __hidden
#define __hidden __attribute__((visibility("hidden")))
#endif
#ifndef fallthrough
#define fallthrough __attribute__((__fallthrough__))
#endif

// Checking and reading messages.
#include "exported.h"

#include <cerrno>

namespace {

// What blob_check_type is asked for each type; containers are looked into only when they are parsed
// themselves.
constexpr int payload_type[__BLOBMSG_TYPE_LAST] = {BLOB_ATTR_BINARY, BLOB_ATTR_NESTED, BLOB_ATTR_NESTED,
                                                   BLOB_ATTR_STRING, BLOB_ATTR_INT64,  BLOB_ATTR_INT32,
                                                   BLOB_ATTR_INT16,  BLOB_ATTR_INT8,   BLOB_ATTR_DOUBLE};

bool header_sound(const blob_attr *attr, bool name)
{
    const size_t len = blob_len(attr);
    if (len < sizeof(blobmsg_hdr)) {
        return false;
    }
    const auto *hdr = static_cast<const blobmsg_hdr *>(blob_data(attr));
    const unsigned int name_len = blobmsg_namelen(hdr);
    if (name && name_len == 0) {
        return false;
    }
    return static_cast<size_t>(blobmsg_hdrlen(name_len)) <= len && hdr->name[name_len] == 0;
}

bool type_matches(enum blobmsg_type wanted, int type)
{
    if (wanted == BLOBMSG_TYPE_UNSPEC || static_cast<int>(wanted) == type) {
        return true;
    }
    return wanted == BLOBMSG_CAST_INT64 && type >= BLOBMSG_TYPE_INT64 && type <= BLOBMSG_TYPE_INT8;
}

bool name_matches(const char *wanted, const blob_attr *attr)
{
    const auto *hdr = static_cast<const blobmsg_hdr *>(blob_data(attr));
    const size_t len = strlen(wanted);
    return len == blobmsg_namelen(hdr) && memcmp(wanted, hdr->name, len) == 0;
}

} // namespace

bool blobmsg_check_attr_len(const blob_attr *attr, bool name, size_t len)
{
    if (len < sizeof(blob_attr) || blob_raw_len(attr) < sizeof(blob_attr) || blob_raw_len(attr) > len) {
        return false;
    }
    if (!blob_is_extended(attr)) {
        return !name;
    }
    if (!header_sound(attr, name) || blob_id(attr) > BLOBMSG_TYPE_LAST) {
        return false;
    }
    return blob_check_type(blobmsg_data(attr), static_cast<unsigned int>(blobmsg_data_len(attr)),
                           payload_type[blob_id(attr)]);
}

bool blobmsg_check_attr(const blob_attr *attr, bool name)
{
    return blobmsg_check_attr_len(attr, name, blob_raw_len(attr));
}

int blobmsg_check_array_len(const blob_attr *attr, int type, size_t len)
{
    const blob_attr *pos;
    size_t rem;
    int count = 0;

    if (!blobmsg_check_attr_len(attr, false, len) || type > BLOBMSG_TYPE_LAST) {
        return -1;
    }
    const bool table = blobmsg_type(attr) == BLOBMSG_TYPE_TABLE;
    if (!table && blobmsg_type(attr) != BLOBMSG_TYPE_ARRAY) {
        return -1;
    }
    blobmsg_for_each_attr(pos, attr, rem)
    {
        if ((type != BLOBMSG_TYPE_UNSPEC && blobmsg_type(pos) != type) ||
            !blobmsg_check_attr_len(pos, table, rem)) {
            return -1;
        }
        count++;
    }
    return count;
}

int blobmsg_check_array(const blob_attr *attr, int type)
{
    return blobmsg_check_array_len(attr, type, blob_raw_len(attr));
}

bool blobmsg_check_attr_list(const blob_attr *attr, int type)
{
    return blobmsg_check_array(attr, type) >= 0;
}

bool blobmsg_check_attr_list_len(const blob_attr *attr, int type, size_t len)
{
    return blobmsg_check_array_len(attr, type, len) >= 0;
}

int blobmsg_parse(const blobmsg_policy *policy, int policy_len, blob_attr **tb, void *data, unsigned int len)
{
    blob_attr *attr;
    size_t rem = len;

    for (int i = 0; i < policy_len; i++) {
        tb[i] = nullptr;
    }
    if (data == nullptr || !len) {
        return -EINVAL;
    }
    __blob_for_each_attr(attr, data, rem)
    {
        if (!blobmsg_check_attr_len(attr, false, rem)) {
            return -1;
        }
        if (!blob_is_extended(attr)) {
            continue;
        }
        for (int i = 0; i < policy_len; i++) {
            if (tb[i] == nullptr && policy[i].name != nullptr &&
                type_matches(policy[i].type, blobmsg_type(attr)) && name_matches(policy[i].name, attr)) {
                tb[i] = attr;
            }
        }
    }
    return 0;
}

int blobmsg_parse_array(const blobmsg_policy *policy, int policy_len, blob_attr **tb, void *data,
                        unsigned int len)
{
    blob_attr *attr;
    size_t rem = len;
    int next = 0;

    for (int i = 0; i < policy_len; i++) {
        tb[i] = nullptr;
    }
    if (data == nullptr || !len) {
        return -EINVAL;
    }
    __blob_for_each_attr(attr, data, rem)
    {
        if (next == policy_len) {
            break;
        }
        if (!type_matches(policy[next].type, blobmsg_type(attr))) {
            continue;
        }
        if (!blobmsg_check_attr_len(attr, false, rem)) {
            return -1;
        }
        tb[next++] = attr;
    }
    return 0;
}
